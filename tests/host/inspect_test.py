#!/usr/bin/python3
"""inspect_test.py HOST [TEST ...]: `rxp2k7 inspect` as its users meet it: pages, exit codes, JSON, messages."""
import glob
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zlib

import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

HOST = None
RECORDINGS = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'data', 'recordings')
GREATEST_AMPLITUDE = 2600  # of the page


def recording(name, what='*.rxp'):
    return os.path.abspath(glob.glob(os.path.join(RECORDINGS, name, what))[0])


def content_of(pdf):
    """The drawing operators of the page."""
    for m in re.finditer(rb'stream\r?\n(.*?)endstream', pdf, re.S):
        try:
            text = zlib.decompress(m[1])
        except zlib.error:
            continue
        if b' re' in text:
            return text.decode('latin-1').split()
    raise AssertionError('no page content')


def drawn(pdf):
    """What the page shows: the frame as (left, bottom, width, height), and the line in colour as a list of runs."""
    stack, line, frame, colour, height = [], [], None, (0, 0, 0), None
    for word in content_of(pdf):
        if re.fullmatch(r'-?[0-9.]+', word):
            stack.append(float(word))
            continue
        if word == 'cm' and height is None:
            height = stack[-1]
        elif word == 'RG':
            colour = stack[-3:]
        elif word == 're':
            x, y, w, h = stack[-4:]
            frame = (x, height - y - h, w, h) if w > 100 else frame
        elif word in 'ml' and len(set(colour)) > 1:
            if word == 'm':
                line.append([])
            line[-1].append((stack[-2], height - stack[-1]))
        stack = []
    return frame, line


def samples_of(pdf, count):
    """The samples that the line on the page stands for."""
    (left, bottom, width, height), runs = drawn(pdf)
    points = np.array([p for run in runs for p in run])
    bins = (points[:, 0] - left) / width * (count - 1)
    return bins, (points[:, 1] - bottom) / height * GREATEST_AMPLITUDE


class InspectTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def host(self, *args):
        return subprocess.run([HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=120)

    def inspect(self, *args, code=0):
        p = self.host('inspect', *args, '--json')
        if code is not None:
            self.assertEqual(p.returncode, code, p.stderr)
        result, = json.loads(p.stdout)['results']
        self.assertEqual(result['exit_code'], p.returncode)
        return result

    def pdfs(self, folder='.'):
        return sorted(n for n in os.listdir(os.path.join(self.folder, folder)) if n.endswith('.pdf'))

    def read(self, name):
        with open(os.path.join(self.folder, name), 'rb') as f:
            return f.read()


class Pages(InspectTest):
    def last_waveforms(self):
        """Time -> samples of the last waveform of each shot, as a conversion stores them. What the reference K7 of the
        recording holds of them is the same."""
        self.assertEqual(self.host('convert', recording('waves-parameters'), '--waveform-length', 500).returncode, 0)
        name = os.path.basename(recording('waves-parameters')).replace('.rxp', '.k7')
        whole = k7.columns(os.path.join(self.folder, name), 'Waveforms')
        reference = k7.columns(recording('waves-parameters', 'expected.k7'), 'Waveforms')
        self.assertEqual(len(whole['GPSTime']), len(reference['GPSTime']))
        for n, cut, samples in zip(reference['FWFLength'], reference['Waveforms'], whole['Waveforms']):
            self.assertEqual(list(cut[:n]), list(samples[:n]))
        return {t: w[:n] for t, n, w in zip(whole['GPSTime'], whole['FWFLength'], whole['Waveforms'])}

    def test_line_on_each_page_is_the_last_waveform_of_its_shot(self):
        result = self.inspect(recording('waves-parameters'), '--time-range', '43202:43202.0005')
        times = {float(n[len('GPSTime[s]'):-len('.pdf')]): n for n in self.pdfs()}
        self.assertEqual(result['pdfs'], len(times))
        expected = {t: w for t, w in self.last_waveforms().items() if 43202 <= t <= 43202.0005}
        self.assertEqual(len(times), len(expected))
        compared = 0
        for (time, name), (t, samples) in zip(sorted(times.items()), sorted(expected.items())):
            self.assertAlmostEqual(time, t, delta=1e-9)
            if samples.max() > GREATEST_AMPLITUDE:
                continue
            bins, amplitudes = samples_of(self.read(name), len(samples))
            # Samples in line with their neighbours may be left out.
            np.testing.assert_allclose(bins, np.round(bins), atol=0.01)
            np.testing.assert_allclose(np.interp(np.arange(len(samples)), bins, amplitudes), samples, atol=0.3)
            self.assertGreater(len(bins), len(samples) / 2)
            compared += 1
        self.assertGreater(compared, 20)

    def test_line_never_leaves_the_frame(self):
        self.inspect(recording('waves-channel'), '--time-range', '43202:43202.0005')
        cut = 0
        for name in self.pdfs():
            (left, bottom, width, height), runs = drawn(self.read(name))
            for x, y in (p for run in runs for p in run):
                self.assertTrue(left - 0.01 <= x <= left + width + 0.01 and bottom - 0.01 <= y <= bottom + height + 0.01)
            cut += len(runs) > 1
        self.assertGreater(cut, 0)  # compressed words are far beyond the range

    def test_page_size_title_and_embedded_fonts(self):
        self.inspect(recording('waves-parameters'), '--time-range', '43202:43202.0001')
        path = os.path.join(self.folder, self.pdfs()[0])
        time = self.pdfs()[0][len('GPSTime[s]'):-len('.pdf')]
        ask = lambda *command: subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout  # noqa: E731
        self.assertIn('850.394 x 226.772 pts', ask('pdfinfo', path))
        self.assertIn('GSPTime[s]: %s dt[ns]: 0.9999999717180685' % time, ask('pdftotext', '-layout', path, '-'))
        fonts = ask('pdffonts', path).splitlines()
        column = fonts[0].index('emb')
        self.assertGreater(len(fonts), 2)
        self.assertEqual({f[column:column + 3] for f in fonts[2:]}, {'yes'})

    def test_reruns_are_byte_identical(self):
        args = recording('waves-channel'), '--time-range', '43202:43202.0002'
        self.inspect(*args)
        first = {n: self.read(n) for n in self.pdfs()}
        self.inspect(*args)
        self.assertEqual({n: self.read(n) for n in self.pdfs()}, first)
        self.assertTrue(first)


class Summary(InspectTest):
    def test_pages_go_to_the_output_folder_and_a_relative_input_is_found(self):
        shutil.copy(recording('waves-parameters'), os.path.join(self.folder, 'scan.rxp'))
        os.mkdir(os.path.join(self.folder, 'out'))
        result = self.inspect('scan.rxp', '--time-range', '43202:43202.0001', '--out-dir', 'out')
        self.assertEqual(len(self.pdfs('out')), result['pdfs'])
        self.assertGreater(result['pdfs'], 0)
        self.assertEqual(self.pdfs(), [])
        self.assertEqual((result['input'], result['output']), ('scan.rxp', 'out'))

    def test_json_counts_shots_records_and_pages(self):
        result = self.inspect(recording('waves-parameters'), '--time-range', '43202:43203')
        self.assertEqual(result['shots'], 400)
        self.assertEqual(result['text'], '')
        self.assertEqual(result['pdfs'], len(self.pdfs()))
        self.assertEqual(result['plots'], result['pdfs'] + result['replaced_plots'])
        self.assertGreaterEqual(result['shots_in_range'], result['pdfs'])
        self.assertEqual(result['failed_plots'], 0)
        self.assertIsNone(result['stopped_at'])
        self.assertEqual(result['bytes_in'], os.path.getsize(recording('waves-parameters')))
        self.assertIn('last packet', [loss['name'] for loss in result['losses']])

    def test_shots_at_the_bounds_are_drawn(self):
        span = self.inspect(recording('waves-parameters'), '--time-range', '0:1', code=4)['time']
        for bound in (span['first'], span['last']):
            result = self.inspect(recording('waves-parameters'), '--time-range', '%r:%r' % (bound, bound), code=None)
            self.assertEqual(result['shots_in_range'], 1)

    def test_summary_names_what_was_drawn(self):
        p = self.host('inspect', recording('waves-channel'), '--time-range', '43202:43202.0001')
        self.assertEqual(p.returncode, 0, p.stderr)
        self.assertRegex(p.stdout, r'PDFs +%d\n' % len(self.pdfs()))
        for word in ('shots', 'records', 'replaced', 'compressed', 'bytes', 'loss'):
            self.assertIn('  ' + word, p.stdout)


class Failures(InspectTest):
    def test_wrong_usage_exits_2_and_draws_nothing(self):
        for ending in ([], ['--time-range', '1'], ['--time-range', '2:1'], ['--time-range', 'nan:1'],
                       ['--time-range', '1:2x'], ['--time-range', '1:2', '--fast']):
            p = self.host('inspect', recording('waves-channel'), *ending)
            self.assertEqual(p.returncode, 2, ending)
            self.assertNotEqual(p.stderr, '')
            self.assertEqual(p.stdout, '')
        self.assertEqual(self.host('inspect', '--time-range', '1:2').returncode, 2)
        self.assertEqual(os.listdir(self.folder), [])

    def test_range_without_shots_exits_4_and_tells_the_span_of_the_stream(self):
        result = self.inspect(recording('waves-subpackages'), '--time-range', '0:1', code=4)
        self.assertEqual(result['text'], 'nothing to draw: no shot lies within 0 s to 1 s; the shots with waveforms '
                                         'run from 43202 s to 43202.00399 s')
        p = self.host('inspect', recording('waves-subpackages'), '--time-range', '0:1')
        self.assertIn(result['text'], p.stderr)

    def test_stream_without_waveforms_exits_4_and_says_so(self):
        result = self.inspect(recording('plain-32'), '--time-range', '0:1e9', code=4)
        self.assertEqual(result['text'], 'nothing to draw: the stream holds no waveforms of shots with a time')

    def test_shots_without_waveforms_exit_4_and_are_counted(self):
        whole = self.inspect(recording('waves-subpackages'), '--time-range', '0:1e9')
        self.assertLess(whole['pdfs'], whole['shots_in_range'])
        drawn_times = {float(n[len('GPSTime[s]'):-len('.pdf')]) for n in self.pdfs()}
        shots = k7.columns(recording('waves-subpackages', 'expected.k7'), 'Shots')['GPSTime']
        bare = next(t for t in shots if min(abs(t - d) for d in drawn_times) > 1e-6)
        result = self.inspect(recording('waves-subpackages'), '--time-range', '%r:%r' % (bare - 1e-6, bare + 1e-6), code=4)
        self.assertRegex(result['text'], '^nothing to draw: none of the 1 shots within .* has waveforms$')

    def test_unreadable_input_exits_3_and_is_named(self):
        for name in ('missing.rxp', '.'):
            p = self.host('inspect', name, '--time-range', '0:1')
            self.assertEqual(p.returncode, 3)
            self.assertIn('cannot read "%s"' % name, p.stderr)

    def test_damaged_input_exits_4_and_says_why(self):
        result = self.inspect(recording('bad-preamble'), '--time-range', '0:1e9', code=4)
        self.assertRegex(result['text'], '^inspectFWFs: .')
        self.assertIsNotNone(result['stopped_at'])

    def test_output_folder_that_is_none_exits_5(self):
        open(os.path.join(self.folder, 'file'), 'w').close()
        for folder, reason in {'no': 'no such directory', 'file': 'it is not a directory'}.items():
            p = self.host('inspect', recording('waves-channel'), '--time-range', '0:1e9', '--out-dir', folder)
            self.assertEqual(p.returncode, 5)
            self.assertIn('cannot write to "%s": %s' % (folder, reason), p.stderr)

    def test_pages_that_cannot_be_written_exit_5_and_the_others_are_drawn(self):
        args = recording('waves-parameters'), '--time-range', '43202:43202.0001'
        self.inspect(*args)
        names = self.pdfs()
        for name in names:
            os.remove(os.path.join(self.folder, name))
        os.mkdir(os.path.join(self.folder, names[1]))
        result = self.inspect(*args, code=5)
        self.assertEqual(result['pdfs'], len(names) - 1)
        self.assertGreater(result['failed_plots'], 0)
        p = self.host('inspect', *args)
        self.assertIn('%d plots could not be written' % result['failed_plots'], p.stderr)
        self.assertIn(names[1], p.stderr)
        self.assertIn('Is a directory', p.stderr)

    def test_full_standard_output_exits_5(self):
        with open('/dev/full', 'w') as full:
            p = subprocess.run([HOST, 'inspect', recording('waves-parameters'), '--time-range', '43202:43202.0001'],
                               cwd=self.folder, stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(p.returncode, 5)


if __name__ == '__main__':
    HOST = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
