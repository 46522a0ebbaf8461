#!/usr/bin/python3
"""host_test.py HOST SCAN_TRUTH [TEST ...]: the command-line host as its users meet it: options, exit codes, JSON, messages."""
import json
import os
import signal
import struct
import subprocess
import sys
import time

import h5py
import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
import k7  # noqa: E402
from host_case import HostCase  # noqa: E402

HOST = TRUTH = None
RANGE_UNIT = 0.00025


class Usage(HostCase):
    def test_wrong_usage_exits_2_and_says_why(self):
        self.simulate()
        for command, endings in {
                '': ('', 'fly', 'info'),
                'convert': ('',),
                'convert scan.rxp': ('--fast', '--fragment-size -1', '--fragment-size 4294967296', '--fragment-size 12x',
                                     '--waveform-length 1.5', '--compress 10', '--time-range 1', '--time-range 2:1',
                                     '--time-range 1:2x', '--time-range nan:1', '--time-range :'),
                'info scan.rxp': ('--json --meta',),
                'simulate': ('',),
                'simulate new.rxp': ('--form round', '--shots 1e6', '--rate 0', '--rate 1000 --lines-per-second 1000'),
        }.items():
            for ending in endings:
                self.check_wrong_usage(command.split() + ending.split())
        self.assertEqual(os.listdir(self.folder), ['scan.rxp'])

    def check_wrong_usage(self, args):
        p = self.host(*args)
        self.assertEqual(p.returncode, 2, args)
        self.assertNotEqual(p.stderr, '', args)
        self.assertEqual(p.stdout, '', args)

    def test_help_and_version_exit_0(self):
        for args in (['--help'], ['--version'], ['convert', '--help'], ['simulate', '--help'], ['info', '--help'],
                     ['points', '--help']):
            self.assertNotEqual(self.good(*args).stdout, '')

    def test_inputs_that_would_share_an_output_are_refused_before_anything_is_done(self):
        os.mkdir(self.path('a'))
        self.simulate('a/scan.rxp')
        self.simulate('scan.rxp')
        p = self.host('convert', 'scan.rxp', 'a/scan.rxp')
        self.assertEqual(p.returncode, 2)
        self.assertIn('scan.k7', p.stderr)
        self.assertFalse(os.path.exists(self.path('scan.k7')))

    def test_an_input_that_its_output_would_overwrite_is_refused(self):
        self.simulate('scan.k7')
        before = self.read('scan.k7')
        self.assertEqual(self.host('convert', 'scan.k7').returncode, 2)
        self.assertEqual(self.read('scan.k7'), before)


class Simulate(HostCase):
    def test_the_same_options_give_the_same_bytes_and_another_seed_others(self):
        self.simulate('a.rxp', '--seed', 7)
        self.simulate('b.rxp', '--seed', 7)
        self.simulate('c.rxp', '--seed', 8)
        self.assertEqual(self.read('a.rxp'), self.read('b.rxp'))
        self.assertNotEqual(self.read('a.rxp'), self.read('c.rxp'))

    def test_an_output_that_cannot_be_written_exits_5_and_is_named(self):
        for name in ('no/scan.rxp', '/dev/full', '.'):
            p = self.host('simulate', name, '--shots', 1000)
            self.assertEqual(p.returncode, 5, name)
            self.assertIn('"%s"' % name, p.stderr)

    def test_a_file_size_limit_exits_5_and_leaves_no_partial_recording(self):
        p = subprocess.run(['bash', '-c', 'ulimit -f 100; exec "$0" simulate scan.rxp --shots 100000', HOST],
                           cwd=self.folder, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(p.returncode, 5)
        self.assertIn('File too large', p.stderr)
        self.assertFalse(os.path.exists(self.path('scan.rxp')))


class Info(HostCase):
    def info(self, *args, code=0):
        p = self.host('info', '--json', *args)
        self.assertEqual(p.returncode, code, p.stderr)
        return json.loads(p.stdout)

    def test_tells_identity_counts_times_and_metadata(self):
        for form, kind in (('plain', 'laser_shot_2angles'), ('hr', 'laser_shot_2angles_hr')):
            self.simulate('scan.rxp', '--form', form, '--rate', 20000, shots=20000)
            found = self.info('scan.rxp')
            self.assertEqual((found['type'], found['serial']), ('SIM-WHEEL-3', 'SIM00001'))
            self.assertEqual(found['bytes'], os.path.getsize(self.path('scan.rxp')))
            self.assertEqual(found['shots'], 20000)
            counts = {p['name']: p['count'] for p in found['packets']}
            self.assertEqual(counts[kind], 20000)
            self.assertEqual(counts['generic_end'], 1)
            self.assertEqual(sum(counts.values()), found['packet_count'])
            span = found['time']['pps']
            self.assertTrue(43200 <= span['first'] < span['last'] < 43204, span)
            internal = found['time']['internal']
            self.assertAlmostEqual(internal['last'] - internal['first'], span['last'] - span['first'], places=4)
            self.assertEqual(len(found['metadata']['pointcloud']['scanmech'][0]['facets']), 3)
            self.assertIsNone(found['error'])
            self.assertEqual(found['losses'], [])

    def test_text_form_names_the_same(self):
        self.simulate()
        text = self.good('info', 'scan.rxp').stdout
        for part in ('SIM-WHEEL-3', 'SIM00001', 'laser_shot_2angles (10.2)', '"scanmech"', 'PPS'):
            self.assertIn(part, text)

    def test_a_damaged_recording_exits_4_with_what_was_read_and_the_offset(self):
        data = self.read(self.simulate())
        at = len(data) // 2 // 4 * 4
        # A header whose sequence ends before it begins.
        self.write('bad.rxp', data[:at] + struct.pack('<3I', 0xFFFFFFFF, 0x00010000, 1) + data[at:])
        found = self.info('bad.rxp', code=4)
        self.assertGreater(found['shots'], 100)
        self.assertEqual(found['type'], 'SIM-WHEEL-3')
        self.assertLess(abs(found['error']['offset'] - at), 64)
        p = self.host('info', 'bad.rxp')
        self.assertEqual(p.returncode, 4)
        self.assertIn('damaged at byte %d' % found['error']['offset'], p.stderr)
        self.assertIn('SIM-WHEEL-3', p.stdout)

    def test_no_recording_at_all(self):
        self.write('empty.rxp', b'')
        self.write('text.rxp', b'This is no recording, but a text.')
        for name in ('empty.rxp', 'text.rxp'):
            found = self.info(name, code=4)
            self.assertIn('Bad preamble.', found['error']['text'])
            self.assertIsNone(found['metadata'])
        for name in ('missing.rxp', '.', '/dev/null'):
            p = self.host('info', name)
            self.assertEqual(p.returncode, 3)
            self.assertIn('"%s"' % name, p.stderr)

    def test_unknown_kinds_are_counted_and_their_number_is_bounded(self):
        data = self.read(self.simulate(shots=10))
        strange = b''.join(struct.pack('<2I', 0xFFFFFFFF, 30000 + n << 16 | 7) for n in range(5000))
        self.write('strange.rxp', data[:-4] + strange + data[-4:])
        found = self.info('strange.rxp')
        unknown = [p for p in found['packets'] if p['name'] == 'unknown']
        self.assertEqual(len(unknown), 4096)
        self.assertEqual(found['further_unknown'], 5000 - 4096)

    def test_a_stream_that_ends_inside_a_word_is_told(self):
        data = self.read(self.simulate())
        self.write('cut.rxp', data[:-2])
        found = self.info('cut.rxp')
        self.assertIn('partial words', [l['name'] for l in found['losses']])

    def test_meta_prints_the_metadata_alone(self):
        self.simulate()
        found = self.info('scan.rxp')['metadata']

        def texts(value):
            if isinstance(value, dict):
                return {k: texts(v) for k, v in value.items()}
            if isinstance(value, list):
                return [texts(v) for v in value]
            return value if isinstance(value, str) else float(value)

        def numbers(value):
            if isinstance(value, dict):
                return {k: numbers(v) for k, v in value.items()}
            if isinstance(value, list):
                return [numbers(v) for v in value]
            try:
                return float(value) if value not in ('nan', 'inf', '-inf') else value
            except ValueError:
                return value

        p = self.good('info', '--meta', 'scan.rxp')
        self.assertEqual(numbers(json.loads(p.stdout)), texts(found))
        self.assertGreater(p.stdout.count('\n'), 20, 'indented')
        self.assertEqual(p.stderr, '')

    def test_meta_of_a_recording_without_a_measurement_says_so(self):
        self.write('empty.rxp', b'')
        p = self.host('info', '--meta', 'empty.rxp')
        self.assertEqual((p.returncode, p.stdout), (4, ''))
        self.assertIn('no metadata', p.stderr)
        self.assertEqual(self.host('info', '--meta', 'missing.rxp').returncode, 3)
        with open('/dev/full', 'w') as full:
            self.simulate()
            p = subprocess.run([HOST, 'info', '--meta', 'scan.rxp'], cwd=self.folder, stdout=full,
                               stderr=subprocess.DEVNULL, timeout=60)
        self.assertEqual(p.returncode, 5)


class Points(HostCase):
    HEADER = 'X, Y, Z, targetcount, time, echo_range, amplitude, reflectance, deviation, lineend, red, green, blue, temperature'

    def rows(self, text):
        lines = text.split('\n')
        self.assertEqual(lines[0], self.HEADER)
        self.assertEqual(lines[-1], '')
        return np.array([[float(v) for v in line.split(',')] for line in lines[1:-1]])

    def test_rows_agree_with_the_converted_echoes(self):
        for form in ('plain', 'hr'):
            self.simulate('scan.rxp', '--form', form, shots=5000)
            self.convert('scan.rxp')
            shots = k7.columns(self.path('scan.k7'), 'Shots')
            echoes = k7.columns(self.path('scan.k7'), 'OPP')
            rows = self.rows(self.good('points', '--external-time', 'scan.rxp').stdout)
            self.assertEqual(rows.shape, (len(echoes['GPSTime']), 10))
            np.testing.assert_allclose(rows[:, 4], echoes['GPSTime'], rtol=0, atol=1e-6)
            np.testing.assert_allclose(rows[:, 5], echoes['Range'], rtol=1e-6)
            np.testing.assert_allclose(rows[:, 6], echoes['Amplitude'], rtol=1e-3)
            row = np.searchsorted(shots['GPSTime'], echoes['GPSTime'])
            points = shots['Positions'][row] + echoes['Range'][:, None] * shots['Waveforms.DirectionDelta'][row]
            np.testing.assert_allclose(rows[:, :3], points, rtol=1e-5, atol=1e-4)

    def test_internal_times_are_told_unless_asked_otherwise(self):
        self.simulate()
        span = json.loads(self.good('info', '--json', 'scan.rxp').stdout)['time']
        for name, args in (('internal', []), ('pps', ['--external-time'])):
            times = self.rows(self.good('points', 'scan.rxp', *args).stdout)[:, 4]
            self.assertGreater(len(times), 100)
            self.assertGreater(times[0], span[name]['first'] - 1e-6)
            self.assertLess(times[-1], span[name]['last'] + 1e-6)

    def test_a_file_gets_the_same_rows(self):
        self.simulate(shots=5000)
        text = self.good('points', 'scan.rxp').stdout
        p = self.good('points', 'scan.rxp', '-o', 'rows.txt')
        self.assertEqual((p.stdout, p.stderr), ('', ''))
        self.assertEqual(self.read('rows.txt').decode(), text)
        self.assertGreater(len(text), 200000, 'several pieces')

    def test_wrong_usage_exits_2(self):
        before = self.read(self.simulate())
        for args in ([], ['scan.rxp', 'scan.rxp'], ['scan.rxp', '--fast'], ['scan.rxp', '-o', './scan.rxp']):
            p = self.host('points', *args)
            self.assertEqual((p.returncode, p.stdout), (2, ''), args)
        self.assertEqual(self.read('scan.rxp'), before)

    def test_an_unreadable_input_exits_3_and_makes_no_output(self):
        for name in ('missing.rxp', '.', '/dev/null'):
            p = self.host('points', name, '-o', 'rows.txt')
            self.assertEqual((p.returncode, p.stdout), (3, ''))
            self.assertIn('"%s"' % name, p.stderr)
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_damaged_recording_exits_4_with_the_rows_before_the_damage(self):
        data = self.read(self.simulate())
        whole = self.good('points', 'scan.rxp').stdout
        at = len(data) // 2 // 4 * 4
        self.write('bad.rxp', data[:at] + struct.pack('<3I', 0xFFFFFFFF, 0x00010000, 1) + data[at:])
        p = self.host('points', 'bad.rxp')
        self.assertEqual(p.returncode, 4)
        self.assertIn('"bad.rxp" is damaged at byte', p.stderr)
        self.assertTrue(whole.startswith(p.stdout))
        self.assertGreater(len(p.stdout), len(whole) // 3)

    def test_an_output_that_fails_exits_5_and_says_why(self):
        self.simulate()
        for name in ('no/rows.txt', '/dev/full', '.'):
            p = self.host('points', 'scan.rxp', '-o', name)
            self.assertEqual(p.returncode, 5, name)
            self.assertIn('"%s"' % name, p.stderr)
        with open('/dev/full', 'w') as full:
            p = subprocess.run([HOST, 'points', 'scan.rxp'], cwd=self.folder, stdout=full, stderr=subprocess.PIPE,
                               text=True, timeout=60)
        self.assertEqual(p.returncode, 5)
        self.assertIn('No space left', p.stderr)

    def test_a_closed_pipe_ends_it_without_a_word(self):
        self.simulate(shots=50000)
        for trap in ('', "trap '' PIPE; "):
            p = subprocess.run(['bash', '-c', trap + '"$0" points scan.rxp | head -n 2', HOST], cwd=self.folder,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)
            self.assertEqual(p.stdout.count('\n'), 2)
            self.assertEqual(p.stderr, '')


class Convert(HostCase):
    KEYS = {'input', 'output', 'text', 'errors', 'shots', 'echoes', 'waveforms', 'fragments', 'bytes_in', 'bytes_out',
            'seconds', 'losses'}

    def test_json_tells_what_was_done(self):
        self.simulate(shots=5000)
        result, = self.convert('scan.rxp', '--fragment-size', 1000)
        self.assertTrue(self.KEYS <= set(result), result)
        self.assertEqual((result['input'], result['text'], result['errors']), ('scan.rxp', '', ''))
        self.assertEqual(result['shots'], 5000)
        self.assertGreaterEqual(result['fragments'], 5)
        self.assertEqual(result['waveforms'], 0)
        self.assertEqual(result['bytes_in'], os.path.getsize(self.path('scan.rxp')))
        self.assertEqual(result['bytes_out'], os.path.getsize(self.path('scan.k7')))
        columns = k7.columns(self.path('scan.k7'), 'Shots')
        self.assertEqual(len(columns['GPSTime']), 5000)
        self.assertEqual(len(k7.columns(self.path('scan.k7'), 'OPP')['Range']), result['echoes'])

    def test_losses_are_objects_with_name_count_offset_and_sentence(self):
        data = self.read(self.simulate(shots=100))
        strange = struct.pack('<2I', 0xFFFFFFFF, 30000 << 16)
        self.write('strange.rxp', data[:-4] + 3 * strange + data[-4:])
        result, = self.convert('strange.rxp')
        by_name = {loss['name']: loss for loss in result['losses']}
        self.assertEqual(by_name['unknown packets']['count'], 3)
        self.assertEqual(by_name['unknown packets']['first_offset'], len(data) - 4)
        self.assertNotEqual(by_name['unknown packets']['sentence'], '')

    def test_the_summary_without_json(self):
        self.simulate(shots=100)
        text = self.good('convert', 'scan.rxp').stdout
        for part in ('scan.rxp', 'scan.k7', 'shots      100', 'MB/s'):
            self.assertIn(part, text)

    def test_inputs_that_cannot_be_read_exit_3_and_make_no_output(self):
        os.mkdir(self.path('folder.rxp'))
        for name in ('missing.rxp', 'folder.rxp', '/dev/null'):
            result, = self.convert(name, code=3)
            self.assertIn(name, result['text'])
            p = self.host('convert', name)
            self.assertEqual(p.returncode, 3)
            self.assertIn(name, p.stderr)
        if os.geteuid() != 0:
            self.write('secret.rxp', b'x')
            os.chmod(self.path('secret.rxp'), 0)
            self.assertIn('Permission denied', self.convert('secret.rxp', code=3)[0]['text'])
        self.assertEqual([n for n in os.listdir(self.folder) if '.k7' in n], [])

    def test_an_output_folder_that_cannot_take_the_file_exits_5_and_is_named(self):
        self.simulate()
        self.write('file', b'')
        for name in ('missing', 'file'):
            p = self.host('convert', 'scan.rxp', '--out-dir', name)
            self.assertEqual(p.returncode, 5)
            self.assertIn('"%s"' % name, p.stderr)
            self.assertEqual(self.convert('scan.rxp', '--out-dir', name, code=5)[0]['shots'], 0)
        self.assertFalse(os.path.exists(self.path('missing')))

    def test_damaged_inputs_exit_4_and_keep_what_could_be_read(self):
        data = self.read(self.simulate())
        at = len(data) // 2 // 4 * 4
        self.write('bad.rxp', data[:at] + struct.pack('<3I', 0xFFFFFFFF, 0x00010000, 1) + data[at:])
        result, = self.convert('bad.rxp', code=4)
        self.assertIn('Export interrupted for file: bad.rxp. Error: ', result['errors'])
        self.assertGreater(result['shots'], 100)
        self.assertLess(abs(result['stopped_at'] - at), 64)
        self.assertEqual(len(k7.columns(self.path('bad.k7'), 'Shots')['GPSTime']), result['shots'])

    def test_streams_that_are_none_exit_4_and_say_why(self):
        for data in (b'', b'15 bytes of text', os.urandom(4096)):
            self.write('none.rxp', data[:15] if data[:2] == b'15' else data)
            p = self.host('convert', 'none.rxp')
            self.assertEqual(p.returncode, 4)
            self.assertIn('none.rxp', p.stderr)

    def test_one_failing_input_does_not_stop_the_others(self):
        self.simulate('a.rxp')
        self.simulate('c.rxp')
        results = self.convert('a.rxp', 'b.rxp', 'c.rxp', code=6)
        self.assertEqual([r['input'] for r in results], ['a.rxp', 'b.rxp', 'c.rxp'])
        self.assertEqual([r['shots'] for r in results], [2000, 0, 2000])
        self.assertTrue(os.path.exists(self.path('c.k7')))
        self.assertEqual([r['exit_code'] for r in self.convert('a.rxp', 'c.rxp')], [0, 0])

    def test_zero_fragment_size_and_waveform_length_are_allowed(self):
        self.simulate(shots=20)
        result, = self.convert('scan.rxp', '--fragment-size', 0, '--waveform-length', 0)
        self.assertEqual(result['shots'], 20)

    def test_grids_are_left_out_on_demand(self):
        self.simulate(shots=100)
        self.convert('scan.rxp', '--no-echoes', '--no-waveforms')
        with h5py.File(self.path('scan.k7')) as f:
            self.assertEqual(list(f['Slice_0']), ['Shots'])

    def test_a_time_range_skips_fragments_inside(self):
        self.simulate(shots=3000)
        whole, = self.convert('scan.rxp', '--fragment-size', 1000)
        less, = self.convert('scan.rxp', '--fragment-size', 1000, '--time-range', '0:1e9')
        self.assertEqual(less['fragments'], 0)
        self.assertGreater(whole['fragments'], 0)
        self.convert('scan.rxp', '--time-range', '-5.5:1e-05')

    def test_compression_changes_the_size_and_not_the_content(self):
        self.simulate(shots=20000)
        plain, = self.convert('scan.rxp')
        columns = k7.columns(self.path('scan.k7'), 'Shots')
        packed, = self.convert('scan.rxp', '--compress', 4)
        self.assertLess(packed['bytes_out'], plain['bytes_out'])
        again = k7.columns(self.path('scan.k7'), 'Shots')
        for name, values in columns.items():
            np.testing.assert_array_equal(values, again[name])

    def test_json_stays_alone_on_standard_output(self):
        self.simulate(shots=100)
        p = self.host('convert', '--json', 'scan.rxp')
        self.assertEqual(p.stdout.count('\n'), 1)
        self.assertEqual(list(json.loads(p.stdout)), ['results'])

    def test_a_full_standard_output_exits_5(self):
        self.simulate(shots=100)
        with open('/dev/full', 'w') as full:
            p = subprocess.run([HOST, 'convert', '--json', 'scan.rxp'], cwd=self.folder, stdout=full,
                               stderr=subprocess.DEVNULL, timeout=60)
        self.assertEqual(p.returncode, 5)

    def test_a_file_size_limit_exits_5_and_the_part_stays(self):
        self.simulate(shots=100000)
        p = subprocess.run(['bash', '-c', 'ulimit -f 2000; exec "$0" convert scan.rxp --fragment-size 10000', HOST],
                           cwd=self.folder, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True, timeout=60)
        self.assertEqual(p.returncode, 5, p.stderr)
        self.assertIn('scan.k7', p.stderr)
        self.assertFalse(os.path.exists(self.path('scan.k7')))
        with h5py.File(self.path('scan.k7.part')) as f:
            self.assertGreater(len(f['Slice_0']['Shots']['StandardCartesianChart3D']['GPSTime']), 0)

    def test_a_signal_ends_the_process_by_that_signal(self):
        self.simulate(shots=1000000)
        p = subprocess.Popen([HOST, 'convert', 'scan.rxp'], cwd=self.folder, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
        while not os.path.exists(self.path('scan.k7.part')) and p.poll() is None:
            time.sleep(0.001)
        p.terminate()
        self.assertEqual(p.wait(timeout=30), -signal.SIGTERM)
        self.assertFalse(os.path.exists(self.path('scan.k7')))


class Geometry(HostCase):
    """Shot origin + range x direction, joined on the time, must lie on the simulated surfaces."""

    SHOTS, RATE = 100000, 50000

    def truth(self, *args, data=None):
        p = subprocess.run([TRUTH] + [str(a) for a in args], input=data, stdout=subprocess.PIPE, timeout=60, check=True)
        return np.frombuffer(p.stdout, 'f8')

    def check(self, form, seed):
        self.simulate('scan.rxp', '--form', form, '--seed', seed, '--rate', self.RATE, shots=self.SHOTS)
        self.convert('scan.rxp')
        shots = k7.columns(self.path('scan.k7'), 'Shots')
        echoes = k7.columns(self.path('scan.k7'), 'OPP')
        expected = self.truth('times', self.SHOTS, self.RATE, seed)
        self.assertEqual(len(shots['GPSTime']), self.SHOTS)
        self.assertLess(np.max(np.abs(shots['GPSTime'] - expected)), 1e-6)
        row = np.searchsorted(shots['GPSTime'], echoes['GPSTime'])
        np.testing.assert_array_equal(shots['GPSTime'][row], echoes['GPSTime'])
        points = shots['Positions'][row] + echoes['Range'][:, None] * shots['Waveforms.DirectionDelta'][row]
        distances = self.truth('distances', seed, data=points.astype('f8').tobytes())
        self.assertEqual(len(distances), len(points))
        self.assertGreater(len(points), self.SHOTS // 2)
        # Beams are exact for the angles told; the range is rounded to its unit.
        self.assertLess(np.max(distances), 0.5001 * RANGE_UNIT)

    def test_plain_packets(self):
        self.check('plain', 1)

    def test_high_resolution_packets(self):
        self.check('hr', 2)


if __name__ == '__main__':
    HOST, TRUTH = (os.path.abspath(a) for a in sys.argv[1:3])
    host_case.main(2)
