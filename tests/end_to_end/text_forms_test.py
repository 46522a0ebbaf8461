#!/usr/bin/python3
"""text_forms_test.py HOST RECORDINGS [TEST ...]: recordings as text, and text as recordings, as users of the host meet them."""
import glob
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import rxp_words  # noqa: E402

HOST = RECORDINGS = None
PLAIN = 'plain-32'
NAMED_LINE = re.compile(r'^(\w+) \((\d+)\.(\d+)\)')


class TextTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def host(self, *args, **more):
        p = subprocess.run([HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           timeout=120, **more)
        self.assertGreaterEqual(p.returncode, 0, 'ended by signal %d' % -p.returncode)
        return p

    def good(self, *args, **more):
        p = self.host(*args, **more)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, data):
        with open(self.path(name), 'wb') as f:
            f.write(data if isinstance(data, bytes) else data.encode())
        return self.path(name)

    def read(self, name):
        with open(self.path(name), 'rb') as f:
            return f.read()

    def recording(self, name):
        return glob.glob(os.path.join(RECORDINGS, name, '*.rxp'))[0]

    def lines(self, name, *options):
        return self.good('dump', self.recording(name), *options).stdout.decode().splitlines()


def single_recordings():
    """All that are one file and begin with the preamble."""
    found = []
    for path in sorted(glob.glob(os.path.join(RECORDINGS, '*', '*.rxp'))):
        stem = os.path.splitext(path)[0]
        with open(path, 'rb') as f:
            data = f.read()
        if glob.glob(stem + '.*') == [path] and data[:16] == open_plain()[:16]:
            found.append((path, data))
    return found


def open_plain():
    with open(glob.glob(os.path.join(RECORDINGS, PLAIN, '*.rxp'))[0], 'rb') as f:
        return f.read()


class RoundTrip(TextTest):
    def assembled(self, path, *options):
        text = self.host('dump', path, *options).stdout
        p = self.host('assemble', '-', 'again.rxp', input=text)
        self.assertEqual(p.returncode, 0, p.stderr)
        return rxp_words.packets(self.read('again.rxp'))

    def test_every_recording_comes_back_packet_for_packet(self):
        recordings = single_recordings()
        self.assertGreater(len(recordings), 25)
        for path, data in recordings:
            for options in (['--lossless'], ['--lossless', '--numeric']):
                with self.subTest(path=path, options=options):
                    self.assertEqual(self.assembled(path, *options), rxp_words.packets(data))

    def test_file_sets_and_corrected_recordings_come_back_as_they_are_read(self):
        compared = 0
        for path in sorted(glob.glob(os.path.join(RECORDINGS, '*', '*.rxp'))):
            text = self.host('dump', path, '--lossless').stdout
            if path not in dict(single_recordings()) and text:
                with self.subTest(path=path):
                    self.good('assemble', '-', 'again.rxp', input=text)
                    self.assertEqual(self.good('dump', 'again.rxp', '--lossless').stdout, text)
                    compared += 1
        self.assertGreater(compared, 5)

    def test_without_lossless_recordings_of_covered_kinds_come_back(self):
        compared = 0
        for path, data in single_recordings():
            if self.host('dump', path).stdout == self.host('dump', path, '--lossless').stdout:
                for options in ([], ['--numeric']):
                    with self.subTest(path=path, options=options):
                        self.assertEqual(self.assembled(path, *options), rxp_words.packets(data))
                        compared += 1
        self.assertGreater(compared, 30)

    def test_a_recording_cut_behind_any_word_comes_back(self):
        data = open_plain()
        chance = random.Random(1)
        for n in [16, 20, 24] + [chance.randrange(16, len(data)) // 4 * 4 for _ in range(30)]:
            path = self.write('cut.rxp', data[:n])
            with self.subTest(n=n):
                self.assertEqual(self.assembled(path, '--lossless'), rxp_words.packets(data[:n]))

    def test_packets_of_odd_pairs_and_lengths_come_back(self):
        text = ('unknown (200.5), 0x1, 0xffffffff, 0xffffff00\n'  # no kind, escaped words
                'unknown (0.7)\n'                                  # a short code that no header assigns
                'unknown (10.2), 0x1\n'                            # shorter than its kind
                'unknown (1.0), 0x1\n'                             # a header that ends before its sequence
                'crc32_check (50.0), 65, 6992008, 3324848783\n'
                'void_data (65535.65535)\n'
                'unknown (10.2), 0x1, 0x2, 0x3, 0\n')              # longer than its kind
        self.write('odd.txt', text)
        self.good('assemble', 'odd.txt', 'odd.rxp')
        self.assertEqual([p[:2] for p in rxp_words.packets(self.read('odd.rxp'))],
                         [(200, 5), (0, 7), (10, 2), (1, 0), (50, 0), (65535, 65535), (10, 2)])
        self.assertEqual(self.good('dump', 'odd.rxp', '--lossless').stdout.decode(), text)

    def test_an_assembled_recording_has_the_short_heads_of_its_header(self):
        self.write('a.txt', 'laser_shot (10.0), 1\n'
                            'header (1.0), "A", "B", "C", [{0, 10}, {0, 42}]\n'
                            'laser_shot (10.0), 2\nheader_ext (43.0), []\n')
        self.good('assemble', 'a.txt', 'a.rxp')
        starts = [f[0] & 0xFF for f in rxp_words.frames(self.read('a.rxp'))]
        self.assertEqual(starts, [255, 255, 1, 255])

    def test_forms_may_change_from_line_to_line(self):
        self.write('mixed.txt', '10, 0, 5\n\n   \nlaser_shot (10.0), 6\r\n43, 0, 2, 10\nunknown (10.0), 0x7')
        self.good('assemble', 'mixed.txt', 'mixed.rxp')
        self.assertEqual(rxp_words.packets(self.read('mixed.rxp')),
                         [(10, 0, [5]), (10, 0, [6]), (43, 0, [10 << 16 | 2]), (10, 0, [7])])


class Dump(TextTest):
    def test_lines_are_those_of_another_program(self):
        for name, options in (('lines.txt', []), ('lines-numeric.txt', ['--numeric'])):
            with open(os.path.join(RECORDINGS, 'all-kinds', name)) as f:
                wanted = f.read().splitlines()
            self.assertEqual(len(wanted), 200)
            self.assertLessEqual(set(wanted), set(self.lines('all-kinds', *options)))

    def test_every_packet_is_one_line(self):
        for name in (PLAIN, 'shot-echo', 'all-kinds'):
            with open(self.recording(name), 'rb') as f:
                wanted = [p[:2] for p in rxp_words.packets(f.read())]
            pairs = [tuple(int(n) for n in NAMED_LINE.match(line).groups()[1:]) for line in self.lines(name)]
            self.assertEqual(pairs, wanted)

    def test_kinds_select_by_the_pair_of_the_recording(self):
        everything = self.lines(PLAIN)
        for kinds in ('echo', 'units_3,echo', 'header', 'unknown'):
            wanted = [line for line in everything if line.split(' ')[0] in kinds.split(',')]
            self.assertTrue(wanted)
            self.assertEqual(self.lines(PLAIN, '--kinds', kinds), wanted)
        self.assertIn('laser_shot_2angles (10.2)', ''.join(everything))
        self.assertEqual(self.lines(PLAIN, '--kinds', 'laser_shot'), [])

    def test_unknown_kinds_are_selected_by_that_name(self):
        self.write('a.txt', 'unknown (9.0), 0x1\nlaser_shot (10.0), 1\nunknown (10.3)\n')
        self.good('assemble', 'a.txt', 'a.rxp')
        self.assertEqual(self.good('dump', 'a.rxp', '--kinds', 'unknown').stdout.decode(),
                         'unknown (9.0), 0x1\nunknown (10.3)\n')

    def test_tags_select_their_kinds(self):
        everything = self.lines(PLAIN)
        self.assertEqual(self.lines(PLAIN, '--tags', 'all'), everything)
        self.assertEqual(self.lines(PLAIN, '--tags', 'none'), [])
        shots = [line for line in everything if line.startswith('laser_shot')]
        starts = [line for line in self.lines(PLAIN, '--tags', 'startcond') if line.startswith('laser_shot')]
        self.assertTrue(shots)
        self.assertEqual(starts, shots)
        both = self.lines(PLAIN, '--tags', 'protocol,attribute')
        self.assertEqual([l for l in everything if l in set(both)], both)
        self.assertTrue(both)

    def test_limit_ends_after_so_many_lines(self):
        everything = self.lines(PLAIN)
        for n in (0, 1, 7):
            self.assertEqual(self.lines(PLAIN, '--limit', n), everything[:n])
        self.assertEqual(self.lines(PLAIN, '--limit', 3, '--kinds', 'echo'),
                         [line for line in everything if line.startswith('echo ')][:3])

    def test_wrong_usage_exits_2_and_says_why(self):
        for options in (['--kinds', 'laser_shoot'], ['--kinds', ''], ['--tags', 'Data'], ['--limit', '-1'], ['--limit', '1x'],
                        ['--kinds', 'echo', '--tags', 'data'], ['--colour']):
            p = self.host('dump', self.recording(PLAIN), *options)
            self.assertEqual(p.returncode, 2, options)
            self.assertNotEqual(p.stderr, b'')
            self.assertEqual(p.stdout, b'')
        self.assertIn(b'laser_shoot', self.host('dump', self.recording(PLAIN), '--kinds', 'laser_shoot').stderr)

    def test_a_missing_recording_exits_3_and_a_damaged_one_4(self):
        p = self.host('dump', 'nowhere.rxp')
        self.assertEqual(p.returncode, 3)
        self.assertIn(b'nowhere.rxp', p.stderr)
        data = open_plain()
        half = len(data) // 8 * 4
        p = self.host('dump', self.write('damaged.rxp', data[:half] + b'\xff' * 3))
        self.assertEqual(p.stdout.decode().splitlines()[0], self.lines(PLAIN)[0])
        self.assertIn(b'ended inside a 32-bit word', p.stderr)
        p = self.host('dump', self.write('noise.rxp', b'x' * 5000))
        self.assertEqual((p.returncode, p.stdout), (4, b''))
        self.assertIn(b'Bad preamble', p.stderr)

    def test_a_full_disk_exits_5(self):
        with open('/dev/full', 'wb') as full:
            p = subprocess.run([HOST, 'dump', self.recording(PLAIN)], stdout=full, stderr=subprocess.PIPE, timeout=60)
        self.assertEqual(p.returncode, 5)
        self.assertIn(b'standard output', p.stderr)


class Assemble(TextTest):
    BAD = (('hello', 'no name and numbers'),
           ('laser_shot (10.1), 1', 'no name and numbers'),
           ('\x00\x01\xff', 'no name and numbers'),
           ('laser_shot (10.0)', 'the fields of laser_shot (10.0)'),
           ('laser_shot (10.0), one', 'the fields of laser_shot (10.0) cannot be read at column 20'),
           ('laser_shot (10.0), "1"', 'the fields of laser_shot (10.0)'),
           ('laser_shot (10.0), 4294967296', 'the fields of laser_shot (10.0)'),
           ('laser_shot (10.0), -1', 'the fields of laser_shot (10.0)'),
           ('laser_shot (10.0), 1.5', 'text behind the last field of laser_shot (10.0) at column 21'),
           ('laser_shot (10.0), 1, 2', 'text behind the last field'),
           ('notch_filter (84.0), nan, 1, 1', 'the fields of notch_filter (84.0)'),
           ('notch_filter (84.0), 1e39, 1, 1', 'the fields of notch_filter (84.0)'),
           ('header (1.0), "A, "B", "C", []', 'the fields of header (1.0)'),
           ('header (1.0), "A", "B", "C', 'the fields of header (1.0)'),
           ('header (1.0), "A", "B", "C", [{1, 2}', 'the fields of header (1.0)'),
           ('json_parameters (155.0), 1, "never ends', 'the fields of json_parameters (155.0)'),
           ('unknown (10.2), 0x1, what', 'the fields of laser_shot_2angles (10.2)'),
           ('unknown (10.2) 0x1', 'text behind the last field'),
           ('unknown (10.2), 0x100000000', 'the fields of'),
           ('unknown (65536.0)', 'too large for a recording'),
           ('9, 65536', 'too large for a recording'),
           ('blob_uint32 (58.0), 1, [' + '1, ' * 1048577 + ']', 'the fields of blob_uint32 (58.0)'),
           ('unknown (9.0)' + ', 0' * 1048575, 'too long for a recording'))

    def test_a_bad_line_is_told_with_its_number_and_cause(self):
        for text, cause in self.BAD:
            with self.subTest(text=text[:60]):
                self.write('bad.txt', '10, 0, 1\n\n' + text + '\n10, 0, 2\n')
                p = self.host('assemble', 'bad.txt', 'bad.rxp')
                self.assertEqual(p.returncode, 4)
                self.assertIn('"bad.txt", line 3: ', p.stderr.decode())
                self.assertIn(cause, p.stderr.decode())

    def test_what_stands_before_a_bad_line_is_stored_and_told(self):
        self.write('bad.txt', '10, 0, 1\n10, 0, 2\nbad\n10, 0, 3\n')
        p = self.host('assemble', 'bad.txt', 'bad.rxp')
        self.assertEqual(p.returncode, 4)
        self.assertIn(b'the 2 packets', p.stderr)
        self.assertEqual(rxp_words.packets(self.read('bad.rxp')), [(10, 0, [1]), (10, 0, [2])])

    def test_text_without_any_packet_leaves_an_earlier_output(self):
        self.write('old.rxp', 'precious')
        p = self.host('assemble', self.recording(PLAIN), 'old.rxp')
        self.assertEqual(p.returncode, 3)
        self.assertIn(b'line 1', p.stderr)
        self.assertEqual(self.read('old.rxp'), b'precious')
        self.assertEqual(os.listdir(self.folder), ['old.rxp'])

    def test_no_lines_make_an_empty_recording(self):
        self.write('empty.txt', '')
        self.good('assemble', 'empty.txt', 'empty.rxp')
        self.assertEqual(self.read('empty.rxp'), open_plain()[:16])
        self.assertEqual(self.good('dump', 'empty.rxp').stdout, b'')

    def test_a_line_without_end_takes_bounded_memory(self):
        for head in (b'', b'json_parameters (155.0), 1, "'):
            path = self.write('long.txt', head)
            os.truncate(path, 1 << 30)
            p = subprocess.Popen([HOST, 'assemble', path, self.path('long.rxp')], stderr=subprocess.PIPE)
            error = p.stderr.read().decode()
            p.stderr.close()
            _, status, usage = os.wait4(p.pid, 0)
            p.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(p.returncode, 3, error)
            self.assertIn('line 1: longer than 33554432 characters', error)
            self.assertLess(usage.ru_maxrss, 400 * 1024)

    def test_standard_input_and_output(self):
        text = self.good('dump', self.recording(PLAIN)).stdout
        p = self.good('assemble', '-', '-', input=text)
        self.assertEqual(rxp_words.packets(p.stdout), rxp_words.packets(open_plain()))
        self.assertEqual(p.stderr, b'')

    def test_input_that_cannot_be_read_exits_3(self):
        for name, word in (('nowhere.txt', b'No such file'), ('.', b'directory')):
            p = self.host('assemble', name, 'out.rxp')
            self.assertEqual(p.returncode, 3)
            self.assertIn(word, p.stderr)
            self.assertEqual(os.listdir(self.folder), [])

    def test_output_that_cannot_be_written_exits_5_and_leaves_nothing(self):
        self.write('a.txt', '10, 0, 1\n' * 1000)
        p = self.host('assemble', 'a.txt', os.path.join('absent', 'out.rxp'))
        self.assertEqual(p.returncode, 5)
        self.assertIn(b'absent', p.stderr)
        self.write('out.rxp', 'precious')
        p = self.host('assemble', 'a.txt', 'out.rxp',
                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000)))
        self.assertEqual(p.returncode, 5, p.stderr)
        self.assertIn(b'out.rxp', p.stderr)
        self.assertEqual(self.read('out.rxp'), b'precious')
        self.assertEqual(sorted(os.listdir(self.folder)), ['a.txt', 'out.rxp'])
        p = self.host('assemble', 'a.txt', '/dev/full')
        self.assertEqual(p.returncode, 5)
        self.assertTrue(os.path.exists('/dev/full') and not os.path.isfile('/dev/full'))

    def test_output_over_the_input_is_refused(self):
        self.write('a.txt', '10, 0, 1\n')
        p = self.host('assemble', 'a.txt', os.path.join('.', 'a.txt'))
        self.assertEqual(p.returncode, 2)
        self.assertEqual(self.read('a.txt'), b'10, 0, 1\n')


def main():
    global HOST, RECORDINGS
    HOST, RECORDINGS = (os.path.abspath(a) for a in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])


if __name__ == '__main__':
    main()
