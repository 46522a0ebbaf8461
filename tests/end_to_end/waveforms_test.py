#!/usr/bin/python3
"""waveforms_test.py HOST SCAN_TRUTH EXAMPLE [TEST ...]: recordings with waveforms of every form, looked at from outside: what
their K7 files hold against the samples that were simulated, which SCAN_TRUTH tells without any packing."""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

HOST = TRUTH = EXAMPLE = None
COMPRESSED = ('channel-compressed', 'subpackages', 'hr-compressed', 'parameters-compressed')
FIXED = ('hr', 'hr-compressed', 'parameters', 'parameters-compressed')
FORMS = ('channel', 'channel-1', 'hr', 'parameters') + COMPRESSED
LONGEST, RESOLUTION, REFERENCE = 200, 12, 3
RUN = np.dtype([('time', '<f8'), ('start', '<f8'), ('channel', '<u4'), ('count', '<u4'), ('samples', '<u2', LONGEST)])
SAMPLE_TIME = 1 / 640e6
ZERO_LEVEL, COUNTS_AT_0_DB, FULL_SCALE = 100, 8, 4095
WARNING = 'baseRxpToSkein:: Warning: Channel is 2 !?!'


def decompressed(words):
    """Samples of the compressed form: bits from the lowest of the first word on, in groups of a width in 4 bits and eight
    steps of that width; a width of 0 ends them."""
    bits = ''.join('{:016b}'.format(w)[::-1] for w in words)
    samples, total, at = [], 0, 0
    while at + 4 <= len(bits):
        width = int(bits[at:at + 4][::-1], 2)
        at += 4
        if width == 0 or at + 8 * width > len(bits):
            break
        for _ in range(8):
            total += int(bits[at:at + width][::-1], 2)
            samples.append(total % 2**RESOLUTION)
            at += width
    return np.array(samples, 'u2')


def waveform_rows(path):
    """The columns of "Waveforms", its fragments joined; narrower ones get zeros behind their samples."""
    rows = k7.columns(path, 'Waveforms', ('GPSTime', 'SBL_Time', 'Channel', 'FWFLength', 'Positions'))
    with h5py.File(path, 'r') as f:
        field = f['Slice_0/Waveforms/StandardCartesianChart3D/Waveforms']
        parts = [field[n][...] for n in sorted(field, key=lambda n: int(n.split('_')[1]))]
    width = max([part.shape[1] for part in parts], default=0)
    rows['Waveforms'] = np.concatenate([np.pad(part, ((0, 0), (0, width - part.shape[1]))) for part in parts])
    return rows


class Waveforms(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.path = os.path.join(self.folder, 'scan.k7')

    def host(self, *args):
        p = subprocess.run([HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           text=True, timeout=120)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p

    def simulate(self, form, *options, shots=3000, seed=3):
        self.host('simulate', 'scan.rxp', '--waveforms', form, '--shots', shots, '--seed', seed, *options)

    def convert(self, *options):
        """Converts; the columns of "Waveforms"."""
        p = self.host('convert', '--json', 'scan.rxp', *options)
        result = json.loads(p.stdout)['results'][0]
        self.assertEqual(result['text'], '')
        self.assertEqual([loss['name'] for loss in result['losses']], ['last packet'])
        rows = waveform_rows(self.path)
        self.assertEqual(len(rows['GPSTime']), result['waveforms'])
        return rows

    def truth(self, form, shots=3000, seed=3):
        p = subprocess.run([TRUTH, 'waveforms', str(shots), str(seed), form], stdout=subprocess.PIPE, timeout=60, check=True)
        runs = np.frombuffer(p.stdout, RUN)
        self.assertGreater(len(runs), 2 * shots)
        return runs


class Samples(Waveforms):
    def check_times(self, form, found, expected):
        off = np.abs(found - expected)
        if form.startswith('hr'):
            # These cut the time of a shot off to whole counts; where it lies on a sample that makes the sample before.
            aside = np.abs(off - SAMPLE_TIME) < 1e-12
            self.assertLess(np.count_nonzero(aside), 0.003 * len(off) + 1)
            off = off[~aside]
        self.assertLess(np.max(off, initial=0), 1e-12)

    def check(self, form):
        self.simulate(form)
        rows = self.convert('--fragment-size', 1000)
        runs = self.truth(form)
        shots = k7.columns(self.path, 'Shots')['GPSTime']
        np.testing.assert_array_less(np.abs(shots - np.unique(runs['time'])), 1e-6)
        reference = runs['channel'] == REFERENCE
        self.assertEqual(np.count_nonzero(reference), 3000)
        told = runs[~reference]
        # One row for each channel but the reference, in the order of the stream.
        np.testing.assert_array_equal(rows['Channel'], told['channel'])
        np.testing.assert_array_equal(rows['GPSTime'], shots[np.searchsorted(np.unique(runs['time']), told['time'])])
        self.check_times(form, rows['SBL_Time'], told['start'])
        for row, length, run in zip(rows['Waveforms'], rows['FWFLength'], told):
            expected = run['samples'][:run['count']]
            found = row[:length]
            if form in COMPRESSED:
                # Groups are told whole.
                found = decompressed(found)
                expected = np.append(expected, np.full(-len(expected) % 8, expected[-1]))
            np.testing.assert_array_equal(found, expected)
            self.assertFalse(np.any(row[length:]))
        t_ref = k7.attributes(self.path)['Slice_0/Waveforms']['t_ref']
        self.check_times(form, np.array([t_ref]), runs['start'][reference][-1:])

    def test_every_form_gives_the_simulated_samples(self):
        for form in FORMS:
            with self.subTest(form):
                self.check(form)

    def test_fragments_are_as_wide_as_their_longest_waveform(self):
        self.simulate('channel')
        self.convert('--fragment-size', 37)
        widths = set()
        with h5py.File(self.path, 'r') as f:
            fields = f['Slice_0/Waveforms/StandardCartesianChart3D']
            self.assertGreater(len(fields['Waveforms']), 50)
            for n in fields['Waveforms']:
                lengths = fields['FWFLength'][n][...]
                self.assertEqual(fields['Waveforms'][n].shape, (len(lengths), lengths.max()))
                widths.add(int(lengths.max()))
        self.assertGreater(len(widths), 5)

    def test_longer_waveforms_are_cut_and_it_is_told(self):
        self.simulate('channel')
        whole = self.convert()
        p = self.host('convert', 'scan.rxp', '--waveform-length', 80)
        rows = waveform_rows(self.path)
        np.testing.assert_array_equal(rows['FWFLength'], np.minimum(whole['FWFLength'], 80))
        self.assertEqual(rows['Waveforms'].shape, (len(whole['FWFLength']), 80))
        np.testing.assert_array_equal(rows['Waveforms'], whole['Waveforms'][:, :80])
        self.assertIn('Warning! FWF cut off: Exported length  80, actual length %d for file ' % whole['FWFLength'].max(), p.stderr)

    def test_waveforms_are_the_same_however_shots_are_packed(self):
        self.simulate('channel')
        expected = self.convert()
        self.assertGreater(len(expected['Channel']), 4000)
        for form in ('packed-hr', 'shot-echo', 'shot-echo-blocks'):
            with self.subTest(form):
                self.simulate('channel', '--form', form)
                found = self.convert()
                for name in expected:
                    np.testing.assert_array_equal(expected[name], found[name], name)

    def test_no_waveforms_without_being_asked(self):
        self.host('simulate', 'scan.rxp', '--shots', 1000)
        p = self.host('convert', '--json', 'scan.rxp')
        self.assertEqual(json.loads(p.stdout)['results'][0]['waveforms'], 0)


class Physics(Waveforms):
    """Waveforms and echoes are told apart in the stream; they must agree on where the light came from."""

    def setUp(self):
        super().setUp()
        self.shots, self.seed = 10000, 3

    def joined(self, form):
        """A row for each shot: its echoes, and the waveforms of both channels with the zero level taken off."""
        self.simulate(form, shots=self.shots, seed=self.seed)
        rows = self.convert()
        opp = k7.columns(self.path, 'OPP')
        about = k7.attributes(self.path)['Slice_0/Waveforms']
        self.sample_time, self.velocity = about['sampling_time'], about['group_velocity']
        self.assertAlmostEqual(self.sample_time / SAMPLE_TIME, 1, 6)
        times, counts = np.unique(opp['GPSTime'], return_counts=True)
        starts = np.searchsorted(opp['GPSTime'], times)
        high, low = (np.flatnonzero(rows['Channel'] == c) for c in (0, 1))
        np.testing.assert_array_equal(rows['GPSTime'][high], times)
        np.testing.assert_array_equal(rows['GPSTime'][low], times)
        return [({name: column[s:s + n] for name, column in opp.items()},
                 [(rows['SBL_Time'][r], rows['Waveforms'][r, :rows['FWFLength'][r]].astype(int)) for r in pair])
                for s, n, pair in zip(starts, counts, zip(high, low))]

    def samples_of(self, waveform, ranges):
        """Where, in samples, light of such ranges lies."""
        return (2 * np.asarray(ranges) / self.velocity - waveform[0]) / self.sample_time

    def check_peaks(self, form):
        seen = 0
        saturated = 0
        for echoes, (high, low) in self.joined(form):
            # A single surface that is not water, well above the noise.
            if len(echoes['Range']) != 1 or echoes['Reflectance'][0] < -16 or echoes['Amplitude'][0] < 25:
                continue
            cut_off = high[1].max() == FULL_SCALE
            waveform = low if cut_off else high
            peak = np.mean(np.flatnonzero(waveform[1] == waveform[1].max()))
            self.assertLess(abs(peak - self.samples_of(waveform, echoes['Range'])[0]), 1)
            gain = 1 / 16 if cut_off else 1
            # Half a sample beside the middle, a pulse is lower by 6 %.
            height = COUNTS_AT_0_DB * gain * 10**(echoes['Amplitude'][0] / 20)
            self.assertTrue(0.92 * height - 8 < waveform[1].max() - ZERO_LEVEL < 1.01 * height + 8)
            seen += 1
            saturated += cut_off
        self.assertGreater(seen, self.shots // 10)
        self.assertGreater(saturated, 20)

    def test_peaks_lie_at_the_ranges_of_the_echoes(self):
        for form in ('channel', 'parameters', 'hr'):
            with self.subTest(form):
                self.check_peaks(form)

    def test_every_echo_of_many_stands_in_the_waveform(self):
        seen = overlapping = 0
        for echoes, (high, _) in self.joined('channel'):
            positions = self.samples_of(high, echoes['Range'])
            inside = positions < len(high[1]) - 2
            self.assertTrue(inside[0])
            if len(positions) < 2:
                continue
            light = high[1][np.rint(positions[inside]).astype(int)] - ZERO_LEVEL
            expected = COUNTS_AT_0_DB * 10**(echoes['Amplitude'][inside] / 20)
            self.assertTrue(np.all(light > np.minimum(0.9 * expected - 8, FULL_SCALE - ZERO_LEVEL - 1)))
            seen += 1
            overlapping += np.any(np.diff(positions) < 3)
        self.assertGreater(seen, 300)
        self.assertGreater(overlapping, 20)

    def test_light_fades_below_the_surface_of_water(self):
        self.shots, self.seed = 100000, 1
        seen = []
        for echoes, (high, _) in self.joined('channel'):
            # Water reflects little; so does what the beam grazes.
            if len(echoes['Range']) == 1 and echoes['Reflectance'][0] < -18 and echoes['Amplitude'][0] > 8:
                seen.append((echoes['GPSTime'][0], echoes['Range'][0], high))
        shots = k7.columns(self.path, 'Shots')
        rows = np.searchsorted(shots['GPSTime'], [time for time, _, _ in seen])
        heights = shots['Positions'][rows, 2] + [r for _, r, _ in seen] * shots['Waveforms.DirectionDelta'][rows, 2]
        # But only the lake is level.
        levels, counts = np.unique(np.round(heights, 3), return_counts=True)
        level = levels[np.argmax(counts)]
        behind = []
        for height, (_, distance, high) in zip(heights, seen):
            position = round(self.samples_of(high, distance))
            if abs(height - level) < 0.002 and len(high[1]) >= position + 9:
                behind.append(high[1][position:position + 9] - ZERO_LEVEL)
        self.assertGreater(len(behind), 20)
        surface, _, _, _, upper, middle, lower = np.mean(behind, axis=0)[:7]
        # The surface's own pulse would leave a fiftieth four samples behind it, and a thousandth two later.
        self.assertGreater(upper, 0.05 * surface)
        self.assertGreater(lower, 0.02 * surface)


class Attributes(Waveforms):
    def test_coefficients_arrive_and_are_told_on_standard_output(self):
        self.simulate('channel')
        p = self.host('convert', 'scan.rxp')
        lines = [line for line in p.stdout.splitlines() if line.startswith('on_sbl')]
        self.assertEqual(lines, [
            'on_sbl_dg_channel_expsum_1: SysWave coefficient A: (0.62,-0.18) B: (2.1e+08,1.3e+08) i: 0',
            'on_sbl_dg_channel_expsum_1: SysWave coefficient A: (-0.41,0.33) B: (3.4e+08,4.2e+08) i: 1',
            'on_sbl_dg_channel_expsum_1: SysWave coefficient A: (0.07,0.05) B: (5.5e+08,9.6e+08) i: 2'])
        for grid in ('Slice_0/Waveforms', 'Slice_0/Shots'):
            about = k7.attributes(self.path)[grid]
            np.testing.assert_array_equal(about['pulse_A_real'], [0.62, -0.41, 0.07])
            np.testing.assert_array_equal(about['pulse_A_imag'], [-0.18, 0.33, 0.05])
            np.testing.assert_array_equal(about['pulse_B_real'], [2.1e8, 3.4e8, 5.5e8])
            np.testing.assert_array_equal(about['pulse_B_imag'], [1.3e8, 4.2e8, 9.6e8])
            self.assertEqual(about['sampling_time'], SAMPLE_TIME)
            self.assertEqual(about['group_velocity'], np.float32(299704944))
            self.assertEqual(about['wavelength'], 1550)
            self.assertEqual(about['type_id'], 'SIM-WHEEL-3')

    def test_fixed_channels_have_no_coefficients_and_warn_of_channel_2_at_every_shot(self):
        for form in FIXED:
            with self.subTest(form):
                self.simulate(form, shots=1000)
                p = self.host('convert', 'scan.rxp')
                self.assertNotIn('SysWave', p.stdout)
                self.assertEqual(p.stderr.splitlines().count(WARNING), 1000)
                about = k7.attributes(self.path)['Slice_0/Waveforms']
                self.assertNotIn('pulse_A_real', about)
                self.assertEqual(about['sampling_time'], np.float32(SAMPLE_TIME))

    def test_told_channels_do_not_warn(self):
        self.simulate('channel', shots=1000)
        self.assertNotIn('Channel is 2', self.host('convert', 'scan.rxp').stderr)

    def test_calibration_tables_leave_the_file_as_it_is(self):
        # They tell the reference time where there is no reference pulse, and here is one at every shot.
        self.simulate('channel')
        self.convert()
        os.rename(self.path, self.path + '.plain')
        self.simulate('channel', '--calibration', 'waveform')
        self.convert()
        self.assertEqual(k7.differences(self.path + '.plain', self.path), [])


class Example(Waveforms):
    """The example in Python, run on files whose samples are known."""

    def run_example(self, picture, *options, status=0):
        p = subprocess.run(['/usr/bin/python3', EXAMPLE, self.path, picture, *options], cwd=self.folder,
                           env=dict(os.environ, MPLCONFIGDIR=self.folder), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           text=True, timeout=120)
        self.assertEqual(p.returncode, status, p.stderr)
        return p

    def check_waveform(self, line, name, run, echoes, form):
        m = re.fullmatch(r'(.*): (\d+) samples, peak (\d+) counts at ([\d.]+) m, nearest echo ([\d.]+) m, ([\d.]+) dB', line)
        self.assertIsNotNone(m, line)
        samples = run['samples'][:run['count']]
        peak = np.argmax(samples)
        distance = (run['start'] + peak * SAMPLE_TIME) * np.float64(np.float32(299704944)) / 2
        nearest = np.argmin(np.abs(echoes['Range'] - distance))
        self.assertEqual(m.group(1), name)
        self.assertEqual(int(m.group(2)), len(samples) + (-len(samples) % 8 if form in COMPRESSED else 0))
        self.assertEqual(int(m.group(3)), samples[peak])
        self.assertAlmostEqual(float(m.group(4)), distance, delta=0.002)
        self.assertAlmostEqual(float(m.group(5)), echoes['Range'][nearest], delta=0.0006)
        self.assertAlmostEqual(float(m.group(6)), echoes['Amplitude'][nearest], delta=0.006)

    def check(self, form, *options):
        self.simulate(form)
        self.host('convert', 'scan.rxp', '--fragment-size', 1000)
        lines = self.run_example('shot.png', *options).stdout.splitlines()
        m = re.fullmatch(r'shot ([\d.]+): 2 waveforms, (\d+) echoes', lines[0])
        self.assertIsNotNone(m, lines[0])
        time = float(m.group(1))
        opp = k7.columns(self.path, 'OPP')
        echoes = {name: values[np.abs(opp['GPSTime'] - time) < 1e-6] for name, values in opp.items()}
        self.assertEqual(len(echoes['Range']), int(m.group(2)))
        if not options:
            self.assertEqual(len(echoes['Range']), np.unique(opp['GPSTime'], return_counts=True)[1].max())
        runs = self.truth(form)
        runs = runs[(np.abs(runs['time'] - time) < 1.5e-6) & (runs['channel'] != REFERENCE)]
        self.assertEqual(len(runs), 2)
        self.assertEqual(len(lines), 3)
        for line, name, run in zip(lines[1:], ('high power', 'low power'), runs):
            self.check_waveform(line, name, run, echoes, form)
        return len(echoes['Range'])

    def test_samples_and_compressed_samples_are_found_and_told(self):
        for form in ('channel', 'channel-compressed', 'parameters', 'parameters-compressed', 'subpackages'):
            with self.subTest(form):
                self.check(form)

    def test_a_shot_can_be_chosen(self):
        self.check('channel', '--time', '43200.006')
        self.check('channel-compressed', '--time', '43200.006', '--compressed', 'yes')

    def test_the_picture_shows_line_and_echoes(self):
        import matplotlib.image
        count = self.check('channel')
        picture = (matplotlib.image.imread(os.path.join(self.folder, 'shot.png'))[:, :, :3] * 255).astype(int)
        blue = np.all(np.abs(picture - (0x1f, 0x4e, 0x79)) < 12, axis=2)
        red = np.all(np.abs(picture - (0xc0, 0x50, 0x4d)) < 40, axis=2)
        # The line goes from one side to the other of both panels.
        half = len(picture) // 2
        for panel in (blue[:half], blue[half:]):
            self.assertGreater(np.count_nonzero(np.any(panel, axis=0)), 0.8 * picture.shape[1])
        # An echo within the picture is a dashed line from top to bottom.
        lines = np.flatnonzero(np.count_nonzero(red[half:], axis=0) > 0.3 * half)
        self.assertEqual(np.count_nonzero(np.diff(lines, prepend=-9) > 1), count)

    def test_other_kinds_of_pictures(self):
        self.simulate('channel')
        self.host('convert', 'scan.rxp')
        self.run_example('shot.pdf')
        with open(os.path.join(self.folder, 'shot.pdf'), 'rb') as f:
            self.assertEqual(f.read(5), b'%PDF-')

    def test_a_file_without_waveforms_is_told(self):
        self.host('simulate', 'scan.rxp', '--shots', 1000)
        self.host('convert', 'scan.rxp')
        self.assertIn('nothing in the grid "Waveforms"', self.run_example('shot.png', status=1).stderr)
        self.assertFalse(os.path.exists(os.path.join(self.folder, 'shot.png')))


class Refused(Waveforms):
    def test_combinations_without_sense_exit_2_and_say_why(self):
        for word, args in (('waveforms', ('--calibration', 'waveform')),
                           ('fanbeam', ('--waveforms', 'channel', '--mechanics', 'mirrorwheel-fanbeam')),
                           ('--mta', ('--waveforms', 'channel', '--mta', '2')),
                           ('shot-echo-blocks', ('--waveforms', 'subpackages', '--form', 'hr')),
                           ('high-resolution', ('--waveforms', 'hr', '--form', 'packed')),
                           ('plain time', ('--waveforms', 'parameters', '--form', 'hr')),
                           ('--waveforms', ('--waveforms', 'round'))):
            p = subprocess.run([HOST, 'simulate', 'new.rxp', *args], cwd=self.folder, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, timeout=60)
            self.assertEqual(p.returncode, 2, args)
            self.assertIn(word, p.stderr, args)
        self.assertEqual(os.listdir(self.folder), [])

    def test_without_a_name_the_form_is_channel(self):
        self.host('simulate', 'a.rxp', '--shots', 500, '--waveforms')
        self.host('simulate', 'b.rxp', '--shots', 500, '--waveforms', 'channel')
        with open(os.path.join(self.folder, 'a.rxp'), 'rb') as a, open(os.path.join(self.folder, 'b.rxp'), 'rb') as b:
            self.assertEqual(a.read(), b.read())


if __name__ == '__main__':
    HOST, TRUTH, EXAMPLE = (os.path.abspath(a) for a in sys.argv[1:4])
    unittest.main(argv=[sys.argv[0]] + sys.argv[4:], verbosity=1)
