#!/usr/bin/python3
"""json_test.py HOST DOCUMENT [TEST ...]: `--json` of every command: one object, with the members that the document lists."""
import json
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
from host_case import HostCase  # noqa: E402

DOCUMENT = os.path.abspath(sys.argv[2])
COMMON = {'text', 'exit_code'}


def documented():
    """Further members by command, and whether they stand in a list of results."""
    with open(DOCUMENT) as f:
        rows = re.findall(r'^\| `([\w-]+)` \| `(\{.*?\})` \| (.*) \|$', f.read(), re.M)
    return {command: (set(re.findall(r'`(\w+)`', members)), 'results' in form) for command, form, members in rows}


class Json(HostCase):
    def setUp(self):
        super().setUp()
        self.simulate('scan.rxp', '--waveforms', 'channel', shots=300)
        self.good('convert', 'scan.rxp')
        self.write('scan.txt', self.good('dump', 'scan.rxp').stdout.encode())
        self.write('broken.txt', b'no packet\n')

    def results(self, command, *args, code=0):
        """The entries of the object that a command prints, each with the common members."""
        p = self.host(command, '--json', *args)
        self.assertEqual(p.returncode, code, p.stderr)
        self.assertEqual(p.stdout.count('\n'), 1)
        printed = json.loads(p.stdout)
        in_list = documented()[command][1]
        self.assertEqual(set(printed) == {'results'}, in_list)
        results = printed['results'] if in_list else [printed]
        for r in results:
            self.assertLessEqual(COMMON, set(r))
            self.assertEqual(r['exit_code'] == 0, r['text'] == '' and code == 0)
        if len(results) == 1:
            self.assertEqual(results[0]['exit_code'], code)
        return results

    GOOD = {
        'convert': ('scan.rxp', '--out-dir', '.'),
        'info': ('scan.rxp',),
        'points': ('scan.rxp', '-o', 'points.txt'),
        'inspect': ('scan.rxp', '--time-range', '43200:43200.01'),
        'verify': ('scan.k7',),
        'look': ('scan.k7', '--png', 'scan.png'),
        'export': ('scan.k7', 'scan.las'),
        'simulate': ('new.rxp', '--shots', 100),
        'assemble': ('scan.txt', 'new.rxp'),
    }
    BAD = {
        'convert': (('gone.rxp',), 3),
        'info': (('gone.rxp',), 3),
        'points': (('gone.rxp', '-o', 'points.txt'), 3),
        'inspect': (('gone.rxp', '--time-range', '0:1'), 3),
        'record': (('rdtp://127.0.0.1:1/current', 'new.rxp'), 3),
        'replay': (('gone.rxp', '--rdtp', 0), 3),
        'override': (('scan.rxp', 'gone.pxp', 'new.rxp'), 3),
        'check-override': (('scan.rxp', 'gone.pxp'), 3),
        'verify': (('gone.k7',), 3),
        'look': (('gone.k7',), 3),
        'export': (('gone.k7', 'scan.las'), 3),
        'simulate': (('no/new.rxp',), 5),
        'assemble': (('broken.txt', 'new.rxp'), 3),
    }

    def test_is_offered_by_every_command_that_has_a_result(self):
        listed = self.good('--help').stdout.split('\nSubcommands:\n')[1].split('\n\n')[0]
        commands = set(re.findall(r'^  (\S+)', listed, re.M))
        offered = {c for c in commands if '\n  --json ' in self.good(c, '--help').stdout}
        self.assertEqual(commands - offered, {'dump'})
        self.assertEqual(set(documented()), offered)

    def check_members(self, command, result):
        named = {n for n in ('input', 'output') if n in result}
        self.assertEqual(set(result) - COMMON - named, documented()[command][0], command)

    def test_tells_what_is_documented(self):
        for command, args in self.GOOD.items():
            for result in self.results(command, *args):
                self.check_members(command, result)

    def test_tells_failures_too(self):
        for command, (args, code) in self.BAD.items():
            result, = self.results(command, *args, code=code)
            self.assertTrue(result['text'], command)

    def test_tells_damage(self):
        self.simulate('bad.rxp')
        self.damage('bad.rxp')
        for command, more in (('convert', ()), ('info', ()), ('points', ('-o', 'points.txt'))):
            result, = self.results(command, 'bad.rxp', *more, code=4)
            self.check_members(command, result)

    def test_of_overrides_tells_what_became_of_them(self):
        self.write('scan.pxp', b'{"packets": []}')
        for command, args in (('check-override', ('scan.rxp', 'scan.pxp')),
                              ('override', ('scan.rxp', 'scan.pxp', 'new.rxp'))):
            result, = self.results(command, *args)
            self.check_members(command, result)

    def test_of_live_streams_tells_the_address_first(self):
        replay = self.start('replay', '--json', 'scan.rxp', '--rdtp', 0)
        told = json.loads(replay.stdout.readline())
        result, = self.results('record', told['uri'], 'new.rxp')
        self.check_members('record', result)
        self.assertEqual((result['bytes_out'], result['resumable']), (self.size_of('scan.rxp'), False))
        sent = json.loads(self.good('replay', '--json', 'scan.rxp', '--rddp', '127.0.0.1:9').stdout)
        preamble = 16  # the receiver's own takes its place
        self.assertEqual(sent['bytes_out'], self.size_of('scan.rxp') - preamble)
        self.assertEqual(set(told) | set(sent), documented()['replay'][0])

    def test_of_a_replay_that_cannot_listen_or_send_tells_why(self):
        for way in ('--rdtp', '--rddp'):
            result, = self.results('replay', 'scan.rxp', way, '999.0.0.1:1', code=5)
            self.assertTrue(result['text'], way)

    def test_needs_standard_output_for_itself(self):
        for args in (('points', 'scan.rxp', '--json'), ('assemble', 'scan.txt', '-', '--json')):
            self.assertEqual(self.host(*args).returncode, 2, args)

    def test_of_points_and_assembled_lines_counts_them(self):
        result, = self.results('points', *self.GOOD['points'])
        self.assertEqual(result['points'], self.read('points.txt').count(b'\n') - 1)
        self.assertEqual(result['bytes_out'], self.size_of('points.txt'))
        result, = self.results('assemble', *self.GOOD['assemble'])
        self.assertEqual(result['packets'], self.read('scan.txt').count(b'\n'))
        self.assertEqual(result['bytes_out'], self.size_of('new.rxp'))


if __name__ == '__main__':
    host_case.main(2)
