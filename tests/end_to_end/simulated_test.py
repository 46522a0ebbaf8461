#!/usr/bin/python3
"""simulated_test.py HOST SCAN_TRUTH [TEST ...]: recordings of every form, scanner model, zone and receiver fault, looked at
from outside: what their K7 files hold against the scene that was simulated, or against the file of the simplest recording
of that scene."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

HOST = TRUTH = None
RANGE_UNIT, FAN_RANGE_UNIT = 0.00025, 0.005
GROUP_VELOCITY = 299704944.0
# The scene tells distances to first order, which errs a little along its edges.
FIRST_ORDER = 1.05
MODELS = ('mirrorwheel', 'mirrorwheel-exitpane', 'mirrorwheel-deflection', 'mirrorwheel-nodding', 'gimbalmountmirror',
          'wedge', 'mirrorwheel-windowdistortion', 'mirrorwheel-deflection-windowdistortion', 'wedge-scanconedistortion',
          'mirrorwheel-scanconedistortion', 'mirrorwheel-facetsurfacedistortion', 'mirrorwheel-facetsurfacedistortion-d')


class Simulated(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def host(self, *args):
        return subprocess.run([HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=120)

    def scan(self, *options, shots=30000, seed=3):
        """Simulates and converts; the columns of Shots and OPP."""
        p = self.host('simulate', 'scan.rxp', '--shots', shots, '--seed', seed, *options)
        self.assertEqual(p.returncode, 0, p.stderr)
        p = self.host('convert', '--json', 'scan.rxp')
        self.assertEqual(p.returncode, 0, p.stderr)
        result = json.loads(p.stdout)['results'][0]
        self.assertEqual(result['text'], '')
        path = os.path.join(self.folder, 'scan.k7')
        shots_read, echoes = k7.columns(path, 'Shots'), k7.columns(path, 'OPP')
        self.assertEqual(len(shots_read['GPSTime']), shots)
        self.assertEqual(len(echoes['GPSTime']), result['echoes'])
        return shots_read, echoes

    def truth(self, *args, data=None):
        p = subprocess.run([TRUTH] + [str(a) for a in args], input=data, stdout=subprocess.PIPE, timeout=60, check=True)
        return np.frombuffer(p.stdout, 'f8')

    def distances(self, points, seed=3):
        found = self.truth('distances', seed, data=points.astype('f8').tobytes())
        self.assertEqual(len(found), len(points))
        return found

    def rows_of_shots(self, shots, echoes):
        """The shot of each echo, joined on the time."""
        rows = np.searchsorted(shots['GPSTime'], echoes['GPSTime'])
        np.testing.assert_array_equal(shots['GPSTime'][rows], echoes['GPSTime'])
        return rows

    def points(self, shots, echoes):
        rows = self.rows_of_shots(shots, echoes)
        return shots['Positions'][rows] + echoes['Range'][:, None] * shots['Waveforms.DirectionDelta'][rows]


class Forms(Simulated):
    """All forms hold the beams and the readings of an echo whole, so that these agree to the bit."""

    def same(self, expected, found, but=()):
        for grid_expected, grid_found in zip(expected, found):
            self.assertEqual(set(grid_expected), set(grid_found))
            for name in set(grid_expected) - set(but):
                np.testing.assert_array_equal(grid_expected[name], grid_found[name], name)
        self.assertGreater(len(expected[1]['Range']), 10000)

    def test_keys_and_differences_give_the_file_of_plain_packets(self):
        self.same(self.scan('--form', 'plain'), self.scan('--form', 'packed'))

    def test_shots_with_radiation_give_one_more_row_for_each_without_echo(self):
        plain = self.scan('--form', 'plain')
        shots, echoes = self.scan('--form', 'packed-rad')
        pseudo = np.isnan(echoes['Reflectance'])
        np.testing.assert_array_equal(echoes['Range'][pseudo], 0.35)
        self.same(plain, (shots, {name: column[~pseudo] for name, column in echoes.items()}))
        times = shots['GPSTime']
        without = np.setdiff1d(times, plain[1]['GPSTime'])
        # Not the first shot, which is held back. And each stop closes a shot, so that whatever closes it again, the next
        # shot or stop, tells the last one of the line once more.
        gaps = np.diff(times)
        ends = np.append(times[:-1][gaps > 2 * np.median(gaps)], [times[-1]] * 2)
        np.testing.assert_array_equal(np.sort(np.append(without[without != times[0]], ends)), echoes['GPSTime'][pseudo])

    def test_high_resolution_packets_differ_in_time_alone_by_a_count_of_the_plain_time(self):
        plain, hr = self.scan('--form', 'plain'), self.scan('--form', 'hr')
        self.same(plain, hr, but=('GPSTime', 'SBL_Time'))
        for grid_plain, grid_hr in zip(plain, hr):
            self.assertLess(np.max(np.abs(grid_plain['GPSTime'] - grid_hr['GPSTime'])), 1.01e-7)

    def test_keys_and_differences_of_high_resolution_give_the_file_of_its_single_packets(self):
        self.same(self.scan('--form', 'hr'), self.scan('--form', 'packed-hr'))

    def test_streams_of_shots_and_echoes_give_the_file_of_single_packets_but_for_the_flags(self):
        hr = self.scan('--form', 'hr')
        for form in ('shot-echo', 'shot-echo-blocks'):
            found = self.scan('--form', form)
            self.same(hr, found, but=('Channel',))
            # An echo without flags is none of the rising edge.
            self.assertTrue(np.all(found[1]['Channel'] == 1))


class Mechanics(Simulated):
    """Shot origin + range x direction, joined on the time, must lie on the simulated surfaces."""

    def test_points_of_every_model_lie_on_the_surfaces(self):
        for model in MODELS:
            with self.subTest(model):
                shots, echoes = self.scan('--mechanics', model, shots=10000)
                points = self.points(shots, echoes)
                self.assertGreater(len(points), 3000)
                # Ranges count in lengths of the direction, which a gimbal's mirror stretches.
                stretch = np.max(np.linalg.norm(shots['Waveforms.DirectionDelta'], axis=1))
                self.assertLess(np.max(self.distances(points)), FIRST_ORDER * stretch * RANGE_UNIT / 2)

    def test_models_differ(self):
        beams = {m: self.scan('--mechanics', m, shots=2000)[0] for m in MODELS}
        seen = set()
        for model, shots in beams.items():
            seen.add(shots['Waveforms.DirectionDelta'].tobytes() + shots['Positions'].tobytes())
        # The two kinds of packet for a facet's surface tell the same model.
        self.assertEqual(len(seen), len(MODELS) - 1)

    def test_points_of_a_biaxial_scanner_lie_beside_the_beam_within_its_shift(self):
        # The file holds the beam, and not the shift, which is 12 mm at most and ends at 30 m.
        shots, echoes = self.scan('--mechanics', 'mirrorwheel-biaxial', shots=20000)
        off = self.distances(self.points(shots, echoes))
        far = echoes['Range'] >= 30
        self.assertGreater(np.count_nonzero(far), 1000)
        self.assertGreater(np.count_nonzero(~far), 1000)
        self.assertLess(np.max(off[far]), FIRST_ORDER * RANGE_UNIT / 2)
        self.assertLess(np.max(off[~far]), 0.0121 + RANGE_UNIT)
        self.assertGreater(np.max(off[~far]), 0.001)

    def test_points_of_a_fan_lie_on_the_surfaces_along_one_of_its_beams(self):
        # The file holds the beam in the middle of the fan, and not which beam an echo came by.
        count, rate, seed = 5000, 50000, 3
        shots, echoes = self.scan('--mechanics', 'mirrorwheel-fanbeam', '--rate', rate, shots=count)
        beams = self.truth('fan', count, rate, seed).reshape(count, -1, 2, 3)
        rows = self.rows_of_shots(shots, echoes)
        off = [self.distances(beams[rows, i, 0] + echoes['Range'][:, None] * beams[rows, i, 1])
               for i in range(beams.shape[1])]
        self.assertGreater(len(rows), 2 * count)
        self.assertLess(np.max(np.min(off, axis=0)), FIRST_ORDER * FAN_RANGE_UNIT / 2)
        for i in range(beams.shape[1]):
            self.assertGreater(np.count_nonzero(np.argmin(off, axis=0) == i), len(rows) // 10)


class Zones(Simulated):
    def check(self, zones, *options):
        shots, echoes = self.scan('--mta', zones, '--lines-per-second', 1000, *options, shots=70000, seed=1)
        rate = round(1 / np.min(np.diff(shots['GPSTime'])))
        length = 0.5 * GROUP_VELOCITY / rate
        zone = np.floor(echoes['Range'] / length).astype(int)
        self.assertEqual(sorted(set(zone)), list(range(zones)))
        # A zone amiss is metres off; a shot amiss some beam widths, which is centimetres.
        self.assertLess(np.max(self.distances(self.points(shots, echoes), 1)), FIRST_ORDER * RANGE_UNIT / 2)

    def test_targets_of_each_zone_land_at_their_range_and_shot(self):
        for zones in range(1, 6):
            with self.subTest(zones):
                self.check(zones)

    def test_zones_told_by_number(self):
        self.check(5, '--mta-by', 'number')

    def test_zones_in_packed_forms(self):
        for form in ('packed-hr', 'shot-echo', 'shot-echo-blocks'):
            with self.subTest(form):
                self.check(5, '--form', form)

    def test_zones_with_other_optics_and_receiver_faults(self):
        self.check(4, '--mechanics', 'mirrorwheel-windowdistortion', '--calibration', 'amplitude-range,notch,dynamic-trigger')


class Corrections(Simulated):
    """A receiver with faults and what corrects them gives the file of one without, to a range count."""

    def check(self, faults, counts=1.0, *options):
        wanted = self.scan(*options)
        found = self.scan('--calibration', faults, *options)
        for name in wanted[0]:
            np.testing.assert_array_equal(wanted[0][name], found[0][name], name)
        for name in set(wanted[1]) - {'Range', 'Reflectance'}:
            np.testing.assert_array_equal(wanted[1][name], found[1][name], name)
        off = np.abs(wanted[1]['Range'] - found[1]['Range'])
        self.assertLess(np.max(off), (counts + 0.01) * RANGE_UNIT)
        # Reflectance is corrected by range: at 1 m, a count is 2 thousandths of a dB.
        np.testing.assert_allclose(wanted[1]['Reflectance'], found[1]['Reflectance'], rtol=0, atol=0.005)

    def test_table_over_near_ranges(self):
        # On an entry of the table, rounding may take the entry beside; the told counter is then one aside.
        self.check('near-range', 2.0)

    def test_table_over_amplitudes(self):
        self.check('amplitude-range')

    def test_grid_over_ranges_and_amplitudes(self):
        self.check('range-grid')

    def test_notches_take_out_the_pane(self):
        self.check('notch')
        self.check('angular-notch')

    def test_dynamic_triggers_take_out_the_ringing(self):
        self.check('dynamic-trigger')
        self.check('dynamic-trigger-tables')

    def test_all_together_in_a_packed_form(self):
        self.check('range-grid,amplitude-range,angular-notch,dynamic-trigger-tables', 1.0, '--form', 'packed-hr')

    def test_faults_are_in_the_recording(self):
        for faults in ('notch', 'angular-notch', 'dynamic-trigger', 'dynamic-trigger-tables'):
            p = self.host('simulate', 'scan.rxp', '--shots', 5000, '--calibration', faults)
            self.assertEqual(p.returncode, 0, p.stderr)
            artefacts = int(p.stdout.split(' artefacts')[0].split()[-1])
            self.assertGreater(artefacts, 300, faults)


class Refused(Simulated):
    def test_combinations_without_sense_exit_2_and_say_why(self):
        for words, args in ((('packets of its own',), ('--mechanics', 'mirrorwheel-fanbeam', '--form', 'packed')),
                            (('fanbeam', '--mta'), ('--mechanics', 'mirrorwheel-fanbeam', '--mta', 2, '--form', 'plain')),
                            (('fanbeam', '--calibration'), ('--mechanics', 'mirrorwheel-fanbeam', '--calibration', 'notch')),
                            (('high-resolution',), ('--mta', 2, '--form', 'packed')),
                            (('last zone',), ('--mta', 5, '--rate', 300000)),
                            (('--mta',), ('--mta-by', 'number')),
                            (('--mta',), ('--mta', 6)),
                            (('range-grid', 'near-range'), ('--calibration', 'near-range,range-grid')),
                            (('notch',), ('--calibration', 'notch,angular-notch')),
                            (('dynamic-trigger',), ('--calibration', 'dynamic-trigger,dynamic-trigger-tables')),
                            (('--calibration',), ('--calibration', 'colour')),
                            (('--mechanics',), ('--mechanics', 'pendulum')),
                            (('--form',), ('--form', 'round'))):
            p = self.host('simulate', 'new.rxp', *args)
            self.assertEqual(p.returncode, 2, args)
            self.assertEqual(p.stdout, '', args)
            for word in words:
                self.assertIn(word, p.stderr, args)
        self.assertEqual(os.listdir(self.folder), [])


if __name__ == '__main__':
    HOST, TRUTH = (os.path.abspath(a) for a in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
