#!/usr/bin/python3
"""file_sets_test.py HOST RECORDINGS [TEST ...]: recordings of several files, as the command-line host reads them."""
import ctypes
import glob
import json
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest

HOST = RECORDINGS = None
NAME = '200101_120000_Scanner_1'
MAIN = NAME + '.rxp'


def without_privileges():
    """Takes from a superuser's child what lets it read everything, so that modes count for it too."""
    if os.getuid() == 0:
        drop_from_bounding_set, dac_override, dac_read_search = 24, 1, 2
        libc = ctypes.CDLL(None)
        for capability in (dac_override, dac_read_search):
            libc.prctl(drop_from_bounding_set, capability, 0, 0, 0)


class FileSetTest(unittest.TestCase):
    recording = 'plain-32'

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.bytes = self.recorded(self.recording)

    def recorded(self, name):
        with open(os.path.join(RECORDINGS, name, MAIN), 'rb') as f:
            return f.read()

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content=b'', mode=0o644):
        with open(self.path(name), 'wb') as f:
            f.write(content)
        os.chmod(self.path(name), mode)

    def read(self, name):
        with open(self.path(name), 'rb') as f:
            return f.read()

    def host(self, *args, **more):
        return subprocess.run([HOST, *args], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              timeout=120, **more)

    def good(self, *args):
        p = self.host(*args)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p.stdout

    def convert(self, *args, code=0, **more):
        """The result of the one input, and the messages without the progress that a slow machine gets to see."""
        p = self.host('convert', '--json', '--fragment-size', '100', *args, **more)
        self.assertEqual(p.returncode, code, p.stderr)
        messages = [line for line in p.stderr.splitlines(True) if not re.search(r': \d+ %, ', line)]
        return json.loads(p.stdout)['results'][0], ''.join(messages)

    def split(self, content, cuts, prefixes=0, main=MAIN):
        """Writes the pieces between the cuts: first the prefixes, then the main file and its continuations."""
        stem = os.path.splitext(main)[0]
        names = ['common.rxo', stem + '.rxo'][:prefixes] + [main] + [main + '_%03d' % n for n in range(1, 100)]
        ends = sorted(cuts) + [len(content)]
        for name, begin, end in zip(names, [0] + ends, ends):
            self.write(name, content[begin:end])
        return names[:len(ends)]

    def remove_inputs(self):
        for f in glob.glob(self.path('*.rx*')):
            os.unlink(f)


class Split(FileSetTest):
    def check_recording(self, recording, seed):
        content = self.recorded(recording)
        self.write(MAIN, content)
        _, told = self.convert(MAIN)
        whole = self.read(NAME + '.k7')
        info = json.loads(self.good('info', '--json', MAIN))
        points = self.good('points', MAIN)
        chance = random.Random(seed)
        for files in range(1, 6):
            for prefixes in range(3):
                self.remove_inputs()
                names = self.split(content, [chance.randrange(len(content) + 1) for _ in range(files - 1 + prefixes)],
                                   prefixes)
                about = '%s, %s' % (recording, [(n, os.path.getsize(self.path(n))) for n in names])
                result, messages = self.convert(MAIN)
                self.assertEqual(result['files'], names, about)
                self.assertEqual((result['override'], result['unread_files'], messages), (None, [], told), about)
                self.assertEqual(result['bytes_in'], len(content), about)
                self.assertTrue(self.read(NAME + '.k7') == whole, about)
                part = json.loads(self.good('info', '--json', MAIN))
                self.assertEqual(part.pop('files'), names, about)
                self.assertEqual(part, {k: v for k, v in info.items() if k != 'files'}, about)
                self.assertEqual(self.good('points', MAIN), points, about)

    def test_plain_recording_converts_as_the_whole_file(self):
        self.check_recording('plain-32', 1)

    def test_packed_recording_converts_as_the_whole_file(self):
        self.check_recording('packed-plain', 2)

    def test_recording_with_waveforms_converts_as_the_whole_file(self):
        self.check_recording('waves-channel', 3)

    def test_cuts_inside_the_preamble_and_at_both_ends(self):
        self.write(MAIN, self.bytes)
        self.convert(MAIN)
        whole = self.read(NAME + '.k7')
        for cuts in ([0], [len(self.bytes)], [1, 2, 3], [15, 16, 17], [0, 0, 5, 5], [18, len(self.bytes) - 1]):
            self.remove_inputs()
            self.split(self.bytes, cuts)
            self.convert(MAIN)
            self.assertTrue(self.read(NAME + '.k7') == whole, cuts)

    def test_a_hundred_files(self):
        self.write(MAIN, self.bytes)
        self.convert(MAIN)
        whole = self.read(NAME + '.k7')
        self.split(self.bytes, range(100, 10000, 101))
        result, _ = self.convert(MAIN)
        self.assertEqual(len(result['files']), 100)
        self.assertTrue(self.read(NAME + '.k7') == whole)

    def test_main_file_without_an_extension_in_a_folder_with_a_dot(self):
        self.write('whole', self.bytes)
        self.convert('whole')
        os.mkdir(self.path('dir.v2'))
        # The stem is "dir": its prefixes stand beside the folder.
        self.write('common.rxo', self.bytes[:10])
        self.write('dir.rxo', self.bytes[10:999])
        self.write('dir.v2/scan', self.bytes[999:2000])
        self.write('dir.v2/scan_001', self.bytes[2000:])
        result, _ = self.convert('dir.v2/scan')
        self.assertEqual(result['files'], ['common.rxo', 'dir.rxo', 'dir.v2/scan', 'dir.v2/scan_001'])
        self.remove_inputs()
        self.convert('whole')
        self.assertTrue(self.read('scan.k7') == self.read('whole.k7'))

    def test_names_beyond_ascii(self):
        self.write(MAIN, self.bytes)
        self.convert(MAIN)
        main = '200101_120000_\u6e2c\u91cf.rxp'
        names = self.split(self.bytes, [1000, 7777], main=main)
        result, _ = self.convert(main)
        self.assertEqual(result['files'], names)
        self.assertTrue(self.read(main[:-4] + '.k7') == self.read(NAME + '.k7'))

    def test_split_in_a_time_range(self):
        self.write(MAIN, self.bytes)
        spans = json.loads(self.good('info', '--json', MAIN))['time']['pps']
        middle = (spans['first'] + spans['last']) / 2
        options = ('--time-range', '%r:%r' % (spans['first'] - 1, middle))
        self.convert(MAIN, *options)
        whole = self.read(NAME + '.k7')
        self.split(self.bytes, [4000, 9001])
        self.convert(MAIN, *options)
        self.assertTrue(self.read(NAME + '.k7') == whole)


class Summary(FileSetTest):
    def test_text_names_the_files_and_the_override(self):
        self.split(self.bytes, [100, 200, 3000, 4000, 5000], 2)
        self.write(NAME + '.pxp', b'')
        for command in (('convert',), ('info',), ('inspect', '--time-range', '0:1')):
            p = self.host(command[0], MAIN, *command[1:])
            lines = p.stdout.split('\n')
            shown = [l.split(None, 1)[1] for l in lines if l.startswith(('  files ', '  override '))]
            base = self.folder + '/' if command[0] == 'inspect' else ''
            self.assertEqual(shown, [', '.join(base + n for n in ('common.rxo', NAME + '.rxo', MAIN, MAIN + '_001'))
                                     + ' to ' + base + MAIN + '_003', base + NAME + '.pxp'], p.stdout)

    def test_a_single_file_is_named_once(self):
        self.write(MAIN, self.bytes)
        for command in ('convert', 'info'):
            text = self.good(command, MAIN)
            self.assertNotIn('  files', text)
            self.assertNotIn('  override', text)
            self.assertEqual(text.count(MAIN), 1)

    def test_json_names_the_override_of_first_choice(self):
        self.write(MAIN, self.bytes)
        self.write(NAME + '.override.pxp', b'')
        for name in (NAME + '.override.pxp', NAME + '.pxp'):
            self.write(name, b'')
            self.assertEqual(self.convert(MAIN)[0]['override'], name)
            self.assertEqual(json.loads(self.good('info', '--json', MAIN))['override'], name)

    def test_inspection_reads_the_whole_set(self):
        content = self.recorded('waves-channel')
        self.write(MAIN, content)
        options = ('--time-range', '0:1e9', '--json')
        whole = json.loads(self.host('inspect', MAIN, *options).stdout)['results'][0]
        self.assertGreater(whole['pdfs'], 0)
        self.split(content, [50000, 90001])
        part = json.loads(self.host('inspect', MAIN, *options).stdout)['results'][0]
        self.assertEqual(len(part['files']), 3)
        for key in ('pdfs', 'plots', 'shots', 'bytes_in'):
            self.assertEqual(part[key], whole[key])

    def test_continuation_given_as_input_is_a_file_of_its_own(self):
        self.write(MAIN, b'x' * 50)
        self.write(MAIN + '_001', self.bytes)
        self.write(MAIN + '_002', b'x' * 50)
        told = json.loads(self.good('info', '--json', MAIN + '_001'))
        self.assertEqual(told['files'], [MAIN + '_001'])
        self.assertEqual(told['bytes'], len(self.bytes))


class Overridden(FileSetTest):
    recording = 'override-values'

    def setUp(self):
        super().setUp()
        with open(os.path.join(RECORDINGS, self.recording, NAME + '.pxp'), 'rb') as f:
            self.write(NAME + '.pxp', f.read())
        self.write(MAIN, self.bytes)
        self.convert(MAIN)
        self.whole = self.read(NAME + '.k7')

    def test_cut_anywhere_in_the_header_is_corrected_as_the_whole_file(self):
        for cut in range(1, 160, 3):
            self.remove_inputs()
            self.split(self.bytes, [cut, cut + 1, cut + 40])
            result, _ = self.convert(MAIN)
            self.assertEqual(result['override'], NAME + '.pxp')
            self.assertTrue(self.read(NAME + '.k7') == self.whole, cut)

    def test_header_in_the_prefixes_is_corrected_too(self):
        for cuts in ([16, 500], [500, 900], [20, 24], [0, 18]):
            self.remove_inputs()
            self.split(self.bytes, cuts, 2)
            self.convert(MAIN)
            self.assertTrue(self.read(NAME + '.k7') == self.whole, cuts)

    def test_second_choice_corrects_as_the_first(self):
        os.rename(self.path(NAME + '.pxp'), self.path(NAME + '.override.pxp'))
        result, _ = self.convert(MAIN)
        self.assertEqual(result['override'], NAME + '.override.pxp')
        self.assertTrue(self.read(NAME + '.k7') == self.whole)

    def test_empty_first_choice_leaves_the_header_alone(self):
        os.rename(self.path(NAME + '.pxp'), self.path(NAME + '.override.pxp'))
        self.write('plain.rxp', self.bytes)
        self.convert('plain.rxp')
        self.write(NAME + '.pxp')
        result, _ = self.convert(MAIN)
        self.assertEqual(result['override'], NAME + '.pxp')
        self.assertTrue(self.read(NAME + '.k7') == self.read('plain.k7'))
        self.assertFalse(self.read(NAME + '.k7') == self.whole)


class Unread(FileSetTest):
    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o755)
        self.names = self.split(self.bytes, [1000, 3000, 9000, 12000], 1)

    def refuse(self, name):
        os.chmod(self.path(name), 0)

    def test_continuation_without_permission_ends_the_stream_and_is_told(self):
        self.refuse(MAIN + '_002')
        result, messages = self.convert(MAIN, code=4, preexec_fn=without_privileges)
        self.assertEqual(result['files'], self.names[:3])
        self.assertEqual(result['unread_files'], self.names[3:])
        self.assertIn(MAIN + '_002" belongs to the recording but was left out', messages)
        self.assertIn('ermission denied', messages)
        self.assertIn(MAIN + '_003" belongs to the recording but was left out: it follows', messages)
        self.assertEqual(result['bytes_in'], 9000)
        self.assertGreater(result['shots'], 0)
        self.assertEqual([(l['count'], l['first_offset']) for l in result['losses'] if l['name'] == 'unread files'],
                         [(2, 9000)])

    def test_rows_before_an_unread_continuation_are_those_of_the_files_before_it(self):
        self.refuse(MAIN + '_001')
        self.convert(MAIN, code=4, preexec_fn=without_privileges)
        cut = self.read(NAME + '.k7')
        for n in (1, 2, 3):
            os.unlink(self.path(MAIN + '_%03d' % n))
        result, messages = self.convert(MAIN)
        self.assertEqual((result['unread_files'], messages), ([], ''))
        self.assertTrue(self.read(NAME + '.k7') == cut)

    def test_override_without_permission_is_told(self):
        self.write(NAME + '.pxp', b'{}', 0)
        result, messages = self.convert(MAIN, code=4, preexec_fn=without_privileges)
        self.assertEqual((result['override'], result['unread_files']), (None, [NAME + '.pxp']))
        self.assertIn(NAME + '.pxp" belongs to the recording but was left out', messages)
        self.assertEqual(result['bytes_in'], len(self.bytes))

    def test_info_points_and_inspect_tell_it_too(self):
        self.refuse(MAIN + '_002')
        for command in (('info',), ('points',), ('inspect', '--time-range', '0:1')):
            p = self.host(command[0], MAIN, *command[1:], preexec_fn=without_privileges)
            self.assertEqual(p.returncode, 4, p.stderr)
            self.assertIn(MAIN + '_002" belongs to the recording but was left out', p.stderr)
            self.assertIn('ermission denied', p.stderr)

    def test_many_unread_files_take_few_lines(self):
        self.remove_inputs()
        self.split(self.bytes, range(1000, 3000, 100))
        self.refuse(MAIN + '_001')
        _, messages = self.convert(MAIN, code=4, preexec_fn=without_privileges)
        self.assertEqual(messages.count('was left out'), 5)
        self.assertIn('15 more files were left out', messages)

    def test_folders_and_pipes_beside_the_recording_are_no_part_of_it(self):
        os.mkdir(self.path(NAME + '.pxp'))
        os.mkfifo(self.path(NAME + '.rxo'))
        os.mkfifo(self.path(MAIN + '_004'))
        result, messages = self.convert(MAIN)
        self.assertEqual((result['files'], result['override'], messages), (self.names, None, ''))

    def test_override_text_beyond_all_measure_is_refused(self):
        self.write(NAME + '.pxp')
        os.truncate(self.path(NAME + '.pxp'), 1 << 32)
        result, messages = self.convert(MAIN, code=3)
        self.assertLess(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, 1 << 20, 'KiB')
        self.assertIn('larger than 16777216 bytes', result['text'])
        self.assertIn(NAME + '.pxp', messages)
        self.assertFalse(glob.glob(self.path('*.k7*')))


class Refused(FileSetTest):
    def test_output_in_place_of_any_file_of_the_set(self):
        names = self.split(self.bytes, [1000, 3000, 9000], 2)
        self.write(NAME + '.pxp')
        for name in names + [NAME + '.pxp']:
            before = self.read(name)
            p = self.host('points', MAIN, '-o', name)
            self.assertEqual(p.returncode, 2, name)
            os.link(self.path(name), self.path(NAME + '.k7'))
            p = self.host('convert', MAIN)
            self.assertEqual(p.returncode, 2, name)
            self.assertIn('overwrite', p.stderr)
            self.assertIn(name, p.stderr)
            os.unlink(self.path(NAME + '.k7'))
            self.assertEqual(self.read(name), before)

    def test_output_in_place_of_a_file_of_another_input(self):
        self.write('first.rxp', self.bytes)
        self.write('second.rxp', self.bytes[:5000])
        self.write('second.rxp_001', self.bytes[5000:])
        os.symlink('second.rxp_001', self.path('first.k7'))
        p = self.host('convert', 'first.rxp', 'second.rxp')
        self.assertEqual(p.returncode, 2)
        self.assertIn('"second.rxp_001", which belongs to the input "second.rxp"', p.stderr)
        self.assertEqual(self.read('second.rxp_001'), self.bytes[5000:])

    def test_continuation_beside_its_main_file_would_be_written_over_it(self):
        self.split(self.bytes, [1000])
        for inputs in ((MAIN, MAIN + '_001'), (MAIN + '_001', MAIN)):
            p = self.host('convert', *inputs)
            self.assertEqual(p.returncode, 2)
            self.assertIn('"%s_001" is read as part of "%s"' % (MAIN, MAIN), p.stderr)


if __name__ == '__main__':
    HOST, RECORDINGS = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
