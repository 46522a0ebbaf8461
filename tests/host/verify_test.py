#!/usr/bin/python3
"""verify_test.py HOST [TEST ...]: `rxp2k7 verify` on good files and on files with one fault each, made with h5py."""
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np

HOST = None
CHART = '/StandardCartesianChart3D/'
SHOTS, OPP, WAVES = ('/Slice_0/' + g + CHART for g in ('Shots', 'OPP', 'Waveforms'))


def run(*args):
    # A hostile file must not take memory without bound.
    limit = 'ulimit -v 4000000; ' if 'asan' not in HOST else ''
    return subprocess.run(['bash', '-c', limit + 'exec "$@"', 'bash', HOST, 'verify'] + list(args), stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=60)


def replace(f, path, data, **more):
    del f[path]
    return f.create_dataset(path, data=data, **more)


def put(f, path, at, value):
    f[path][at] = value


def make_column(f, path, pieces, shape=None, file='.', **attributes):
    """A column over `pieces`, paths of arrays, in the place of the one that is there; its scales and attributes stay."""
    old = f.pop(path)
    arrays = [f[p] for p in pieces]
    shape = shape or (sum(map(len, arrays)),) + tuple(max(a.shape[1] for a in arrays) for _ in old.shape[1:])
    layout = h5py.VirtualLayout(shape, old.dtype)
    first = 0
    for a in arrays:
        where = (slice(first, first + len(a)),) + tuple(slice(0, n) for n in a.shape[1:])
        layout[where] = h5py.VirtualSource(file, a.name, shape=a.shape)
        first += len(a)
    column = f.create_virtual_dataset(path, layout)
    for name, value in {**old.attrs, **attributes}.items():
        if value is not None:
            column.attrs.create(name, value, dtype=old.attrs.get_id(name).dtype)
    return column


def renew_columns(f):
    """All columns over the fragments that are there now."""
    for grid in next(iter(f.values())).values():
        for name, field in grid['StandardCartesianChart3D'].items():
            numbers = sorted(int(n.split('_')[1]) for n in field)
            make_column(f, grid.name + '/' + name, [field.name + '/Fragment_%d' % n for n in numbers])


class VerifyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.good = os.path.join(cls.folder, 'good.k7')
        cls.packed = os.path.join(cls.folder, 'packed.k7')
        for name, more in (('good', []), ('packed', ['--compress', '4'])):
            recording = os.path.join(cls.folder, name + '.rxp')
            subprocess.run([HOST, 'simulate', recording, '--shots', '2000', '--waveforms', 'channel'], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            subprocess.run([HOST, 'convert', recording, '--out-dir', cls.folder, '--fragment-size', '1000'] + more, check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def damaged(self, damage, name='bad.k7', source=None):
        path = os.path.join(self.folder, name)
        shutil.copy(source or self.good, path)
        with h5py.File(path, 'r+') as f:
            damage(f)
        return path

    def findings(self, path, code=4):
        p = run('--json', path)
        self.assertEqual(p.returncode, code, p.stderr)
        result = json.loads(p.stdout)['results'][0]
        self.assertEqual((result['exit_code'], result['finding_count']), (code, len(result['findings'])))
        return result['findings']

    def check(self, damage, path, text, row=None, source=None):
        """The damage gives one finding: that one."""
        found = self.findings(self.damaged(damage, source=source))
        self.assertEqual([(f['path'], f['row']) for f in found], [(path, row)], found)
        self.assertIn(text, found[0]['text'])


class Good(VerifyTest):
    def test_good_files_have_no_findings_and_their_rows_are_counted(self):
        for path in (self.good, self.packed):
            p = run('--json', path)
            self.assertEqual(p.returncode, 0, p.stdout + p.stderr)
            told = json.loads(p.stdout)['results'][0]
            self.assertEqual(told['findings'], [])
            with h5py.File(path, 'r') as f:
                for key, grid in (('shots', SHOTS), ('echoes', OPP), ('waveforms', WAVES)):
                    self.assertEqual(told[key], sum(len(d) for d in f[grid + 'GPSTime'].values()), key)
                numbers = {n for grid in (SHOTS, OPP, WAVES) for n in f[grid + 'GPSTime']}
            self.assertEqual(told['fragments'], len(numbers))
            self.assertGreater(told['fragments'], 1)

    def test_numbers_that_no_grid_has_are_allowed(self):
        def leave_out(f):
            for grid in (SHOTS, OPP, WAVES):
                for field in f[grid].values():
                    if 'Fragment_1' in field:
                        del field['Fragment_1']
            renew_columns(f)
        self.assertEqual(self.findings(self.damaged(leave_out), code=0), [])

    def test_a_grid_without_an_entry_for_a_fragment_is_allowed(self):
        def leave_out(f):
            for field in f[OPP].values():
                del field['Fragment_1']
            renew_columns(f)
        self.assertEqual(self.findings(self.damaged(leave_out), code=0), [])

    def test_files_without_scan_attributes_or_with_other_things_beside_are_good(self):
        def change(f):
            for grid in ('Shots', 'Waveforms'):
                for name in list(f['Slice_0'][grid].attrs):
                    del f['Slice_0'][grid].attrs[name]
            f.create_group('notes')
            f['Slice_0/more'] = [1, 2]
            f['Slice_0/OPP'].attrs['remark'] = 'x'
        self.assertEqual(self.findings(self.damaged(change), code=0), [])

    def test_unknown_reflectance_is_allowed(self):
        self.assertEqual(self.findings(self.damaged(lambda f: put(f, OPP + 'Reflectance/Fragment_0', 3, np.nan)), code=0), [])


class Structure(VerifyTest):
    def test_root_attributes(self):
        for name, change, text in (
                ('Format', lambda a: a.__setitem__('Format', 'K8'), 'is "K8", not "K7"'),
                ('Format', lambda a: a.__delitem__('Format'), 'missing'),
                ('FormatVersion', lambda a: a.__setitem__('FormatVersion', np.uint32(2)), 'is not 1'),
                ('FormatVersion', lambda a: a.__setitem__('FormatVersion', 1.0), 'f64, not a single u32'),
                ('Creator', lambda a: a.__delitem__('Creator'), 'missing')):
            with self.subTest(name):
                self.check(lambda f: change(f.attrs), '/', '"%s"' % name)
                self.check(lambda f: change(f.attrs), '/', text)

    def test_scan_attributes_that_are_missing_or_wrong(self):
        shots = '/Slice_0/Shots'
        self.check(lambda f: f[shots].attrs.__delitem__('t_ref'), shots, '"t_ref" is missing')
        self.check(lambda f: f[shots].attrs.__setitem__('serial', 5.0), shots, '"serial"')
        self.check(lambda f: f[shots].attrs.__setitem__('wavelength', np.inf), shots, '"wavelength" is not finite')
        self.check(lambda f: f[shots].attrs.__setitem__('refltab', np.float32(1)), shots, 'not an array of f32')

    def test_attributes_of_slice_representation_and_field(self):
        self.check(lambda f: f['Slice_0'].attrs.__delitem__('Time'), '/Slice_0', '"Time"')
        self.check(lambda f: f[OPP].attrs.__setitem__('Dimension', np.int32(2)), OPP[:-1], '"Dimension" is not 3')
        self.check(lambda f: f[OPP].attrs.__setitem__('Chart', 'x'), OPP[:-1], '"Chart"')
        self.check(lambda f: f[OPP + 'Range'].attrs.__setitem__('units', 'ft'), OPP + 'Range', 'is "ft", not "m"')
        self.check(lambda f: f[OPP + 'Range'].attrs.__setitem__('Components', np.uint32(3)), OPP + 'Range', '"Components"')
        self.check(lambda f: f[OPP + 'Range'].attrs.__delitem__('Element'), OPP + 'Range', '"Element"')
        self.check(lambda f: f[SHOTS + 'GPSTime'].attrs.__delitem__('LeapSecondsAdded?'), SHOTS + 'GPSTime', 'LeapSecondsAdded?')

    def test_missing_groups(self):
        self.check(lambda f: f.__delitem__('Slice_0'), '/', 'no slice')
        self.check(lambda f: (f.move('Slice_0', 'Slice_1'), renew_columns(f)), '/Slice_1', 'numbered from 0')
        self.check(lambda f: f.__delitem__('Slice_0/Shots'), '/Slice_0/Shots', 'missing')
        self.check(lambda f: f.__delitem__(OPP), OPP[:-1], 'missing')
        self.check(lambda f: f.__delitem__(OPP + 'Range'), OPP + 'Range', 'missing')

    def test_a_fragment_that_one_column_lacks(self):
        self.check(lambda f: f.__delitem__(OPP + 'Range/Fragment_0'), OPP + 'Range/Fragment_0', 'missing')

    def test_names_that_are_no_fragments(self):
        for name in ('Fragment_x', 'Fragment_00', 'Fragment_-1', 'Fragment_4294967296', 'other'):
            self.check(lambda f: f.__setitem__(OPP + 'Range/' + name, [1.0]), OPP + 'Range/' + name, 'no fragment')

    def test_a_part_says_that_it_is_not_complete(self):
        found = self.findings(self.damaged(lambda f: None, 'some.k7.part'))
        self.assertEqual(len(found), 1)
        self.assertIn('not complete', found[0]['text'])


class Columns(VerifyTest):
    PATH = '/Slice_0/OPP/Range'

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        with h5py.File(cls.good) as f:
            cls.FRAGMENTS = [v.dset_name for v in f[cls.PATH].virtual_sources()]

    def test_a_missing_column_is_told(self):
        self.check(lambda f: f.__delitem__(self.PATH), self.PATH, 'is missing')

    def test_a_part_may_lack_columns_but_those_it_has_must_be_right(self):
        found = self.findings(self.damaged(lambda f: f.__delitem__(self.PATH), 'some.k7.part'))
        self.assertEqual([f['path'] for f in found], ['/'])
        found = self.findings(self.damaged(lambda f: make_column(f, self.PATH, self.FRAGMENTS[:1]), 'some.k7.part'))
        self.assertEqual([f['path'] for f in found], ['/', self.PATH])

    def test_columns_that_do_not_have_the_rows_of_their_fragments(self):
        def make(*pieces, **more):
            return lambda f: make_column(f, self.PATH, pieces, **more)
        first, second, *others = self.FRAGMENTS
        self.check(make(first), self.PATH, 'rows, but its fragments have')
        self.check(make(second, first, *others), self.PATH, 'rows from 0 on are not those of ' + first)
        self.check(lambda f: make(first, shape=f[self.PATH].shape)(f), self.PATH, 'are not those of ' + second)
        times = OPP + 'GPSTime/Fragment_1'
        self.check(make(first, times, *others), self.PATH, 'are not those of ' + second)
        self.check(lambda f: replace(f, self.PATH, f[self.PATH][...]), self.PATH, 'rows from 0 on are not those of ' + first)

    def test_a_fragment_that_is_gone_is_told_once(self):
        self.check(lambda f: f.__delitem__(OPP + 'Range/Fragment_1'), OPP + 'Range/Fragment_1', 'missing')

    def test_columns_of_other_types_and_widths(self):
        path = '/Slice_0/Waveforms/Waveforms'
        with h5py.File(self.good) as f:
            pieces, (rows, width) = [v.dset_name for v in f[path].virtual_sources()], f[path].shape
        self.check(lambda f: make_column(f, path, pieces, (rows, width + 1)), path, 'values in a row, not')
        self.check(lambda f: replace(f, self.PATH, f[self.PATH][...].astype('f4')), self.PATH, 'another type')
        self.check(lambda f: replace(f, self.PATH, f[self.PATH][...][:, None]), self.PATH, 'number of dimensions')

    def test_columns_over_other_files_or_over_parts_of_rows(self):
        self.check(lambda f: make_column(f, self.PATH, self.FRAGMENTS, file='/etc/passwd'), self.PATH, 'stored elsewhere')

        def turned(f):
            shape = f[self.PATH].shape
            layout = h5py.VirtualLayout(shape, 'f8')
            layout[:10:2] = h5py.VirtualSource('.', self.FRAGMENTS[0], shape=(1000,))[:5]
            del f[self.PATH]
            f.create_virtual_dataset(self.PATH, layout)
        self.check(turned, self.PATH, 'no block of rows')

        def shifted(f):
            shape = f[self.PATH].shape
            layout = h5py.VirtualLayout(shape, 'f8')
            layout[:5] = h5py.VirtualSource('.', self.FRAGMENTS[0], shape=f[self.FRAGMENTS[0]].shape)[1:6]
            del f[self.PATH]
            f.create_virtual_dataset(self.PATH, layout)
        self.check(shifted, self.PATH, 'whole rows')

    def test_columns_without_what_readers_show(self):
        def make(**attributes):
            return lambda f: make_column(f, self.PATH, self.FRAGMENTS, **attributes)
        self.check(make(units='ft'), self.PATH, '"units"')
        self.check(make(long_name=''), self.PATH, '"long_name"')
        self.check(make(DIMENSION_LIST=None), self.PATH, 'scales')

    def test_columns_over_thousands_of_fragments(self):
        many = os.path.join(self.folder, 'many')
        os.makedirs(many, exist_ok=True)
        subprocess.run([HOST, 'convert', os.path.join(self.folder, 'good.rxp'), '--out-dir', many, '--fragment-size', '3',
                        '--no-waveforms'], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        source = os.path.join(many, 'good.k7')
        self.assertEqual(self.findings(source, code=0), [])
        part = '/Slice_0/OPP/parts/Range_0'
        with h5py.File(source) as f:
            fragments = [v.dset_name for v in f[part].virtual_sources()]
        self.assertGreater(len(fragments), 500)
        self.check(lambda f: make_column(f, part, fragments[1:]), self.PATH, 'another extent', source=source)
        swapped = [fragments[i] for i in (0, 2, 1)] + fragments[3:]
        self.check(lambda f: make_column(f, part, swapped), self.PATH, 'are not those of ' + fragments[1], source=source)


class Values(VerifyTest):
    def test_rows_that_differ_within_a_fragment(self):
        path = OPP + 'Amplitude/Fragment_0'
        self.check(lambda f: replace(f, path, f[path][:-1]), path, 'rows, but "GPSTime" has')

    def test_a_fragment_without_rows(self):
        def empty(f):
            for field in f[OPP].values():
                replace(f, field.name + '/Fragment_9', field['Fragment_0'][:0])
        with self.assertRaises(KeyError):  # the name is new
            self.damaged(empty)

        def add(f):
            for field in f[OPP].values():
                field.create_dataset('Fragment_9', data=field['Fragment_0'][:0])
        self.check(add, OPP + 'GPSTime/Fragment_9', 'no rows')

    def test_wrong_types_and_shapes(self):
        path = OPP + 'Range/Fragment_0'
        self.check(lambda f: replace(f, path, f[path][...].astype('f4')), path, 'holds f32, not f64')
        self.check(lambda f: replace(f, path, f[path][...].astype('>f8')), path, 'holds another type')
        self.check(lambda f: replace(f, path, np.array([b'x'] * len(f[path]))), path, 'holds text')
        self.check(lambda f: replace(f, path, f[path][...][:, None]), path, '2 dimensions, not 1')
        path = SHOTS + 'Positions/Fragment_0'
        self.check(lambda f: replace(f, path, f[path][:, :2]), path, '2 values in a row, not 3')

    def test_time_that_goes_back_is_told_with_its_row(self):
        path = SHOTS + 'GPSTime/Fragment_0'
        self.check(lambda f: put(f, path, 7, f[path][5]), path, 'comes after', row=7)

    def test_time_that_goes_back_between_fragments(self):
        def change(f):
            f[SHOTS + 'GPSTime/Fragment_1'][0] = f[SHOTS + 'GPSTime/Fragment_0'][-1] - 1e-3
        self.check(change, SHOTS + 'GPSTime/Fragment_1', 'comes after', row=0)

    def test_numbers_that_are_none_are_told_with_the_first_row_and_their_count(self):
        def change(f):
            f[SHOTS + 'Positions/Fragment_0'][4:6, 1] = np.nan
        self.check(change, SHOTS + 'Positions/Fragment_0', '(2 such rows)', row=4)
        for value, text in ((np.nan, 'NaN'), (np.inf, 'inf'), (-np.inf, '-inf')):
            self.check(lambda f: put(f, OPP + 'Amplitude/Fragment_0', 11, value), OPP + 'Amplitude/Fragment_0', text, row=11)
        self.check(lambda f: put(f, OPP + 'Reflectance/Fragment_0', 2, np.inf), OPP + 'Reflectance/Fragment_0', 'inf', row=2)

    def test_waveform_longer_than_its_row(self):
        def change(f):
            f[WAVES + 'FWFLength/Fragment_0'][3] = f[WAVES + 'Waveforms/Fragment_0'].shape[1] + 1
        self.check(change, WAVES + 'FWFLength/Fragment_0', 'room for', row=3)

    def test_samples_behind_the_length(self):
        def change(f):
            f[WAVES + 'Waveforms/Fragment_0'][3, -1] = 5
            f[WAVES + 'FWFLength/Fragment_0'][3] = f[WAVES + 'Waveforms/Fragment_0'].shape[1] - 2
            f[WAVES + 'Waveforms/Fragment_0'][3, -2] = 0
        self.check(change, WAVES + 'Waveforms/Fragment_0', 'is not 0', row=3)

    def test_every_fault_of_a_file_is_listed_a_line_each(self):
        def change(f):
            f.attrs['Format'] = 'x'
            f[OPP + 'Range/Fragment_0'][1] = np.nan
            del f[WAVES + 'Channel/Fragment_1']
        path = self.damaged(change)
        p = run(path)
        self.assertEqual(p.returncode, 4)
        lines = p.stdout.splitlines()
        self.assertEqual(len(lines), 4, lines)
        self.assertTrue(all(line.startswith(path + ': ') for line in lines))
        self.assertIn('Range/Fragment_0: row 1: NaN', lines[1])
        self.assertIn('3 found wrong', lines[-1])


class Hostile(VerifyTest):
    def test_extents_beyond_the_file(self):
        path = OPP + 'Range/Fragment_0'

        def claim(f, **more):
            del f[path]
            f.create_dataset(path, dtype='<f8', **more)
        self.check(lambda f: claim(f, shape=(2**50,)), path, 'more values than the file can hold')
        self.check(lambda f: claim(f, shape=(2**50,), chunks=(4096,)), path, 'more values than the file can hold')
        self.check(lambda f: claim(f, shape=(5,)), path, 'never stored')
        self.check(lambda f: claim(f, shape=(2**60, 2**60), chunks=(1, 1)), path, 'more values than the file can hold')

    def test_chunks_that_are_missing_or_huge(self):
        path = OPP + 'Range/Fragment_0'

        def holes(f):
            rows = len(f[path])
            del f[path]
            f.create_dataset(path, shape=(rows,), dtype='<f8', chunks=(100,))[:100] = 1.0

        def huge(f):
            rows = len(f[path])
            del f[path]
            f.create_dataset(path, shape=(rows,), maxshape=(None,), dtype='<f8', chunks=(2**28,), compression=9)
            f[path].id.write_direct_chunk((0,), b'x')
        self.check(holes, path, 'chunks are stored')
        self.check(huge, path, 'chunks are too large')

    def test_deflated_values_that_are_no_such(self):
        path = OPP + 'Range/Fragment_0'
        self.check(lambda f: f[path].id.write_direct_chunk((0,), b'nonsense'), path, '', source=self.packed)

    def test_values_elsewhere_and_unknown_filters(self):
        path = OPP + 'Range/Fragment_0'

        def outside(f):
            rows = len(f[path])
            del f[path]
            f.create_dataset(path, shape=(rows,), dtype='<f8', external=[('/etc/passwd', 0, 8 * rows)])

        def virtual(f):
            layout = h5py.VirtualLayout(shape=f[path].shape, dtype='<f8')
            layout[:] = h5py.VirtualSource('/etc/passwd', 'x', shape=f[path].shape)
            del f[path]
            f.create_virtual_dataset(path, layout)
        self.check(outside, path, 'stored elsewhere')
        self.check(virtual, path, 'stored elsewhere')
        self.check(lambda f: replace(f, path, f[path][...], compression='lzf'), path, 'unknown filter')

    def test_links_that_lead_away_are_not_followed(self):
        path = OPP + 'Range'
        for link in (h5py.SoftLink('/nowhere'), h5py.SoftLink(OPP + 'Amplitude'), h5py.ExternalLink('/dev/zero', '/')):
            def change(f):
                del f[path]
                f[path] = link
            self.check(change, path, 'not a group of this file')

    def test_cycles_end(self):
        def change(f):
            del f[OPP + 'Range/Fragment_0']
            f[OPP + 'Range/Fragment_0'] = f['Slice_0']
        self.check(change, OPP + 'Range/Fragment_0', 'not an array')

    def test_an_array_for_a_group_and_a_name_beside_the_fragments(self):
        def change(f):
            del f[OPP + 'Range']
            f[OPP + 'Range'] = [1.0]
        self.check(change, OPP + 'Range', 'not a group of this file')

    @unittest.skipIf('asan' in sys.argv[1], 'the storage library itself reads past its buffers there, in the child process')
    def test_a_crash_of_the_storage_library_is_told(self):
        """Its heap of texts is damaged, so that one seems to have a gigabyte."""
        path = self.damaged(lambda f: None)
        with open(path, 'r+b') as f:
            data = f.read()
            heap = data.index(b'GCOL')
            f.seek(heap + 16 + 8)  # the first object's size
            f.write((2**30).to_bytes(8, 'little'))
        p = run('--json', path)
        self.assertIn(p.returncode, (3, 4), p.stderr)
        self.assertEqual(json.loads(p.stdout)['results'][0]['exit_code'], p.returncode)

    def test_odd_bytes_are_told_as_numbers(self):
        path = self.damaged(lambda f: f.attrs.__setitem__('Format', 'K\x1b[31m\u00e4'))
        out = run(path).stdout
        self.assertIn('is "K\\x1B[31m\\xC3\\xA4"', out)
        self.assertTrue(out.isascii())

    def test_attributes_beyond_all_measure_are_not_read(self):
        self.check(lambda f: f.attrs.__setitem__('Creator', 'x' * (2**20 + 1)), '/', 'too long')

    def test_many_faults_are_counted_beyond_what_is_told(self):
        def change(f):
            for i in range(1200):
                f[OPP + 'Range/x%d' % i] = np.uint8(0)
        p = run('--json', self.damaged(change))
        told = json.loads(p.stdout)['results'][0]
        self.assertEqual((told['finding_count'], len(told['findings'])), (1200, 1000))

    @unittest.skipIf('asan' in sys.argv[1], 'the storage library itself reads past its buffers there, in the child process')
    def test_random_damage_gives_a_result(self):
        with open(self.packed, 'rb') as f:
            whole = f.read()
        chance = random.Random(1)
        path = os.path.join(self.folder, 'bytes.k7')
        seen = set()
        for i in range(60):
            data = bytearray(whole)
            if i % 3 == 0:
                del data[chance.randrange(len(data)):]
            else:
                for _ in range(1 + i % 7):
                    data[chance.randrange(4096 if i % 2 else len(data))] = chance.randrange(256)
            with open(path, 'wb') as f:
                f.write(data)
            seen.add(run(path).returncode)
        self.assertLessEqual(seen, {0, 3, 4})
        self.assertIn(3, seen)


class ExitCodes(VerifyTest):
    def test_files_that_cannot_be_read_exit_3(self):
        with open(os.path.join(self.folder, 'text.k7'), 'w') as f:
            f.write('no such format')
        for name in ('text.k7', 'missing.k7', ''):
            path = os.path.join(self.folder, name)
            p = run(path)
            self.assertEqual((p.returncode, p.stdout), (3, ''))
            self.assertIn(path, p.stderr)

    def test_some_of_several_exit_6_and_all_are_looked_at(self):
        bad = self.damaged(lambda f: f.attrs.__setitem__('Format', 'x'))
        p = run('--json', bad, self.good, os.path.join(self.folder, 'missing.k7'))
        self.assertEqual(p.returncode, 6)
        self.assertEqual([r['exit_code'] for r in json.loads(p.stdout)['results']], [4, 0, 3])
        self.assertEqual(run(self.good, self.packed).returncode, 0)

    def test_usage_exits_2_and_full_output_5(self):
        self.assertEqual(run().returncode, 2)
        with open('/dev/full', 'w') as full:
            p = subprocess.run([HOST, 'verify', self.good], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(p.returncode, 5)

    def test_a_file_is_not_changed(self):
        with open(self.good, 'rb') as f:
            before = f.read()
        run(self.good)
        with open(self.good, 'rb') as f:
            self.assertEqual(f.read(), before)


if __name__ == '__main__':
    HOST = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
