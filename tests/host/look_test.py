#!/usr/bin/python3
"""look_test.py HOST [TEST ...]: `rxp2k7 look`: the picture is there, shows something, and its numbers are those of the K7 file."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import h5py
import matplotlib.image
import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

HOST = None
SIZE = (1640, 1180)
RANGE_FRAME = (112, 152, 1052, 412)  # left, top, right, bottom


def pixels(path):
    """The PNG as an array of rows, columns and 3 colours."""
    with open(path, 'rb') as f:
        assert f.read(8) == b'\x89PNG\r\n\x1a\n'
    return np.rint(matplotlib.image.imread(path)[:, :, :3] * 255).astype('u1')


class LookTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.scan = os.path.join(cls.folder, 'scan.k7')
        cls.make('scan', '--waveforms', 'channel', '--shots', '10000')
        cls.scan_numbers = json.loads(subprocess.run([HOST, 'look', '--json', cls.scan], check=True, stdout=subprocess.PIPE,
                                                     stderr=subprocess.DEVNULL).stdout)

    @classmethod
    def make(cls, name, *options):
        recording = os.path.join(cls.folder, name + '.rxp')
        for args in (['simulate', recording, *options], ['convert', recording, '--out-dir', cls.folder, '--fragment-size', '3000']):
            subprocess.run([HOST] + args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return os.path.join(cls.folder, name + '.k7')

    def look(self, *args, code=0):
        p = subprocess.run([HOST, 'look', *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(p.returncode, code, p.stderr)
        return p

    def numbers(self, path, code=0):
        if path == self.scan:
            return self.scan_numbers
        return json.loads(self.look('--json', path, code=code).stdout)

    def changed(self, change, name='changed.k7'):
        path = os.path.join(self.folder, name)
        shutil.copy(self.scan, path)
        with h5py.File(path, 'r+') as f:
            change(f)
        return path


class Picture(LookTest):
    def test_it_stands_beside_the_file_and_shows_the_scan(self):
        self.look(self.scan)
        page = pixels(self.scan + '.png')
        self.assertEqual(page.shape, (SIZE[1], SIZE[0], 3))
        left, top, right, bottom = RANGE_FRAME
        image = page[top + 2:bottom - 2, left + 2:right - 2]
        self.assertGreater(len(np.unique(image.reshape(-1, 3), axis=0)), 50)
        colourful = (np.ptp(image.astype(int), axis=2) > 30).mean()
        self.assertGreater(colourful, 0.3)
        self.assertTrue((page[:4] == 255).all() and (page[:, :4] == 255).all(), 'the margin is white')

    def test_nearer_ground_is_darker_than_farther(self):
        """The scene's ground is nearest at the foot of the picture."""
        page = self.drawn(self.scan)
        left, top, right, bottom = RANGE_FRAME
        light = page[:, left + 20:right - 60].astype(float) @ [0.2126, 0.7152, 0.0722]
        rows = [light[bottom - 5 - 30 * i].mean() for i in range(5)]
        self.assertEqual(rows, sorted(rows))

    def drawn(self, path):
        png = os.path.join(self.folder, 'drawn.png')
        self.look(path, '--png', png)
        return pixels(png)

    def test_the_same_file_gives_the_same_picture(self):
        self.assertTrue((self.drawn(self.scan) == self.drawn(self.scan)).all())

    def test_an_output_that_cannot_be_written_exits_5(self):
        for png in (os.path.join(self.folder, 'no', 'x.png'), '/dev/full', self.folder):
            self.assertIn(png, self.look(self.scan, '--png', png, code=5).stderr)

    def test_the_file_itself_is_not_replaced(self):
        self.look(self.scan, '--png', self.scan, code=2)
        with h5py.File(self.scan, 'r') as f:
            self.assertIn('Slice_0', f)


class Numbers(LookTest):
    def test_counts_times_and_lines(self):
        told = self.numbers(self.scan)
        shots, echoes = k7.columns(self.scan, 'Shots'), k7.columns(self.scan, 'OPP')
        self.assertEqual(told['shots'], len(shots['GPSTime']))
        self.assertEqual(told['echoes'] + told['echoes_without_shot'], len(echoes['GPSTime']))
        self.assertEqual(told['waveforms'], len(k7.columns(self.scan, 'Waveforms', ['GPSTime'])['GPSTime']))
        self.assertEqual(told['time'], [shots['GPSTime'].min(), shots['GPSTime'].max()])
        d = shots['Waveforms.DirectionDelta']
        steps = np.arccos(np.clip((d[1:] * d[:-1]).sum(1), -1, 1))
        self.assertEqual(told['lines'], 1 + int((steps > np.radians(30)).sum()))

    def test_histograms(self):
        told = self.numbers(self.scan)
        echoes = k7.columns(self.scan, 'OPP')
        for key, column in (('ranges', 'Range'), ('amplitudes', 'Amplitude')):
            values = echoes[column].astype('f8')
            low, high = told[key]['bounds']
            counts, _ = np.histogram(values, bins=len(told[key]['counts']), range=(low, high))
            self.assertEqual(sum(told[key]['counts']), counts.sum())
            # A value at the edge of two bins may fall in either.
            self.assertLessEqual(np.abs(counts - told[key]['counts']).sum(), 8)
            self.assertAlmostEqual(counts.sum() / len(values), 0.99, places=2)

    def test_echoes_per_shot(self):
        told = self.numbers(self.scan)['echoes_per_shot']
        shots, echoes = (k7.columns(self.scan, g, ['GPSTime'])['GPSTime'] for g in ('Shots', 'OPP'))
        per_shot = np.searchsorted(echoes, shots, 'right') - np.searchsorted(echoes, shots, 'left')
        self.assertEqual(told, np.bincount(per_shot, minlength=len(told)).tolist())

    def test_images(self):
        told = self.numbers(self.scan)
        image = told['range_image']
        self.assertEqual(image['columns'], told['lines'])
        self.assertEqual(image['x'], [0, told['lines']])
        self.assertAlmostEqual(image['y'][1] - image['y'][0], 100, delta=1.5)  # the field of view, a bit longer along the turning head
        hit = told['shots'] - told['echoes_per_shot'][0]
        cells = image['columns'] * image['rows'] * hit / told['shots']
        self.assertTrue(0.8 * cells < image['filled'] <= image['columns'] * image['rows'], (image, cells))
        self.assertEqual(told['intensity'], 'reflectance')

    def test_top_view(self):
        view = self.numbers(self.scan)['top_view']
        shots, echoes = k7.columns(self.scan, 'Shots'), k7.columns(self.scan, 'OPP')
        row = np.searchsorted(shots['GPSTime'], echoes['GPSTime'])
        points = shots['Positions'][row] + echoes['Range'][:, None] * shots['Waveforms.DirectionDelta'][row]
        x, y = view['x'], view['y']
        self.assertAlmostEqual(x[1] - x[0], y[1] - y[0])
        inside = (points[:, 0] >= x[0]) & (points[:, 0] <= x[1]) & (points[:, 1] >= y[0]) & (points[:, 1] <= y[1])
        self.assertGreater(inside.mean(), 0.9)
        cells = np.histogram2d(points[inside, 0], points[inside, 1], bins=view['columns'], range=(x, y))[0]
        self.assertLessEqual(abs(np.count_nonzero(cells) - view['filled']), 3)

    def test_waveforms_are_those_of_one_shot_plain_or_compressed(self):
        with h5py.File(self.scan, 'r') as f:
            g = f['Slice_0/Waveforms/StandardCartesianChart3D']
            plain = {n: g[n]['Fragment_0'][...] for n in g}
        for path in (self.scan, self.make('words', '--waveforms', 'channel-compressed', '--shots', '10000')):
            told = self.numbers(path)['waveform']
            self.assertEqual(len({w['time'] for w in told}), 1)
            self.assertEqual([w['channel'] for w in told], sorted({w['channel'] for w in told}))
            for w in told:
                row = np.flatnonzero((plain['GPSTime'] == w['time']) & (plain['Channel'] == w['channel']))
                self.assertEqual(len(row), 1)
                samples = plain['Waveforms'][row[0], :plain['FWFLength'][row[0]]]
                self.assertEqual(w['samples'][:len(samples)], samples.tolist())
                self.assertEqual(w['start'], plain['SBL_Time'][row[0]])

    def test_the_strongest_waveform_within_the_limits_is_shown(self):
        told = self.numbers(self.scan)['waveform']
        self.assertGreater(max(max(w['samples']) for w in told) - min(min(w['samples']) for w in told), 1000)


class OddFiles(LookTest):
    def test_a_file_without_echoes_and_waveforms_still_gives_a_page(self):
        def bare(f):
            del f['Slice_0/OPP']
            del f['Slice_0/Waveforms']
        told = self.numbers(self.changed(bare))
        self.assertEqual((told['echoes'], told['waveforms'], told['waveform']), (0, 0, []))
        self.assertEqual(told['echoes_per_shot'][0], told['shots'])

    def test_a_part_says_that_it_is_not_complete(self):
        self.assertFalse(self.numbers(self.changed(lambda f: None, 'scan.k7.part'))['complete'])

    def test_values_that_are_no_numbers_or_huge_are_left_out(self):
        def spoil(f):
            chart = f['Slice_0/OPP/StandardCartesianChart3D']
            chart['Range/Fragment_0'][:4] = [np.nan, np.inf, -np.inf, 1e300]
            chart['Amplitude/Fragment_0'][:3] = [np.nan, np.inf, -np.inf]
            f['Slice_0/Shots/StandardCartesianChart3D/Waveforms.DirectionDelta/Fragment_0'][50:60] = np.nan
            f['Slice_0/Waveforms/StandardCartesianChart3D/SBL_Time/Fragment_0'][:] = np.nan
        whole = self.numbers(self.scan)
        told = self.numbers(self.changed(spoil))
        self.assertEqual(told['lines'], whole['lines'])
        self.assertLess(max(told['ranges']['bounds']), 1e4)

    def test_damage_is_told_and_what_could_be_read_is_shown(self):
        def cut(f):
            del f['Slice_0/OPP/StandardCartesianChart3D/Range/Fragment_1']
        path = self.changed(cut)
        told = self.numbers(path, code=4)
        self.assertIn('Range/Fragment_1', told['text'])
        self.assertTrue(0 < told['shots'] < 10000)
        self.assertEqual(pixels(path + '.png').shape, (SIZE[1], SIZE[0], 3))

    def test_echoes_without_a_shot_are_counted(self):
        def shift(f):
            f['Slice_0/OPP/StandardCartesianChart3D/GPSTime/Fragment_0'][10] += 1e-7
        whole = self.numbers(self.scan)
        p = self.look('--json', self.changed(shift))
        told = json.loads(p.stdout)
        self.assertEqual(told['echoes_without_shot'], whole['echoes_without_shot'] + 1)
        self.assertIn('no shot of their time', p.stderr)

    def test_files_that_cannot_be_read_exit_3(self):
        text = os.path.join(self.folder, 'text.k7')
        with open(text, 'w') as f:
            f.write('x')
        for path in (text, self.folder, text + '.no'):
            self.assertIn(path, self.look(path, code=3).stderr)
        self.assertFalse(os.path.exists(text + '.png'))

    def test_every_optics_gives_a_page(self):
        for optics in ('wedge', 'mirrorwheel-nodding', 'gimbalmountmirror'):
            told = self.numbers(self.make(optics, '--mechanics', optics, '--shots', '4000'))
            self.assertGreater(told['range_image']['filled'], 0, optics)


if __name__ == '__main__':
    HOST = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
