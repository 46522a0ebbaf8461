#!/usr/bin/python3
"""read_back.py WRITER: has the sample bundles written and compares them, through h5py, with what they must hold."""
import os
import re
import subprocess
import sys
import tempfile

import h5py
import numpy as np

ROWS = 7
FIELDS = '/Slice_0/Shots/StandardCartesianChart3D/'
SHAPES = {
    'GPSTime/Fragment_0': ('<f8', (ROWS,)),
    'GPSTime/Fragment_1': ('<f8', (0,)),
    'GPSTime/Fragment_5': ('<f8', (2,)),
    'Positions/Fragment_0': ('<f8', (ROWS, 3)),
    'Waveforms.DirectionDelta/Fragment_0': ('<f8', (ROWS, 3)),
    'Amplitude/Fragment_0': ('<f4', (ROWS,)),
    'Channel/Fragment_0': ('|u1', (ROWS,)),
    'Waveforms/Fragment_0': ('<u2', (ROWS, 5)),
    'Waveforms/Fragment_1': ('<u2', (ROWS, 0)),
}
# Column: extent, its fragments with values, the scale of each dimension
COLUMNS = {
    'GPSTime': ((9,), (0, 5), ('row_9',)),
    'Positions': ((ROWS, 3), (0,), ('row', 'xyz')),
    'Waveforms.DirectionDelta': ((ROWS, 3), (0,), ('row', 'xyz')),
    'Amplitude': ((ROWS,), (0,), ('row',)),
    'Channel': ((ROWS,), (0,), ('row',)),
    'Waveforms': ((2 * ROWS, 5), (0,), ('row_14', 'sample')),
}
SCALES = {'row': ROWS, 'row_9': 9, 'row_14': 14, 'xyz': 3, 'sample': 5}
DESCRIPTIONS = {
    'GPSTime': ('double', 1, 's'),
    'Positions': ('Tern::PhysicalSpace::point', 3, 'm'),
    'Waveforms.DirectionDelta': ('Tern::PhysicalSpace::vector', 3, '1'),
    'Amplitude': ('float', 1, 'dB'),
    'Channel': ('unsigned char', 1, '1'),
    'Waveforms': ('unsigned short', 1, '1'),
}


def check_structure(f):
    assert (f.attrs['Format'], f.attrs['FormatVersion']) == ('K7', 1)
    assert re.fullmatch(r'rxp2k7 \d+\.\d+\.\d+', f.attrs['Creator']), f.attrs['Creator']
    assert f.attrs['FormatVersion'].dtype == '<u4'
    assert list(f) == ['Slice_0'] and f['Slice_0'].attrs['Time'] == 0.0
    chart = f[FIELDS]
    assert chart.attrs['Chart'] == 'StandardCartesianChart3D'
    assert chart.attrs['Dimension'] == 3 and chart.attrs['Dimension'].dtype == '<i4'
    assert chart.attrs['Parameter'] == 0 and chart.attrs['Parameter'].dtype == '<u2'
    for name, (element, components, units) in DESCRIPTIONS.items():
        a = chart[name].attrs
        assert (a['Element'], a['Components'], a['units']) == (element, components, units), name
        assert a['Components'].dtype == '<u4'
    assert chart['Reflectance'].attrs['units'] == 'dB' and not list(chart['Reflectance'])
    found = []
    f.visititems(lambda n, o: found.append('/' + n) if isinstance(o, h5py.Dataset) else None)
    wanted = [FIELDS + n for n in SHAPES] + ['/Slice_0/Shots/' + n for n in [*COLUMNS, *SCALES]]
    assert sorted(found) == sorted(wanted), found
    for name, (kind, shape) in SHAPES.items():
        d = f[FIELDS + name]
        assert d.dtype == np.dtype(kind) and d.shape == shape, (name, d.dtype, d.shape)


def check_values(f):
    chart = f[FIELDS]
    count = np.arange(ROWS)
    assert (chart['GPSTime/Fragment_0'][:] == 100 + count).all()
    assert (chart['GPSTime/Fragment_5'][:] == [0.25, 1.25]).all()
    assert (chart['Positions/Fragment_0'][:] == np.stack([count, count + 0.5, -count], 1)).all()
    assert (chart['Waveforms.DirectionDelta/Fragment_0'][:] == np.stack([count, 0 * count, 1 + 0 * count], 1)).all()
    assert (chart['Amplitude/Fragment_0'][:] == count / 2).all()
    assert (chart['Channel/Fragment_0'][:] == count).all()
    assert (chart['Waveforms/Fragment_0'][:] == np.arange(ROWS * 5).reshape(ROWS, 5)).all()
    added = chart['GPSTime'].attrs['LeapSecondsAdded?']
    assert added.dtype == 'u1' and added.shape == (1,) and added[0] == 0


def check_columns(f):
    grid = f['/Slice_0/Shots']
    for name, (shape, fragments, scales) in COLUMNS.items():
        column = grid[name]
        wanted = np.zeros(shape, SHAPES[name + '/Fragment_0'][0])
        first = 0
        for n in fragments:
            values = f[FIELDS + '%s/Fragment_%d' % (name, n)][...]
            wanted[first:first + len(values)] = values
            first += len(values)
        assert column.dtype == wanted.dtype and column.shape == shape, (name, column)
        assert np.array_equal(column[...], wanted), name
        assert [v.dset_name for v in column.virtual_sources()] == [FIELDS + '%s/Fragment_%d' % (name, n) for n in fragments]
        assert {v.file_name for v in column.virtual_sources()} == {'.'}
        assert column.attrs['units'] == DESCRIPTIONS[name][2] and column.attrs['long_name'], name
        for dimension, scale in zip(column.dims, scales):
            assert len(dimension) == 1 and dimension[0].name == '/Slice_0/Shots/' + scale, (name, scale)
            assert h5py.h5ds.is_attached(column.id, dimension[0].id, dimension._dimension), name
    for name, size in SCALES.items():
        assert grid[name].shape == (size,) and h5py.h5ds.is_scale(grid[name].id), name
    assert list(grid['xyz'].asstr()) == ['x', 'y', 'z']


def check_parts(writer, path):
    """Thousands of fragments: their columns go over parts."""
    count = 1100
    subprocess.run([writer, 'finish', path, '2', str(count)], check=True, stdout=subprocess.DEVNULL)
    with h5py.File(path, 'r') as f:
        column = f['/Slice_0/Shots/Channel']
        assert np.array_equal(column[...], (np.arange(count)[:, None] + [0, 1]).ravel())
        assert [v.dset_name for v in column.virtual_sources()] == ['/Slice_0/Shots/parts/Channel_%d' % i for i in range(3)]
        sizes = [len(part.virtual_sources()) for part in (f['/Slice_0/Shots/parts/Channel_%d' % i] for i in range(3))]
        assert sizes == [512, 512, 76], sizes


def check_scan_attributes(f):
    a = f['/Slice_0/Shots'].attrs
    numbers = {'group_velocity': 299702547.0, 'sampling_time': 2e-9, 'wavelength': 1064.0, 't_ref': 1.5e-7,
               'unambiguous_range': 500.0, 'refltab_delta': 0.125, 'ampl_unit': 0.25}
    for name, value in numbers.items():
        assert a[name] == value and a[name].dtype == '<f8' and a[name].shape == (), name
    assert (a['serial'], a['type_id'], a['build']) == ('S1234567', 'kind \u00e4', 'b-1')
    assert a['refltab'].dtype == '<f4' and (a['refltab'] == np.arange(16384) / 4).all()
    assert a['pulse_A_real'].dtype == '<f8' and list(a['pulse_A_real']) == [0, 0, -1.5]
    assert 'pulse_A_imag' not in a and 'pulse_B_real' not in a


def check_storage(f, kind):
    d = f[FIELDS + 'Waveforms/Fragment_0']
    if kind == 'plain':
        assert d.chunks is None and d.compression is None and not d.shuffle
    else:
        assert d.chunks == (3, 5) and d.shuffle and (d.compression, d.compression_opts) == ('gzip', 4)


def main():
    writer = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        for kind in ('plain', 'deflate'):
            paths = [os.path.join(folder, '%s_%d.k7' % (kind, i)) for i in range(2)]
            for path, perturb in zip(paths, ('85', '170')):
                # Different junk in fresh memory must not show in the file.
                run = subprocess.run([writer, 'sample', path, kind], stderr=subprocess.PIPE,
                                     env=dict(os.environ, MALLOC_PERTURB_=perturb))
                assert run.returncode == 0 and not run.stderr, run
            with h5py.File(paths[0], 'r') as f:
                check_structure(f)
                check_values(f)
                check_columns(f)
                check_scan_attributes(f)
                check_storage(f, kind)
            first, second = (open(p, 'rb').read() for p in paths)
            assert first == second, 'a rerun gives other bytes'
        check_parts(writer, os.path.join(folder, 'parts.k7'))
        assert not [n for n in os.listdir(folder) if n.endswith('.part')]


if __name__ == '__main__':
    main()
