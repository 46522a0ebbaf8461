#!/usr/bin/python3
"""terminal_test.py HOST [TEST ...]: what the host writes to a terminal and to what is none: bars, colours, plain lines."""
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
from host_case import HostCase  # noqa: E402

COLOUR = re.compile(r'\x1b\[[0-9;]*m')


class Progress(HostCase):
    def setUp(self):
        super().setUp()
        self.simulate(shots=300000)
        self.slow = ('convert', 'scan.rxp', '--compress', 9, '--fragment-size', 2000)

    def test_is_a_bar_with_rate_and_remaining_time_on_a_terminal(self):
        code, shown = self.on_terminal(*self.slow)
        self.assertEqual(code, 0)
        bars = COLOUR.sub('', shown).split('\r')[1:]
        self.assertGreater(len(bars), 2)
        for bar in bars[:-1]:
            self.assertRegex(bar, r'^scan\.rxp  \[#*\.*\] [ \d]\d %  \d+ packets(, \d+\.\d MB/s, \d+:\d\d left)?\x1b\[K$')
        self.assertEqual(bars[-1], '\x1b[K')
        self.assertEqual({len(re.search(r'\[([#.]*)\]', b)[1]) for b in bars[:-1]}, {30})
        told = [int(m[1]) for m in re.finditer(r'(\d+) %', shown)]
        self.assertEqual(told, sorted(told))

    def test_fits_into_a_line_of_the_terminal(self):
        for name, widths in (('a' * 60 + '_scan.rxp', (100, 60, 20, 1)), ('\u20ac' * 20 + '_scan.rxp', (60,))):
            os.rename(self.path('scan.rxp'), self.path(name))
            for columns in widths:
                code, shown = self.on_terminal('convert', name, *self.slow[2:], columns=columns)
                self.assertEqual(code, 0)
                bars = COLOUR.sub('', shown).replace('\x1b[K', '').split('\r')[1:-1]
                self.assertGreater(len(bars), 1)
                for bar in bars:
                    if columns >= 60:
                        self.assertLess(len(bar), columns)
                        self.assertRegex(bar, r'scan\.rxp  ')
            os.rename(self.path(name), self.path('scan.rxp'))

    def test_is_plain_lines_elsewhere(self):
        lines = self.good(*self.slow).stderr.splitlines()
        self.assertGreater(len(lines), 2)
        for line in lines:
            self.assertRegex(line, r'^scan\.rxp: \d0 %, \d+ packets, \d+\.\d MB/s, \d+:\d\d left$')

    def test_counts_what_has_no_known_end(self):
        # Slow enough to be told of: without a share there is a line every two seconds.
        size = self.size_of('scan.rxp')
        replay = self.start('replay', 'scan.rxp', '--rdtp', 0, '--rate', '%.6f' % (size / 3e6))
        code, shown = self.on_terminal('convert', replay.stdout.readline().strip())
        self.assertEqual(code, 0)
        self.assertRegex(shown, r'\rcurrent  \d+ packets, \d+ packets/s\x1b\[K')


class Colours(HostCase):
    def shown(self, **environment):
        code, shown = self.on_terminal('convert', 'gone.rxp', **environment)
        self.assertEqual(code, 3)
        self.assertEqual(COLOUR.sub('', shown), 'rxp2k7: cannot read "gone.rxp": no such file\r\n')
        return COLOUR.findall(shown)

    def test_mark_errors_on_a_terminal_alone(self):
        self.assertEqual(len(self.shown()), 2)
        p = self.host('convert', 'gone.rxp')
        self.assertEqual(COLOUR.findall(p.stderr), [])
        self.assertEqual(p.stderr, 'rxp2k7: cannot read "gone.rxp": no such file\n')

    def test_are_left_out_on_demand(self):
        self.assertEqual(self.shown(NO_COLOR='1'), [])
        self.assertEqual(self.shown(TERM='dumb'), [])
        self.assertEqual(len(self.shown(NO_COLOR='')), 2)


class Messages(HostCase):
    """Where something is wrong in a file, its name and the byte are told."""

    def test_of_damage_name_file_and_byte(self):
        self.simulate('bad.rxp', shots=3000)
        at = self.damage('bad.rxp')
        for command, more in (('convert', ()), ('info', ()), ('points', ()),
                              ('inspect', ('--time-range', '0:86400'))):
            p = self.host(command, 'bad.rxp', *more)
            self.assertEqual(p.returncode, 4, command)
            told = [int(m[1]) for line in p.stderr.splitlines() if 'bad.rxp' in line
                    for m in [re.search(r'byte (\d+)', line)] if m]
            self.assertTrue(told, p.stderr)
            self.assertTrue(any(abs(t - at) < 64 for t in told), (command, told, at))

    def test_have_nothing_of_a_recording_that_a_terminal_would_obey(self):
        self.simulate('odd.rxp', '--waveforms', 'channel', shots=100)
        lines = self.good('dump', '--lossless', 'odd.rxp').stdout
        self.assertIn('"reference"', lines)
        self.write('odd.txt', lines.replace('"reference"', '"od\x1b[31m"').encode())
        self.good('assemble', 'odd.txt', 'odd.rxp')
        for command, more in (('convert', ()), ('inspect', ('--time-range', '0:86400'))):
            p = self.host(command, 'odd.rxp', *more)
            self.assertEqual(p.returncode, 4, command)
            self.assertIn('channel 3 found: od?[31m', p.stderr)
            self.assertFalse('\x1b' in p.stderr, command)

    def test_of_losses_name_file_and_byte(self):
        data = self.read(self.simulate())
        self.write('cut.rxp', data[:-2])
        p = self.host('points', 'cut.rxp')
        self.assertRegex(p.stderr, r'(?m)^rxp2k7: cut\.rxp: at byte \d+: .')
        p = self.host('convert', 'cut.rxp')
        self.assertRegex(p.stdout, r'(?m)^cut\.rxp -> .*\n(.*\n)*  loss +partial words: \d+, first at byte \d+\. ')

    def test_of_streams_that_are_none_name_file_and_byte(self):
        self.write('none.rxp', b'This is no recording at all.')
        for command in ('convert', 'info', 'points', 'dump'):
            p = self.host(command, 'none.rxp')
            self.assertEqual(p.returncode, 4, command)
            self.assertRegex(p.stderr, r'(?m)^rxp2k7: "?none\.rxp"?:? .*byte \d+', command)

    def test_of_processes_side_by_side_come_as_whole_lines(self):
        names = []
        for i in range(6):
            names.append('bad%d.rxp' % i)
            self.simulate(names[-1], shots=1000 + i)
            self.damage(names[-1])
        p = self.host('convert', '--jobs', 4, *names)
        self.assertEqual(p.returncode, 6)
        for name in names:
            self.assertRegex(p.stderr, r'(?m)^rxp2k7: %s: stopped at byte \d+; what came before is stored: \S.*$' % name)
        for line in p.stderr.splitlines():
            self.assertRegex(line, r'^(rxp2k7: bad\d\.rxp: |rxpToSkeinK7: Export interrupted for file: bad\d\.rxp\. |\d of 6: )')


if __name__ == '__main__':
    host_case.main()
