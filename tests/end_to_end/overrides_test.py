#!/usr/bin/python3
"""overrides_test.py HOST RECORDINGS TEST...: override texts as a user of the command-line host meets them."""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

HOST = RECORDINGS = None
NAME = '200101_120000_Scanner_1'


class OverrideTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def host(self, *args, code=0, **more):
        p = subprocess.run([HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True, timeout=120, **more)
        self.assertEqual(p.returncode, code, p.stderr)
        return p

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, data):
        with open(self.path(name), 'wb') as f:
            f.write(data if isinstance(data, bytes) else data.encode())
        return name

    def read(self, name):
        with open(self.path(name), 'rb') as f:
            return f.read()

    def take(self, recording, pxp='edit.pxp'):
        """Copies a recording, and its override text under another name, so that it is not found by itself."""
        source = os.path.join(RECORDINGS, recording, NAME)
        shutil.copy(source + '.rxp', self.path('scan.rxp'))
        if os.path.exists(source + '.pxp'):
            shutil.copy(source + '.pxp', self.path(pxp))

    def check(self, *args, code=0):
        return json.loads(self.host('check-override', *args, '--json', code=code).stdout)

    def entries(self, text):
        return self.write('edit.pxp', json.dumps({'packets': text}))


def existing(pair, content=()):
    return {'ID': list(pair), 'contentID': [list(c) for c in content]}


def starts(stream):
    """Offsets of the frames."""
    words = struct.unpack('<%dI' % (len(stream) // 4), stream)
    at, found = 4, []
    while at < len(words):
        if words[at] == 0xFFFFFF00:
            at += 1
        elif words[at] > 0xFFFFFF00:
            found.append(4 * at)
        at += 1
    return found


class Written(OverrideTest):
    def same_as_expected(self, recording):
        self.take(recording)
        self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp')
        with open(os.path.join(RECORDINGS, recording, 'options.json')) as f:
            o = json.load(f)
        self.host('convert', 'out.rxp', '--fragment-size', o['fragment_size'], '--waveform-length', o['waveform_length'])
        expected = os.path.join(RECORDINGS, recording, 'expected.k7')
        self.assertEqual(k7.differences(expected, self.path('out.k7')), [])
        plain = json.loads(self.host('convert', 'scan.rxp', '--json', '--fragment-size', o['fragment_size'],
                                     '--waveform-length', o['waveform_length']).stdout)['results'][0]
        self.assertEqual(plain['text'], '')
        self.assertNotEqual(k7.differences(expected, self.path('scan.k7')), [], 'the text changes nothing')

    def test_values_show_in_the_k7(self):
        self.same_as_expected('override-values')

    def test_deleted_and_appended_packets_show_in_the_k7(self):
        self.same_as_expected('override-verified')

    def test_both_headers_show_in_the_k7(self):
        self.same_as_expected('two-headers')

    def test_all_behind_the_header_region_is_the_same(self):
        self.take('override-values')
        self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp')
        before, after = self.read('scan.rxp'), self.read('out.rxp')
        common = 0
        while common < min(len(before), len(after)) and before[-1 - common] == after[-1 - common]:
            common += 1
        # Some way behind the header and the tables, all is the same up to the end.
        self.assertGreater(common, 0.9 * len(before))
        self.assertNotEqual(before[:1000], after[:1000])

    def test_text_that_changes_nothing_leaves_a_recording_of_its_codes_as_it_is(self):
        self.take('plain-hr')
        self.write('none.pxp', '{}')
        self.host('override', 'scan.rxp', 'none.pxp', 'once.rxp')
        self.host('override', 'once.rxp', 'none.pxp', 'twice.rxp')
        self.assertEqual(self.read('once.rxp'), self.read('twice.rxp'))
        self.assertEqual(len(starts(self.read('once.rxp'))), len(starts(self.read('scan.rxp'))))

    def test_a_set_becomes_one_file(self):
        self.take('override-values')
        self.host('override', 'scan.rxp', 'edit.pxp', 'whole.rxp')
        data = self.read('scan.rxp')
        self.write('scan.rxp', data[:333])
        self.write('scan.rxp_001', data[333:])
        self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp')
        self.assertEqual(self.read('out.rxp'), self.read('whole.rxp'))

    def test_given_text_goes_before_the_one_beside_the_recording(self):
        self.take('override-values')
        self.write('scan.pxp', 'not even JSON')
        self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp')
        self.assertEqual(len(self.check('scan.rxp', 'edit.pxp')['headers']), 1)

    def test_verification_that_fails_is_told_and_changes_nothing(self):
        self.take('override-verified')
        self.host('override', 'scan.rxp', 'edit.pxp', 'corrected.rxp')
        text = json.loads(self.read('edit.pxp'))
        text['file_verification'][0]['contentID'][0][1] = '1'
        self.write('edit.pxp', json.dumps(text))
        self.write('none.pxp', '{}')
        self.host('override', 'scan.rxp', 'none.pxp', 'same.rxp')
        p = self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp', code=4)
        self.assertIn('verification fails', p.stderr)
        self.assertEqual(self.read('out.rxp'), self.read('same.rxp'))
        self.assertNotEqual(self.read('out.rxp'), self.read('corrected.rxp'))


class Checked(OverrideTest):
    def test_tells_each_entry(self):
        self.take('override-verified')
        found = self.check('scan.rxp', 'edit.pxp')
        self.assertIsNone(found['error'])
        header, = found['headers']
        self.assertEqual([v['verified'] for v in header['verification']], [1, 1])
        deleted, replaced, appended = header['packets']
        self.assertEqual((deleted['outcome'], deleted['before'], deleted['after']),
                         ('deleted', 'device_geometry_1 (91.0)', None))
        self.assertEqual(replaced['outcome'], 'replaced')
        self.assertEqual(replaced['changes'], [{'field': 6, 'before': '2.9970256000000000e+08',
                                                'after': '2.9000000000000000e+08'}])
        self.assertEqual((appended['outcome'], appended['means'], appended['after']),
                         ('appended', 'unknown (175.0)', 'arange_table (104.0)'))
        lines = self.host('check-override', 'scan.rxp', 'edit.pxp').stdout
        self.assertIn('field 6: 2.9970256000000000e+08 -> 2.9000000000000000e+08', lines)
        self.assertIn('matches nothing: appends arange_table (104.0)', lines)

    def test_tells_every_header(self):
        self.take('two-headers')
        self.assertEqual(len(self.check('scan.rxp', 'edit.pxp')['headers']), 2)

    def test_entry_that_matches_nothing(self):
        self.take('plain-hr')
        self.entries([{'existing_packet_identification': existing((1, 0), [(2, '"other"')]), 'new_packet': {}},
                      {'existing_packet_identification': {'ID': 'none'}}])
        header, = self.check('scan.rxp', 'edit.pxp')['headers']
        self.assertEqual([p['outcome'] for p in header['packets']], ['unmatched', 'unmatched'])
        self.assertEqual(header['packets'][0]['difference'], {'field': 2, 'expected': '"other"', 'found': '"S1000001"'})
        self.assertEqual(header['packets'][1]['means'], 'no readable ID')
        p = self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp')
        self.assertIn('entry 1 of "edit.pxp" matches nothing', p.stderr)

    def test_verification_that_fails(self):
        self.take('plain-hr')
        self.write('edit.pxp', json.dumps({'file_verification': [existing((1, 0), [(2, '"other"')]), existing((175, 0))],
                                           'packets': [{'existing_packet_identification': existing((1, 0))}]}))
        header, = self.check('scan.rxp', 'edit.pxp', code=4)['headers']
        self.assertEqual(header['outstanding'], 2)
        self.assertEqual(header['verification'][0]['difference']['found'], '"S1000001"')
        self.assertIsNone(header['verification'][1]['difference'])
        lines = self.host('check-override', 'scan.rxp', 'edit.pxp', code=4).stdout
        self.assertIn('The verification fails: the recording is read as it is.', lines)

    def test_goes_on_behind_entries_that_fail(self):
        self.take('plain-hr')
        new_header = {'ID': [1, 0], 'content': ['"T"', '"B"', '"S"', '[]']}
        self.entries([
            {'existing_packet_identification': existing((1, 0)), 'new_packet': new_header},
            {'existing_packet_identification': existing((2, -1), [(9, '')])},
            {'existing_packet_identification': existing((2, -1)), 'new_packet': new_header},
            {'existing_packet_identification': existing((175, 0)), 'new_packet': new_header},
            {'existing_packet_identification': existing((175, 0)), 'new_packet': {'ID': [175, 0]}},
            {'existing_packet_identification': existing((175, 0)), 'new_packet': {'ID': [104, 0], 'content': ['x']}},
            {'existing_packet_identification': existing((175, 0)), 'new_packet': {'ID': [104, 0], 'content': ['1', '[2]']}},
        ])
        header, = self.check('scan.rxp', 'edit.pxp', code=4)['headers']
        self.assertEqual([p['failure'] for p in header['packets']], [
            'error: cannot modify serial number or instrument type',
            'error: bad contentID in pxp file',
            'error: cannot replace arbitrary package with a header package',
            'error: cannot append a new header packet',
            'error: unknown id for new packet in pxp file',
            'override: content does not match packet id',
            None])
        self.assertEqual(header['packets'][-1]['outcome'], 'appended')

    def test_recording_without_a_header(self):
        self.take('plain-hr')
        data = self.read('scan.rxp')
        self.write('scan.rxp', data[:16] + data[starts(data)[1]:])
        self.write('edit.pxp', '{}')
        self.assertEqual(self.check('scan.rxp', 'edit.pxp', code=4)['headers'], [])
        self.assertIn('no header', self.host('check-override', 'scan.rxp', 'edit.pxp', code=4).stdout)
        self.assertIn('no header', self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp', code=4).stderr)


class Refused(OverrideTest):
    def refused(self, pxp, *reasons):
        for command in (['override', 'scan.rxp', pxp, 'out.rxp'], ['check-override', 'scan.rxp', pxp]):
            said = self.host(*command, code=3).stderr
            for reason in reasons:
                self.assertIn(reason, said)
            self.assertEqual(sorted(n for n in os.listdir(self.folder) if n.startswith('out')), [])

    def test_text_that_is_no_json(self):
        self.take('plain-hr')
        self.refused(self.write('edit.pxp', '{\n"packets": [\n}'), 'edit.pxp', 'line 3: ')
        self.refused(self.write('edit.pxp', ''), 'line 1: ')

    def test_text_of_100_megabytes(self):
        self.take('plain-hr')
        self.refused(self.write('edit.pxp', b'{"packets": "' + b'x' * 100000000 + b'"}'), '16777216 bytes')

    def test_text_that_nests_deeply(self):
        self.take('plain-hr')
        self.refused(self.write('edit.pxp', '[' * 1000000), 'nested deeper than 256 levels')

    def test_files_that_cannot_be_read(self):
        self.take('plain-hr')
        self.refused('missing.pxp', 'missing.pxp', 'no such file')
        self.refused('.', 'directory')
        self.write('edit.pxp', '{}')
        for command in (['override', 'missing.rxp', 'edit.pxp', 'out.rxp'], ['check-override', 'missing.rxp', 'edit.pxp']):
            self.assertIn('no such file', self.host(*command, code=3).stderr)

    def test_override_that_cannot_be_applied_writes_nothing(self):
        self.take('override-serial')
        self.write('out.rxp', 'earlier')
        p = self.host('override', 'scan.rxp', 'edit.pxp', 'out.rxp', code=3)
        self.assertIn('error: cannot modify serial number or instrument type', p.stderr)
        self.assertEqual(self.read('out.rxp'), b'earlier')
        self.assertFalse(os.path.exists(self.path('out.rxp.part')))

    def test_output_that_is_an_input(self):
        self.take('override-values')
        self.write('scan.rxp_001', b'')
        for output in ('scan.rxp', 'edit.pxp', 'scan.rxp_001'):
            before = self.read(output)
            self.assertIn('would overwrite', self.host('override', 'scan.rxp', 'edit.pxp', output, code=2).stderr)
            self.assertEqual(self.read(output), before)

    def test_output_that_cannot_be_written(self):
        self.take('override-values')
        self.assertIn('no/out.rxp', self.host('override', 'scan.rxp', 'edit.pxp', 'no/out.rxp', code=5).stderr)
        self.assertIn('cannot write', self.host('override', 'scan.rxp', 'edit.pxp', '/dev/full', code=5).stderr)

    def test_live_streams(self):
        self.write('edit.pxp', '{}')
        self.host('override', 'rdtp://127.0.0.1/x', 'edit.pxp', 'out.rxp', code=2)
        self.host('check-override', 'rdtp://127.0.0.1/x', 'edit.pxp', code=2)

    def test_conversion_tells_why_the_text_beside_fails(self):
        self.take('override-serial', pxp='scan.pxp')
        p = self.host('convert', 'scan.rxp', '--json', code=4)
        result = json.loads(p.stdout)['results'][0]
        self.assertEqual(result['errors'], '')
        self.assertNotEqual(result['text'], '')
        self.assertIn('cannot modify serial number or instrument type', p.stderr)
        self.assertNotIn('cannot modify', result['text'])


if __name__ == '__main__':
    HOST, RECORDINGS = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
