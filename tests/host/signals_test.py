#!/usr/bin/python3
"""signals_test.py HOST [TEST ...]: what Ctrl-C and a request to terminate leave behind, and how the process ends."""
import json
import os
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
import k7  # noqa: E402
from host_case import HostCase  # noqa: E402

SHOTS = 200000
LONG = ('--compress', 9, '--fragment-size', 2000)  # a conversion of many seconds
ENDED = (signal.SIGINT, signal.SIGTERM)


class Signalled(HostCase):
    def finish(self, p, ended_by):
        out, err = p.communicate(timeout=60)
        self.assertEqual(p.returncode, -ended_by, err)
        return out, err

    def interrupted(self, ended_by, grown, *args, group=False):
        """What a run tells that gets a signal once a file has grown."""
        p = self.start(*args)
        self.wait_for(lambda: self.size_of(grown) > 100000)
        (os.killpg if group else os.kill)(p.pid, ended_by)
        return self.finish(p, ended_by)

    def outputs(self):
        return {n for n in os.listdir(self.folder) if '.k7' in n}


class Conversion(Signalled):
    def setUp(self):
        super().setUp()
        self.simulate(shots=SHOTS)

    def check_part(self, name, whole):
        """All columns of the .part are the first rows of the whole file."""
        for grid in ('Shots', 'OPP'):
            part, all_of_it = k7.columns(name, grid), k7.columns(whole, grid)
            self.assertEqual(set(part), set(all_of_it))
            n = {len(rows) for rows in part.values()}
            self.assertEqual(len(n), 1)
            self.assertTrue(0 < n.pop() < len(all_of_it['GPSTime']))
            for column, rows in part.items():
                self.assertEqual(rows.tobytes(), all_of_it[column][:len(rows)].tobytes(), column)

    def test_ends_at_a_packet_and_leaves_a_part_that_says_so(self):
        os.mkdir(self.path('whole'))
        self.good('convert', 'scan.rxp', '--out-dir', 'whole')
        for ended_by in ENDED:
            out, err = self.interrupted(ended_by, 'scan.k7.part', 'convert', 'scan.rxp', *LONG)
            self.assertEqual(self.outputs(), {'scan.k7.part'})
            self.check_part(self.path('scan.k7.part'), self.path('whole/scan.k7'))
            self.assertIn('scan.rxp -> ./scan.k7.part\n', out)
            self.assertRegex(err, r'rxp2k7: scan\.rxp: ended by signal %d at byte \d+; what came before is in '
                                  r'"\./scan\.k7\.part"\n' % ended_by)
            os.remove(self.path('scan.k7.part'))

    def test_tells_as_json_how_far_it_came(self):
        out, _ = self.interrupted(signal.SIGTERM, 'scan.k7.part', 'convert', '--json', 'scan.rxp', *LONG)
        result = json.loads(out)['results'][0]
        self.assertEqual(result['exit_code'], 128 + signal.SIGTERM)
        self.assertEqual(result['shots'], len(k7.columns(self.path('scan.k7.part'), 'Shots')['GPSTime']))
        self.assertEqual(result['bytes_out'], self.size_of('scan.k7.part'))
        self.assertTrue(0 < result['stopped_at'] < self.size_of('scan.rxp'))

    def test_leaves_the_file_of_an_earlier_run(self):
        self.good('convert', 'scan.rxp')
        before = self.read('scan.k7')
        self.interrupted(signal.SIGINT, 'scan.k7.part', 'convert', 'scan.rxp', *LONG)
        self.assertEqual(self.read('scan.k7'), before)
        self.assertFalse(self.convert('--skip-done', 'scan.rxp')[0]['skipped'])
        self.assertEqual(self.outputs(), {'scan.k7'})

    def test_converts_nothing_that_comes_after(self):
        self.simulate('next.rxp')
        out, err = self.interrupted(signal.SIGINT, 'scan.k7.part', 'convert', '--json', 'scan.rxp', 'next.rxp', *LONG)
        self.assertEqual([r['exit_code'] for r in json.loads(out)['results']], [130, 130])
        self.assertIn('rxp2k7: next.rxp: not converted', err)
        self.assertEqual(self.outputs(), {'scan.k7.part'})

    def test_ends_several_processes_the_same_way(self):
        os.mkdir(self.path('whole'))
        self.good('convert', 'scan.rxp', '--out-dir', 'whole')
        for name in ('b.rxp', 'c.rxp'):
            os.link(self.path('scan.rxp'), self.path(name))
        # To the parent alone, as from kill, and to all of them, as from a terminal or a batch engine.
        for group in (False, True):
            p = self.start('convert', '--json', '--jobs', 2, 'scan.rxp', 'b.rxp', 'c.rxp', *LONG)
            self.wait_for(lambda: min(self.size_of('scan.k7.part'), self.size_of('b.k7.part')) > 100000)
            (os.killpg if group else os.kill)(p.pid, signal.SIGTERM)
            out, err = self.finish(p, signal.SIGTERM)
            results = json.loads(out)['results']
            self.assertEqual([(r['input'], r['exit_code']) for r in results],
                             [('scan.rxp', 143), ('b.rxp', 143), ('c.rxp', 143)])
            self.assertEqual(self.outputs(), {'scan.k7.part', 'b.k7.part'})
            for name in ('scan', 'b'):
                self.check_part(self.path(name + '.k7.part'), self.path('whole/scan.k7'))
                self.assertRegex(err, r'%s\.rxp: ended by signal 15 at byte \d+' % name)
            self.assertIn('c.rxp: not converted', err)
            for name in self.outputs():
                os.remove(self.path(name))

    def test_ends_a_live_stream_whole_in_a_process_of_its_own_too(self):
        self.simulate('b.rxp')
        rate = self.size_of('scan.rxp') / 20e6  # of which it would take 20 seconds
        replay = self.start('replay', 'scan.rxp', '--rdtp', 0, '--rate', '%.6f' % rate, '--chunk', 5000)
        uri = replay.stdout.readline().strip()
        p = self.start('convert', '--json', '--jobs', 2, uri, 'b.rxp', '--fragment-size', 1000)
        self.wait_for(lambda: self.size_of('current.k7.part') > 500000 and self.size_of('b.k7') > 0)
        p.send_signal(signal.SIGINT)
        out, err = p.communicate(timeout=60)
        self.assertEqual(p.returncode, 0, err)
        live = json.loads(out)['results'][0]
        self.assertEqual((live['text'], live['exit_code']), ('', 0))
        self.assertTrue(0 < live['shots'] < SHOTS)
        self.assertEqual(self.outputs(), {'current.k7', 'b.k7'})

    def test_leaves_no_part_of_which_nothing_is_stored(self):
        p = self.start('convert', 'scan.rxp', '--compress', 9, '--fragment-size', 150000)
        # The header of a file in the making is smaller than any fragment.
        self.wait_for(lambda: self.size_of('scan.k7.part') > 0)
        p.send_signal(signal.SIGTERM)
        out, err = p.communicate(timeout=60)
        self.assertEqual(p.returncode, -signal.SIGTERM)
        if 'nothing is stored' in err:
            self.assertEqual(self.outputs(), set())
        else:
            self.assertEqual(self.outputs(), {'scan.k7.part'})
            self.assertGreater(len(k7.columns(self.path('scan.k7.part'), 'Shots')['GPSTime']), 0)


class Writers(Signalled):
    """Files have their names when they are whole."""

    def check(self, name, *args):
        for ended_by in ENDED:
            self.interrupted(ended_by, name + '.part', *args)
            self.assertFalse(os.path.exists(self.path(name)))
            os.remove(self.path(name + '.part'))

    def test_simulate(self):
        self.check('new.rxp', 'simulate', 'new.rxp', '--shots', 20000000)

    def test_points(self):
        self.simulate(shots=1000000)
        self.check('points.txt', 'points', 'scan.rxp', '-o', 'points.txt')

    def test_assemble(self):
        self.simulate(shots=300000)
        self.write('lines', self.good('dump', 'scan.rxp').stdout.encode())
        self.check('new.rxp', 'assemble', 'lines', 'new.rxp')

    def test_a_file_of_an_earlier_run_stays(self):
        self.simulate('new.rxp')
        before = self.read('new.rxp')
        self.interrupted(signal.SIGTERM, 'new.rxp.part', 'simulate', 'new.rxp', '--shots', 20000000)
        self.assertEqual(self.read('new.rxp'), before)


if __name__ == '__main__':
    host_case.main()
