#!/usr/bin/python3
"""reading_test.py HOST SOURCE [TEST ...]: K7 files in the hands of their readers, and the pages and examples for them."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np
import xarray

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402
import page  # noqa: E402
import recordings  # noqa: E402

HOST, SOURCE = os.path.abspath(sys.argv[1]), sys.argv[2]
ENGINES = (None, 'netcdf4', 'h5netcdf')


class Reading(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)

    def file(self, name):
        return recordings.convert(HOST, self.folder, name)


class Whole(Reading):
    """Columns against the fragments they go over."""

    def joined(self, path, grid, name):
        """The fragments, the narrower with zeros behind."""
        chart = 'Slice_0/%s/StandardCartesianChart3D/%s/' % (grid, name)
        parts = {k: v for k, v in k7.fragments(path).items() if k.startswith(chart)}
        parts = [parts[k] for k in sorted(parts, key=lambda k: int(k.rsplit('_', 1)[1]))]
        widths = {p.shape[1:] for p in parts}
        widest = max(widths)
        whole = np.zeros((sum(map(len, parts)),) + widest, parts[0].dtype)
        first = 0
        for p in parts:
            whole[(slice(first, first + len(p)),) + tuple(slice(0, n) for n in p.shape[1:])] = p
            first += len(p)
        return whole, len(widths)

    def test_columns_have_the_rows_of_all_fragments(self):
        several_widths = 0
        for form in recordings.FORMS:
            path = self.file(form)
            with h5py.File(path, 'r') as f:
                for grid in f['Slice_0'].values():
                    columns = grid['StandardCartesianChart3D']
                    rows = {len(grid[name]) for name in columns}
                    self.assertEqual(len(rows), 1, grid.name)
                    for name in columns if rows != {0} else ():
                        whole, widths = self.joined(path, grid.name.split('/')[-1], name)
                        several_widths += widths > 1
                        self.assertEqual((grid[name].dtype, grid[name].shape), (whole.dtype, whole.shape), grid[name].name)
                        self.assertTrue(np.array_equal(grid[name][...], whole, equal_nan=whole.dtype.kind == 'f'), grid[name].name)
        self.assertGreater(several_widths, 0, 'no waveforms were padded')

    def test_slices_of_columns_read_only_what_they_name(self):
        path = self.file('many')
        with h5py.File(path, 'r') as f:
            column = f['Slice_0/OPP/Range']
            self.assertGreater(len(f['Slice_0/OPP/StandardCartesianChart3D/Range']), 512)
            whole = column[...]
            for first in (0, 1000, len(whole) - 7):
                self.assertTrue(np.array_equal(column[first:first + 7], whole[first:first + 7]))

    def test_a_moved_file_still_has_its_columns(self):
        moved = os.path.join(self.folder, 'elsewhere', 'other name.k7')
        os.makedirs(os.path.dirname(moved))
        with h5py.File(self.file('plain'), 'r') as f:
            wanted = f['Slice_0/OPP/Range'][...]
        shutil.copy(self.file('plain'), moved)
        with h5py.File(moved, 'r') as f:
            self.assertTrue(np.array_equal(f['Slice_0/OPP/Range'][...], wanted))

    def test_only_columns_need_a_newer_library(self):
        """Fragments and all above them are read with the tools of format 1.8: the versions in their headers say so."""
        with open(self.file('plain'), 'rb') as f:
            data = f.read()
        self.assertEqual(data[:8], b'\x89HDF\r\n\x1a\n')
        self.assertEqual(data[8], 2, 'superblock')
        with h5py.File(self.file('plain'), 'r') as f:
            columns = [c for g in f['Slice_0'].values() for c in g.values() if isinstance(c, h5py.Dataset)]
            addresses = {h5py.h5o.get_info(c.id).addr: c for c in columns}
            seen = {True: set(), False: set()}

            def look(name, dataset):
                if isinstance(dataset, h5py.Dataset):
                    address = h5py.h5o.get_info(dataset.id).addr
                    seen[address in addresses].add(layout_version(data, address))
            f.visititems(look)
            self.assertTrue(any(c.is_virtual for c in columns))
        self.assertEqual(seen[False], {3})
        self.assertEqual(seen[True] - {3}, {4})


def layout_version(data, address):
    """Version of the data layout message in the object header (version 2) at an address."""
    assert data[address:address + 5] == b'OHDR\x02'
    flags = data[address + 5]
    at = address + 6 + (16 if flags & 0x20 else 0) + (4 if flags & 0x10 else 0)
    width = 1 << (flags & 3)
    end = at + width + int.from_bytes(data[at:at + width], 'little')
    at += width
    blocks = [(at, end)]
    while blocks:
        at, end = blocks.pop()
        while at + 4 <= end:
            kind, size = data[at], int.from_bytes(data[at + 1:at + 3], 'little')
            at += 4 + (2 if flags & 4 else 0)
            if kind == 8:
                return data[at]
            if kind == 16:  # goes on elsewhere: signature, messages, checksum
                place, length = (int.from_bytes(data[i:i + 8], 'little') for i in (at, at + 8))
                blocks.append((place + 4, place + length - 4))
            at += size
    raise AssertionError('no layout at %d' % address)


class Netcdf(Reading):
    """xarray without options and by both of its engines for HDF5."""

    def test_grids_open_with_one_dimension_of_rows(self):
        with h5py.File(self.file('waves'), 'r') as f:
            for grid, sample in (('Shots', False), ('OPP', False), ('Waveforms', True)):
                wanted = f['Slice_0'][grid]
                for engine in ENGINES:
                    with self.subTest(grid, engine=engine), \
                            xarray.open_dataset(self.file('waves'), group='Slice_0/' + grid, engine=engine) as ds:
                        self.assertEqual(set(ds.data_vars), set(wanted['StandardCartesianChart3D']))
                        self.assertEqual(set(ds.dims), {'row', 'xyz'} | ({'sample'} if sample else set()))
                        self.assertEqual(ds.sizes['row'], len(wanted['GPSTime']))
                        self.assertEqual(list(ds.xyz.values), ['x', 'y', 'z'])
                        for name, variable in ds.data_vars.items():
                            self.assertEqual(variable.dims[0], 'row')
                            self.assertEqual(variable.dtype, wanted[name].dtype, name)
                            self.assertTrue(np.array_equal(variable.values, wanted[name][...], equal_nan=True), name)
                            self.assertEqual(variable.attrs['units'], wanted['StandardCartesianChart3D'][name].attrs['units'])
                            self.assertGreater(len(variable.attrs['long_name']), 4)

    def test_scan_attributes_come_with_the_grid(self):
        for engine in ENGINES:
            with xarray.open_dataset(self.file('plain'), group='Slice_0/Shots', engine=engine) as ds, \
                    h5py.File(self.file('plain'), 'r') as f:
                wanted = f['Slice_0/Shots'].attrs
                self.assertEqual(ds.attrs['serial'], wanted['serial'])
                self.assertEqual(ds.attrs['group_velocity'], wanted['group_velocity'])
                self.assertTrue(np.array_equal(ds.attrs['refltab'], wanted['refltab']))

    def test_a_grid_without_rows_opens(self):
        for engine in ENGINES:
            with xarray.open_dataset(self.file('plain'), group='Slice_0/Waveforms', engine=engine) as ds:
                self.assertEqual(dict(ds.sizes), {'row': 0, 'xyz': 3, 'sample': 0})
                self.assertEqual(ds.Waveforms.values.shape, (0, 0))

    def test_thousands_of_fragments_open(self):
        for engine in ENGINES:
            with xarray.open_dataset(self.file('many'), group='Slice_0/OPP', engine=engine) as ds, \
                    h5py.File(self.file('many'), 'r') as f:
                self.assertTrue(np.array_equal(ds.Range.values, f['Slice_0/OPP/Range'][...]))


class Examples(Reading):
    def run_example(self, *command):
        p = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, cwd=self.folder)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p.stdout.splitlines()

    def python(self, name, *options):
        return self.run_example('/usr/bin/python3', os.path.join(SOURCE, 'examples', name), *options)

    def expected(self, path):
        """Number, mean range and box of the points, joined shot by shot."""
        shots, echoes = k7.columns(path, 'Shots'), k7.columns(path, 'OPP')
        beams = {t: (o, d) for t, o, d in zip(shots['GPSTime'], shots['Positions'], shots['Waveforms.DirectionDelta'])}
        points = np.array([beams[t][0] + r * beams[t][1] for t, r in zip(echoes['GPSTime'], echoes['Range'])])
        return ['%d points, mean range %.3f m' % (len(points), echoes['Range'].mean()),
                'from %.3f %.3f %.3f m to %.3f %.3f %.3f m' % (*points.min(axis=0), *points.max(axis=0))]

    def test_h5py_block_by_block_and_xarray_give_the_points(self):
        path = self.file('waves')
        wanted = self.expected(path)
        for told in (self.python('read_k7.py', path), self.python('read_k7.py', path, '--rows', '100'),
                     self.python('read_k7_xarray.py', path)):
            self.assertEqual(told[0].split(', ')[1], '2000 shots')
            self.assertEqual(told[1:3], wanted)

    def test_h5py_reads_a_part_without_columns(self):
        path = os.path.join(self.folder, 'killed.k7.part')
        shutil.copy(self.file('waves'), path)
        with h5py.File(path, 'r+') as f:
            for grid in f['Slice_0'].values():
                for name in [n for n in grid if n != 'StandardCartesianChart3D']:
                    del grid[name]
        for rows in ('100', '1000000'):
            self.assertEqual(self.python('read_k7.py', path, '--rows', rows)[1:], self.expected(path))

    def test_files_without_echoes_are_no_error(self):
        self.assertEqual(self.python('read_k7.py', self.file('shots'))[-1:], ['SIM-WHEEL-3 SIM00001, 1500 shots'])
        self.assertIn('Shots: 1500 rows', self.python('show_k7.py', self.file('shots'))[1])

    def test_octave_reads_the_same_points(self):
        probe = ['octave', '--no-gui', '--quiet', '--eval', 'pkg load netcdf']
        if not shutil.which('octave') or subprocess.run(probe, stderr=subprocess.DEVNULL).returncode:
            self.skipTest('octave with its netcdf package is not installed')
        told = self.run_example('octave', '--no-gui', '--quiet', '--path', os.path.join(SOURCE, 'examples'), '--eval',
                                "read_k7('%s')" % self.file('waves'))
        self.assertEqual(told[0], '2000 shots')
        self.assertEqual(told[1:3], self.expected(self.file('waves')))
        ranges = k7.columns(self.file('waves'), 'OPP')['Range'][:5]
        self.assertEqual(told[3], 'first ranges:%s m' % ''.join(' %.3f' % r for r in ranges))


class Page(Reading):
    """docs/k7-format.md against the files."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.page = page.Page(os.path.join(SOURCE, 'docs', 'k7-format.md'))

    def test_files_hold_what_the_page_names_and_nothing_else(self):
        seen = page.Seen()
        for form in recordings.FORMS:
            with h5py.File(self.file(form), 'r') as f:
                seen.add(f)
        self.assertEqual(sorted(seen.objects), sorted(self.page.objects))
        self.assertEqual(sorted(seen.columns.items()), sorted(self.page.columns.items()))
        self.assertEqual(sorted(seen.attributes.items()), sorted(self.page.attributes.items()))

    def test_what_must_be_there_is_in_every_file(self):
        for form in recordings.FORMS:
            with h5py.File(self.file(form), 'r') as f:
                self.assertEqual((f.attrs['Format'], f.attrs['FormatVersion']), ('K7', 1))
                for grid, columns in self.page.grids().items():
                    if grid == 'Shots' or grid in f['Slice_0']:
                        for name in columns:
                            self.assertIn(name, f['Slice_0'][grid])
                            self.assertIn(name, f['Slice_0'][grid]['StandardCartesianChart3D'])

    def test_only_what_the_page_allows_is_nan(self):
        nans = set()
        for form in recordings.FORMS:
            with h5py.File(self.file(form), 'r') as f:
                for grid in f['Slice_0'].values():
                    nans.update(n for n, c in grid.items() if isinstance(c, h5py.Dataset) and c.dtype.kind == 'f' and np.isnan(c[...]).any())
                    nans.update(n for n, v in grid.attrs.items() if np.asarray(v).dtype.kind == 'f' and np.isnan(v).any())
        self.assertTrue(nans and nans <= {'Reflectance', 'sampling_time'}, nans)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
