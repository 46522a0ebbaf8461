#!/usr/bin/python3
"""help_test.py HOST [TEST ...]: every command's help shows examples, and these do what they say."""
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
from host_case import HostCase  # noqa: E402

# No instrument answers there, nor does anybody listen at the port that an example chooses.
NOWHERE = 'rdtp://127.0.0.1:1/current'


class Help(HostCase):
    def commands(self):
        listed = self.good('--help').stdout.split('\nSubcommands:\n')[1].split('\n\n')[0]
        return re.findall(r'^  (\S+)', listed, re.M)

    def examples(self, *command):
        """Pairs of a purpose and a line."""
        _, _, shown = self.good(*command, '--help').stdout.partition('\nExamples:\n')
        lines = shown.rstrip('\n').split('\n')
        self.assertEqual(len(lines) % 2, 0, lines)
        for purpose, line in zip(lines[::2], lines[1::2]):
            self.assertRegex(purpose, r'^  [A-Z].*[^.]:$')
            self.assertRegex(line, r'^    rxp2k7 ')
        return [(p.strip(), line.strip()) for p, line in zip(lines[::2], lines[1::2])]

    def run_line(self, line):
        """The line as a shell runs it, in a folder that has what examples name. A server is ended once it serves."""
        line = line.replace('rdtp://192.168.0.1/current', NOWHERE).replace('--rdtp 20001', '--rdtp 0')
        script = 'set -o pipefail; rxp2k7() { timeout -s KILL %s "$HOST" "$@"; }; %s' % (
            '3' if '--rdtp' in line else '100', line)
        return subprocess.run(['bash', '-c', script], cwd=self.folder, env=dict(os.environ, HOST=self.HOST),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def test_every_command_has_examples_of_its_own(self):
        self.assertGreater(len(self.examples()), 0)
        for command in self.commands():
            shown = self.examples(command)
            self.assertGreater(len(shown), 0, command)
            for _, line in shown:
                self.assertRegex(line, r'\brxp2k7 %s ' % command)
            self.assertEqual(len({line for _, line in shown}), len(shown))

    def test_examples_do_what_they_say(self):
        self.simulate('scan.rxp', '--waveforms', 'channel', shots=2000)
        self.write('scan.pxp', b'{"packets": []}')
        os.mkdir(self.path('out'))
        os.mkdir(self.path('plots'))
        self.good('convert', 'scan.rxp', '--out-dir', 'out')
        for command in [()] + [(c,) for c in self.commands()]:
            for _, line in self.examples(*command):
                p = self.run_line(line)
                # From nowhere nothing comes, a server serves until it is ended, and head has seen enough.
                expected = {3} if '192.168' in line else {137} if '--rdtp' in line else {0, 5, 141} if '| head' in line else {0}
                self.assertIn(p.returncode, expected, '%s: %s' % (line, p.stderr))

    def test_json_is_told_of_in_the_same_words(self):
        said = {c: re.search(r'^  --json .*?((?: [a-z]+)+)$', self.good(c, '--help').stdout, re.M) for c in self.commands()}
        words = [m[1].strip() for m in said.values() if m]
        self.assertGreater(len(words), 5)
        self.assertEqual(len(set(words)), 1, said)


if __name__ == '__main__':
    host_case.main()
