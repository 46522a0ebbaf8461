"""Reading and comparing K7 files with h5py, for tests."""
import h5py
import numpy as np


def fragments(path):
    """Every stored fragment: path within the file -> array."""
    out = {}
    with h5py.File(path, 'r') as f:
        f.visititems(lambda n, o: out.__setitem__(n, o[...]) if isinstance(o, h5py.Dataset) and '/Fragment_' in n else None)
    return out


def attributes(path):
    out = {}
    with h5py.File(path, 'r') as f:
        f.visititems(lambda n, o: out.__setitem__(n, dict(o.attrs)) if isinstance(o, h5py.Group) and len(o.attrs) else None)
    return out


def columns(path, grid, names=None):
    """The columns of a grid, fragments joined in the order of their numbers."""
    out = {}
    with h5py.File(path, 'r') as f:
        if grid not in f['Slice_0']:
            return out
        chart = f['Slice_0'][grid]['StandardCartesianChart3D']
        for name in names or chart:
            parts = sorted(chart[name], key=lambda n: int(n.split('_')[1]))
            if parts:
                out[name] = np.concatenate([chart[name][n][...] for n in parts])
    return out


def points(path):
    """The points of a K7 file as `export` names their columns, by a join of whole columns, in the order of the echoes."""
    shots, echoes = columns(path, 'Shots'), columns(path, 'OPP')
    rows = {time: row for row, time in enumerate(shots['GPSTime'])}
    row = np.array([rows.get(time, -1) for time in echoes['GPSTime']])
    places = shots['Positions'][row] + echoes['Range'][:, None] * shots['Waveforms.DirectionDelta'][row]
    number, seen = [], {}
    for time in echoes['GPSTime']:
        seen[time] = seen.get(time, 0) + 1
        number.append(seen[time])
    out = dict(zip('xyz', places.T), gps_time=echoes['GPSTime'], amplitude=echoes['Amplitude'],
               reflectance=echoes['Reflectance'], channel=echoes['Channel'], return_number=np.array(number),
               number_of_returns=np.array([seen[time] for time in echoes['GPSTime']]))
    return {n: values[row >= 0] for n, values in out.items()}


def same(expected, actual, rtol=1e-9):
    """None when two arrays or numbers agree, else a text. 32-bit floats may differ by one unit in the last place."""
    e, a = np.asarray(expected), np.asarray(actual)
    if e.shape != a.shape or e.dtype.kind != a.dtype.kind or (e.dtype.kind != 'U' and e.dtype.itemsize != a.dtype.itemsize):
        return '%s %s, expected %s %s' % (a.dtype, a.shape, e.dtype, e.shape)
    if e.dtype.kind != 'f':
        return None if np.array_equal(e, a) else 'values differ'
    tolerance = np.spacing(np.abs(e)).astype('f8') if e.dtype.itemsize == 4 else np.maximum(rtol * np.abs(e), 1e-12)
    with np.errstate(invalid='ignore'):
        close = (e == a) | (np.abs(e.astype('f8') - a.astype('f8')) <= tolerance) | (np.isnan(e) & np.isnan(a))
    bad = np.argwhere(~close)
    if len(bad):
        i = tuple(bad[0])
        return '%d of %d values differ, first at %s: %r, expected %r' % (len(bad), e.size, i, a[i], e[i])
    return None


def differences(expected, actual):
    """What of file `expected` does not stand the same in `actual`, and fragments that only `actual` has."""
    found = []
    e, a = fragments(expected), fragments(actual)
    found += ['missing ' + n for n in sorted(set(e) - set(a))] + ['unexpected ' + n for n in sorted(set(a) - set(e))]
    found += ['%s: %s' % (n, d) for n in sorted(set(e) & set(a)) for d in [same(e[n], a[n])] if d]
    ea, aa = attributes(expected), attributes(actual)
    for group, wanted in ea.items():
        for key, value in wanted.items():
            d = same(value, aa[group][key]) if key in aa.get(group, {}) else 'missing'
            if d:
                found.append('%s: attribute %s: %s' % (group, key, d))
    return found
