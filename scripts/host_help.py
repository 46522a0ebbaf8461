"""Reads the host's --help texts: what man pages and completions are made of."""
import re
import subprocess

COLUMN = 30  # of an entry's sentence

# NAMES [VALUE][=DEFAULT] and marks, as in "--mta-by TEXT:{gates,number}=gates Needs: --mta".
ENTRY = re.compile(r'(?P<names>\S+)(?: (?P<value>(?!REQUIRED$|REQUIRED |Needs:|Excludes:|\.\.\.)\S+))?(?P<marks>.*)$')


class Entry:
    """An option or argument of a command."""

    def __init__(self, head, sentence):
        m = ENTRY.match(head)
        self.names = m['names'].split(',')
        value, _, self.default = (m['value'] or '').partition('=')
        self.value, _, choices = value.partition(':{')  # name of the value, empty for a flag
        self.choices = choices.rstrip('}').split(',') if choices else []
        self.marks = m['marks'].strip()
        self.repeats = '...' in self.marks.split()
        self.required = 'REQUIRED' in self.marks.split()
        self.sentence = sentence

    @property
    def label(self):
        """What stands for the value: a word the user replaces."""
        if self.value == 'TEXT':
            return 'DIRECTORY' if self.wants_directory else 'WORD' if self.choices else 'TEXT'
        return self.value

    @property
    def wants_directory(self):
        return any(n.endswith('-dir') for n in self.names)

    @property
    def wants_file(self):
        """Whether a file's name makes sense as the value: no choice, no number, no composed form."""
        return self.value == 'TEXT' and not self.choices and not self.wants_directory

    @property
    def relations(self):
        """Names of options that this one needs and excludes."""
        found = {}
        for word, names in re.findall(r'(Needs|Excludes): ((?:-\S+ ?)+)', self.marks):
            found[word] = names.split()
        return found


class Command:
    """A help text. The main one has commands, the others have arguments; `footer` is what follows. Examples are pairs of
    a purpose and a line."""

    def __init__(self, name, text):
        self.name = name
        head, _, body = text.partition('\nUsage: ')
        self.sentence = ' '.join(head.split())
        self.usage, _, body = body.partition('\n')
        body, self.examples = _examples(body)
        sections, self.footer = _sections(body)
        self.arguments = [Entry(*e) for e in sections.get('Positionals', [])]
        self.options = [Entry(*e) for e in sections.get('Options', [])]
        self.commands = sections.get('Subcommands', [])


def _examples(body):
    """The body without its examples, and these."""
    body, _, shown = body.partition('\nExamples:\n')
    return body, re.findall(r'^  (\S.*):\n    (\S.*)$', shown, re.M)


def _sections(body):
    """Entries by section title, and the paragraphs that are no section."""
    sections, footer, entries = {}, [], None
    for line in body.split('\n'):
        title = re.match(r'(\w+):$', line)
        if title:
            entries = sections.setdefault(title[1], [])
        elif entries is not None and line.startswith(' ' * COLUMN):
            entries[-1][1] = (entries[-1][1] + ' ' + line.strip()).strip()
        elif entries is not None and line.startswith('  '):
            entries.append(list(_split(line)))
        elif line:
            entries = None
            footer.append(line)
    return sections, footer


def _split(line):
    """An entry that leaves no room for its sentence has it on the next line."""
    if len(line) > COLUMN and line[COLUMN - 1] == ' ' and not re.match(r'(REQUIRED|Needs:|Excludes:|\.\.\.)', line[COLUMN:]):
        return line[:COLUMN].strip(), line[COLUMN:].strip()
    return line.strip(), ''


def _ask(host, *args):
    return subprocess.run([host] + list(args), stdout=subprocess.PIPE, text=True, check=True).stdout


def read(host):
    """The main command, and all subcommands in its order."""
    main = Command('', _ask(host, '--help'))
    if not main.commands:
        raise ValueError('no commands in the help of ' + host)
    return main, [Command(name, _ask(host, name, '--help')) for name, _ in main.commands]


def version(host):
    return _ask(host, '--version').split()[-1]
