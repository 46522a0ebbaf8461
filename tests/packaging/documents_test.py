#!/usr/bin/python3
"""documents_test.py SOURCE BUILD CMAKE COMPILER TEST ...: man pages and completions against the program's own help, each
as its reader shows it."""
import os
import pty
import re
import select
import shutil
import tempfile
import time
import unittest

import staged
from staged import read, run

TEXTS = os.path.join(staged.SOURCE, 'docs', 'man')


class Manual(unittest.TestCase):
    def setUp(self):
        self.folder = staged.staged('share', 'man', 'man1')
        self.pages = {'': 'rxp2k7.1', **{c: 'rxp2k7-%s.1' % c for c in staged.commands()}}

    def render(self, page):
        """The page as a terminal without bold shows it, words undivided."""
        return run('groff', '-man', '-ww', '-rHY=0', '-Tascii', '-P-cbou', os.path.join(self.folder, page))

    def test_has_a_page_for_the_program_and_each_command(self):
        self.assertGreater(len(self.pages), 5)
        self.assertEqual(set(os.listdir(self.folder)), set(self.pages.values()))

    def test_pages_are_set_without_warnings(self):
        for page in self.pages.values():
            self.assertEqual(self.render(page).stderr, '', page)

    def test_pages_describe_every_option(self):
        for command, page in self.pages.items():
            section = self.render(page).stdout.split('\nOPTIONS\n')[1]
            entries = ' '.join(re.findall(r'^ {7}(-.*)', section, re.M))
            missing = [o for o in staged.options(command) if not re.search(r'(?<![\w-])%s(?![\w-])' % o, entries)]
            self.assertEqual(missing, [], page)

    def test_pages_say_all_that_the_help_says(self):
        for command, page in self.pages.items():
            told = staged.help_of(command).split('\nUsage: ')[1]
            told = re.sub(r'^(Options|Positionals|Subcommands|Exit codes):|\b(Needs|Excludes|[A-Z]+)\b', '', told, flags=re.M)
            words = set(re.findall(r'[a-z]{3,}', told.lower()))
            self.assertGreater(len(words), 10)
            self.assertEqual(words - set(re.findall(r'[a-z]{3,}', self.render(page).stdout.lower())), set(), page)

    def test_pages_tell_every_exit_code(self):
        codes = re.findall(r'(?<=[ ,])(\d+) [a-z]', staged.help_of('').split('Exit codes:')[1])
        self.assertGreater(len(codes), 3)
        for page in self.pages.values():
            section = self.render(page).stdout.split('\nEXIT STATUS\n')[1].split('\nSEE ALSO\n')[0]
            self.assertEqual(re.findall(r'^ {7}(\d+) ', section, re.M), codes, page)

    def test_written_texts_belong_to_commands_and_name_options_that_exist(self):
        known = set().union(*map(staged.options, self.pages))
        texts = os.listdir(TEXTS)
        self.assertEqual({n[:-5] for n in texts} - set(self.pages) - {'rxp2k7'}, set())
        for name in texts:
            named = set(re.findall(r'(?<![\w-])--[a-z][\w-]*', read(os.path.join(TEXTS, name)).replace('\\-', '-')))
            self.assertEqual(named - known, set(), name)


class Shell(unittest.TestCase):
    """What a shell offers behind words of a command line."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        for name in ('a b.rxp', 'other.rxp'):
            open(os.path.join(self.folder, name), 'w').close()
        os.mkdir(os.path.join(self.folder, 'out'))

    def need(self, shell):
        if not shutil.which(shell):
            self.skipTest(shell + ' is not installed')

    def check_all(self, offered):
        """`offered(words)` gives the offers for the last word, as a set."""
        self.assertLessEqual(set(staged.commands()), offered(['']))
        found = 0
        for command in staged.commands():
            options = {o for o in staged.options(command) if o.startswith('--')}
            self.assertEqual(options - offered([command, '--']), set(), command)
            for option, words in staged.choices(command).items():
                found += 1
                self.assertEqual(words - offered([command, option, '']), set(), command + option)
        self.assertGreater(found, 3)
        self.assertEqual(offered(['con']), {'convert'})
        self.assertIn('other.rxp', offered(['convert', 'oth']))
        self.assertEqual({n.rstrip('/') for n in offered(['convert', '--out-dir', 'o'])}, {'out'})


class Bash(Shell):
    def offered(self, words):
        script = ('compopt() { :; }; source "$1"; shift; COMP_WORDS=(rxp2k7 "$@"); COMP_CWORD=$#; _rxp2k7; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        p = run('bash', '--norc', '-c', script, 'bash', staged.staged('share/bash-completion/completions/rxp2k7'), *words,
                cwd=self.folder)
        self.assertEqual(p.stderr, '')
        return set(p.stdout.splitlines())

    def test_offers_all_commands_options_and_choices(self):
        self.check_all(self.offered)

    def test_offers_values_behind_an_equals_sign(self):
        self.assertEqual(self.offered(['simulate', '--mta-by', '=']), {'gates', 'number'})
        self.assertEqual(self.offered(['simulate', '--mta-by', '=', 'n']), {'number'})

    def test_offers_a_name_with_a_space_as_one(self):
        self.assertEqual(self.offered(['convert', 'a']), {'a b.rxp'})


class Fish(Shell):
    def offered(self, words):
        script = 'source $argv[1]; complete -C "rxp2k7 $argv[2]"'
        p = run('fish', '--no-config', '-c', script, staged.staged('share/fish/vendor_completions.d/rxp2k7.fish'),
                ' '.join(words), cwd=self.folder, env=dict(os.environ, HOME=self.folder))
        self.assertEqual(p.stderr, '')
        return {line.split('\t')[0] for line in p.stdout.splitlines()}

    def test_offers_all_commands_options_and_choices(self):
        self.need('fish')
        self.check_all(self.offered)


class Zsh(Shell):
    def setUp(self):
        super().setUp()
        self.need('zsh')
        pid, self.terminal = pty.fork()
        if pid == 0:
            os.environ.update(TERM='dumb', COLUMNS='250', LINES='200', HOME=self.folder)
            os.chdir(self.folder)
            os.execvp('zsh', ['zsh', '-f', '-i'])
        self.addCleanup(os.waitpid, pid, 0)
        self.addCleanup(os.close, self.terminal)
        self.typed("PS1=''; unsetopt prompt_cr prompt_sp beep; LISTMAX=1000; stty cols 250 rows 200; "
                   "fpath=(%s $fpath); autoload -Uz compinit; compinit -u -D; "
                   'shown() { zle list-choices; zle -R; zle expand-or-complete; zle -R; print -r -- "<$BUFFER>shown" }; '
                   "zle -N shown; bindkey '^I' shown; print rea\"\"dy\n"
                   % staged.staged('share', 'zsh', 'site-functions'), 'ready')

    def typed(self, keys, end):
        """What the terminal shows from these keys until `end`. Keys that wait behind would keep zsh from showing."""
        os.write(self.terminal, keys.encode())
        shown, until = '', time.monotonic() + 60
        while end not in shown:
            if not select.select([self.terminal], [], [], max(0, until - time.monotonic()))[0]:
                raise AssertionError('zsh does not answer: ' + shown)
            shown += os.read(self.terminal, 65536).decode(errors='replace')
        return shown

    def offered(self, words):
        shown = self.typed('rxp2k7 ' + ' '.join(words) + '\t', '>shown')
        self.typed('\x15print rea""dy\n', 'ready')
        return set(re.findall(r'(?<![\w-])-*[\w][\w.-]*', shown))

    def test_offers_all_commands_options_and_choices(self):
        self.assertLessEqual(set(staged.commands()), self.offered(['']))
        for command in staged.commands():
            options = {o for o in staged.options(command) if o.startswith('--')}
            self.assertEqual(options - self.offered([command, '--']), set(), command)
            for option, words in staged.choices(command).items():
                self.assertEqual(words - self.offered([command, option, '']), set(), command + option)

    def test_completes_files_and_directories(self):
        self.assertIn('other.rxp', self.offered(['convert', 'oth']))
        self.assertIn('out', self.offered(['convert', '--out-dir', 'o']))


if __name__ == '__main__':
    staged.main()
