#!/usr/bin/env python3
"""make_completions.py HOST OUT: completions for bash (OUT/rxp2k7), zsh (OUT/_rxp2k7) and fish (OUT/rxp2k7.fish)."""
import os
import sys

import host_help

BASH = '''\
# bash completion for rxp2k7
_rxp2k7() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command='' i options=''
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]}; break; }
  done
  # bash cuts --option=value in three.
  if [[ $cur == = ]]; then
    cur=''
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}
  fi
  case $command:$prev in
%(values)s
  esac
  if [[ $cur == -* || -z $command ]]; then
    case $command in
%(options)s
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  fi
}
complete -F _rxp2k7 rxp2k7
'''

BASH_VALUES = {
    'choices': 'mapfile -t COMPREPLY < <(compgen -W "%s" -- "$cur"); return',
    'directory': 'compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return',
    'file': 'compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return',
    'other': 'return',
}


def kind_of(e):
    """What completes an option's value; empty for a flag."""
    if not e.value:
        return ''
    if e.choices:
        return 'choices'
    return 'directory' if e.wants_directory else 'file' if e.wants_file else 'other'


def bash(main, commands):
    values, options = [], []
    for c in [main] + commands:
        names = [n for e in c.options for n in e.names] + [name for name, _ in c.commands]
        options.append("      '%s') options='%s' ;;" % (c.name, ' '.join(names)))
        for e in c.options:
            if kind_of(e):
                action = BASH_VALUES[kind_of(e)]
                values.append('    %s) %s ;;' % ('|'.join('%s:%s' % (c.name, n) for n in e.names),
                                                 action % ' '.join(e.choices) if e.choices else action))
    return BASH % {'values': '\n'.join(values), 'options': '\n'.join(options)}


ZSH = '''\
#compdef rxp2k7
# zsh completion for rxp2k7
_rxp2k7() {
  local curcontext=$curcontext state line
  local -a commands
  commands=(
%(commands)s
  )
  _arguments -C \\
%(options)s
    '1:command:->command' \\
    '*::argument:->argument'
  case $state in
    command) _describe command commands ;;
    argument)
      case $words[1] in
%(cases)s
      esac ;;
  esac
}
_rxp2k7 "$@"
'''


def zsh_text(text):
    """Text within single quotes, in a place where brackets and colons count."""
    for special in '\\[]:':
        text = text.replace(special, '\\' + special)
    return text.replace("'", "'\\''")


def zsh_action(e):
    if e.choices:
        return '(%s)' % ' '.join(e.choices)
    return {'directory': '_files -/', 'file': '_files', 'other': ' '}[kind_of(e)]


def zsh_options(command):
    """One line an option; the names of one exclude each other."""
    for e in command.options:
        value = ':%s:%s' % (zsh_text(e.label), zsh_action(e)) if e.value else ''
        repeat = '*' if e.repeats else ''
        for name in e.names:
            others = '' if repeat else '(%s)' % ' '.join(e.names)
            # The value follows as a word of its own, or behind "=", or at once behind a letter.
            joint = '' if not value else '=' if name.startswith('--') else '+'
            yield "'%s%s%s%s[%s]%s'" % (others, repeat, name, joint, zsh_text(e.sentence), value)


def zsh(main, commands):
    cases = []
    for c in commands:
        arguments = ["'%s:%s:_files'" % ('*' if a.repeats else '', zsh_text(a.names[0])) for a in c.arguments]
        lines = ' \\\n'.join('            ' + x for x in list(zsh_options(c)) + arguments)
        cases.append('        %s)\n          _arguments \\\n%s ;;' % (c.name, lines))
    return ZSH % {
        'commands': '\n'.join("    '%s:%s'" % (n, zsh_text(s)) for n, s in main.commands),
        'options': '\n'.join('    %s \\' % x for x in zsh_options(main)),
        'cases': '\n'.join(cases)}


def fish_text(text):
    return "'%s'" % text.replace('\\', '\\\\').replace("'", "\\'")


def fish(main, commands):
    lines = ['# fish completion for rxp2k7', 'complete -c rxp2k7 -n __fish_use_subcommand -f']
    for name, sentence in main.commands:
        lines.append('complete -c rxp2k7 -n __fish_use_subcommand -a %s -d %s' % (name, fish_text(sentence)))
    for c in [main] + commands:
        where = "'__fish_seen_subcommand_from %s'" % c.name if c.name else '__fish_use_subcommand'
        for e in c.options:
            names = ' '.join('-l ' + n[2:] if n.startswith('--') else '-s ' + n[1:] for n in e.names)
            value = {'': '', 'choices': " -x -a '%s'" % ' '.join(e.choices), 'file': ' -r -F', 'other': ' -x',
                     'directory': " -x -a '(__fish_complete_directories)'"}[kind_of(e)]
            lines.append('complete -c rxp2k7 -n %s %s%s -d %s' % (where, names, value, fish_text(e.sentence)))
    return '\n'.join(lines) + '\n'


def main():
    host, out = sys.argv[1:]
    top, commands = host_help.read(host)
    os.makedirs(out, exist_ok=True)
    for name, make in (('rxp2k7', bash), ('_rxp2k7', zsh), ('rxp2k7.fish', fish)):
        with open(os.path.join(out, name), 'w', encoding='ascii') as f:
            f.write(make(top, commands))


if __name__ == '__main__':
    main()
