#!/usr/bin/env python3
"""make_man.py HOST TEXTS OUT: a man page for the host and one for each command.

Synopsis, options, examples and exit codes come from the host's help. What help has no room for stands in TEXTS/COMMAND.roff
(TEXTS/rxp2k7.roff for the host itself) as sections; DESCRIPTION replaces the help's sentence, others follow the options.
"""
import os
import re
import shutil
import sys

import host_help


def escape(text):
    """Text as roff shows it unchanged."""
    text = text.replace('\\', '\\e').replace('-', '\\-')
    return re.sub(r"^([.'])", r'\\&\1', text, flags=re.M)


def written(path):
    """Sections of a text by title, in its order."""
    sections = {}
    if os.path.exists(path):
        with open(path, encoding='ascii') as f:
            for part in re.split(r'^\.SH ', f.read(), flags=re.M)[1:]:
                title, _, body = part.partition('\n')
                sections[title.strip('" ')] = body.rstrip('\n')
    return sections


def entry(e):
    names = ', '.join('\\fB%s\\fR' % escape(n) for n in e.names)
    if not e.names[0].startswith('-'):
        names = '\\fI%s\\fR%s' % (escape(e.names[0]), ' ...' if e.repeats else '')
    elif e.value:
        names += ' \\fI%s\\fR' % escape(e.label)
    more = [escape(e.sentence[:1].upper() + e.sentence[1:]).rstrip('.') + '.']
    if e.choices:
        more.append('One of %s.' % ', '.join('\\fB%s\\fR' % escape(c) for c in e.choices))
    if e.wants_directory and e.default == '.':
        more.append('Default: the current directory.')
    elif e.default:
        more.append('Default: \\fB%s\\fR.' % escape(e.default))
    if e.required and e.names[0].startswith('-'):
        more.append('Required.')
    for word, others in e.relations.items():
        more.append('%s %s.' % (word, ', '.join('\\fB%s\\fR' % escape(o) for o in others)))
    return '.TP\n%s\n%s' % (names, '\n'.join(more))


def example(shown):
    purpose, line = shown
    return '%s:\n.PP\n.nf\n.RS\n%s\n.RE\n.fi' % (escape(purpose), escape(line))


def exit_codes(footer):
    """The codes of "Exit codes: 0 all good, 1 internal failure, ..." as a list."""
    text = next(line for line in footer if line.startswith('Exit codes: '))
    return ['.TP\n.B %s\n%s.' % (n, escape(s)) for n, s in re.findall(r'(\d+) ([^,]*?)(?:, (?=\d)|\.?$)', text[12:])]


def page(command, main, commands, texts, version):
    name = 'rxp2k7-' + command.name if command.name else 'rxp2k7'
    own = written(os.path.join(texts, (command.name or 'rxp2k7') + '.roff'))
    sections = [
        ('NAME', '%s \\- %s' % (escape(name), escape(command.sentence.rstrip('.')))),
        ('SYNOPSIS', '.nf\n\\fBrxp2k7\\fR%s\n.fi' % escape(command.usage[len('rxp2k7'):])),
        ('DESCRIPTION', own.pop('DESCRIPTION', escape(command.sentence)))]
    if command.commands:
        sections.append(('COMMANDS', '\n'.join('.TP\n\\fBrxp2k7\\-%s\\fR(1)\n%s' % (escape(n), escape(s))
                                               for n, s in command.commands)))
    if command.arguments:
        sections.append(('ARGUMENTS', '\n'.join(map(entry, command.arguments))))
    sections.append(('OPTIONS', '\n'.join(map(entry, command.options))))
    sections += own.items()
    if command.examples:
        sections.append(('EXAMPLES', '\n.PP\n'.join(map(example, command.examples))))
    if command.name and command.footer:
        sections.append(('NOTES', '\n.PP\n'.join(map(escape, command.footer))))
    sections.append(('EXIT STATUS', '\n'.join(exit_codes(main.footer))))
    others = ['rxp2k7'] + ['rxp2k7-' + c.name for c in commands]
    sections.append(('SEE ALSO', ',\n'.join('\\fB%s\\fR(1)' % escape(o) for o in others if o != name)))
    head = '.TH %s 1 "" "rxp2k7 %s" "User Commands"\n.ad l\n.nh\n' % (escape(name.upper()), version)
    return name, head + ''.join('.SH %s\n%s\n' % s for s in sections)


def main():
    host, texts, out = sys.argv[1:]
    top, commands = host_help.read(host)
    shutil.rmtree(out, ignore_errors=True)  # also pages of commands that are no more
    os.makedirs(out)
    for command in [top] + commands:
        name, text = page(command, top, commands, texts, host_help.version(host))
        with open(os.path.join(out, name + '.1'), 'w', encoding='ascii') as f:
            f.write(text)


if __name__ == '__main__':
    main()
