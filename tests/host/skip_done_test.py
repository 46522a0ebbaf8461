#!/usr/bin/python3
"""skip_done_test.py HOST [TEST ...]: `rxp2k7 convert --skip-done`: what is done is left alone, all else is made again."""
import os
import sys

import h5py

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
import k7  # noqa: E402
from host_case import HostCase  # noqa: E402

SECOND = 10**9


class SkipDone(HostCase):
    def setUp(self):
        super().setUp()
        self.simulate()
        self.first = self.convert('scan.rxp')[0]

    def time_of(self, name):
        return os.stat(self.path(name)).st_mtime_ns

    def set_time(self, name, time):
        os.utime(self.path(name), ns=(time, time))

    def again(self, code=0):
        return self.convert('--skip-done', 'scan.rxp', code=code)[0]

    def check_skipped(self):
        before = self.time_of('scan.k7')
        result = self.again()
        self.assertTrue(result['skipped'])
        self.assertEqual(self.time_of('scan.k7'), before)
        return result

    def check_made_again(self, code=0):
        """The output is not touched by anyone but the conversion that is expected."""
        result = self.again(code)
        self.assertFalse(result['skipped'])
        self.assertGreater(result['shots'], 0)
        return result


class Done(SkipDone):
    def test_is_told_with_the_counts_of_the_file(self):
        result = self.check_skipped()
        for name in ('input', 'output', 'shots', 'echoes', 'waveforms', 'fragments', 'bytes_out'):
            self.assertEqual(result[name], self.first[name], name)
        self.assertEqual((result['text'], result['exit_code']), ('', 0))
        self.assertEqual(set(result), set(self.first))
        self.assertEqual(self.good('convert', '--skip-done', 'scan.rxp').stdout,
                         'scan.rxp -> ./scan.k7\n  skipped    it is done already\n')

    def test_is_not_told_of_without_the_option(self):
        self.assertFalse(self.convert('scan.rxp')[0]['skipped'])

    def test_leaves_to_several_processes_what_is_missing(self):
        for seed, name in enumerate('abc'):
            self.simulate(name + '.rxp', '--seed', seed)
        self.convert('b.rxp')
        results = self.convert('--skip-done', '--jobs', 2, 'a.rxp', 'b.rxp', 'c.rxp', 'scan.rxp')
        self.assertEqual([r['skipped'] for r in results], [False, True, False, True])
        self.assertTrue(all(r['skipped'] for r in self.convert('--skip-done', '--jobs', 2, 'a.rxp', 'b.rxp', 'c.rxp')))

    def test_holds_for_recordings_of_several_files(self):
        data = self.read('scan.rxp')
        self.write('scan.rxp', data[:4000])
        self.write('scan.rxp_001', data[4000:])
        self.assertEqual(self.check_made_again()['shots'], self.first['shots'])
        self.check_skipped()


class Missing(SkipDone):
    def test_is_what_has_no_output(self):
        os.remove(self.path('scan.k7'))
        self.check_made_again()
        self.check_skipped()

    def test_is_what_is_not_newer_than_every_file_of_its_recording(self):
        made = self.time_of('scan.k7')
        for name in ('scan.rxp', 'scan.rxp_001', 'scan.rxo', 'common.rxo', 'scan.override.pxp', 'scan.pxp'):
            if name != 'scan.rxp':
                self.write(name, b'')
            for time in (made, made + SECOND):
                self.set_time('scan.k7', made)
                self.set_time(name, time)
                self.assertFalse(self.again()['skipped'], name)
            self.set_time('scan.k7', made)
            self.set_time(name, made - SECOND)
            self.assertTrue(self.again()['skipped'], name)
            if name != 'scan.rxp':
                os.remove(self.path(name))

    def test_is_what_another_version_wrote(self):
        with h5py.File(self.path('scan.k7'), 'r+') as f:
            self.assertTrue(f.attrs['Creator'].startswith('rxp2k7 '))
            f.attrs['Creator'] = 'rxp2k7 0.0.0'
        self.check_made_again()
        self.check_skipped()

    def test_is_what_a_later_conversion_did_not_finish(self):
        self.write('scan.k7.part', b'')
        self.check_made_again()
        self.assertFalse(os.path.exists(self.path('scan.k7.part')))
        self.check_skipped()

    def test_is_what_is_not_whole(self):
        whole = self.read('scan.k7')
        for data in (b'', b'no such file', whole[:-1], whole[:len(whole) // 2], whole[:2000]):
            self.write('scan.k7', data)
            self.check_made_again()
            self.assertEqual(self.read('scan.k7'), whole)

    def test_is_what_lacks_a_column_or_fragment(self):
        chart = 'Slice_0/OPP/StandardCartesianChart3D/'
        for missing in ('Slice_0/Shots', chart + 'Range', chart + 'Amplitude/Fragment_0'):
            with h5py.File(self.path('scan.k7'), 'r+') as f:
                del f[missing]
            self.check_made_again()
            self.assertIsNotNone(k7.fragments(self.path('scan.k7')).get(chart + 'Amplitude/Fragment_0'))

    def test_is_what_was_made_of_a_damaged_recording(self):
        self.damage('scan.rxp')
        wanted = self.convert('scan.rxp', code=4)[0]
        for _ in range(2):
            self.assertEqual(self.check_made_again(code=4)['shots'], wanted['shots'])
        self.assertLessEqual(self.time_of('scan.k7'), self.time_of('scan.rxp'))

    def test_is_every_live_stream(self):
        replay = self.start('replay', 'scan.rxp', '--rdtp', 0)
        uri = replay.stdout.readline().strip()
        for _ in range(2):
            self.assertFalse(self.convert('--skip-done', uri)[0]['skipped'])

    def test_is_not_what_a_folder_stands_in_the_way_of(self):
        os.remove(self.path('scan.k7'))
        os.mkdir(self.path('scan.k7'))
        result = self.again(code=5)
        self.assertFalse(result['skipped'])
        self.assertIn('is a directory', result['text'])


if __name__ == '__main__':
    host_case.main()
