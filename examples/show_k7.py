#!/usr/bin/python3
"""show_k7.py FILE.k7: what a K7 file holds, read with h5py: its grids, fragments and columns, and a few rows."""
import sys

import h5py
import numpy as np

CHART = 'StandardCartesianChart3D'


def fragments(field):
    """The fragments of one field in the order of their numbers."""
    return sorted(field, key=lambda name: int(name.split('_')[1]))


def column(grid, name):
    """One column of a grid, all its fragments joined."""
    field = grid[CHART][name]
    return np.concatenate([field[n][...] for n in fragments(field)])


def show(grid):
    fields = grid[CHART]
    numbers = fragments(fields['GPSTime'])
    if not numbers:
        print('%s: empty' % grid.name)
        return
    time = column(grid, 'GPSTime')
    print('%s: %d rows in %d fragments, GPSTime %.6f to %.6f s' % (grid.name, len(time), len(numbers), time.min(), time.max()))
    for name in fields:
        first = fields[name][numbers[0]]
        print('  %-26s %-8s %-14s %s' % (name, first.dtype, 'x'.join(map(str, first.shape)), fields[name].attrs.get('units', '')))


def main():
    with h5py.File(sys.argv[1], 'r') as f:
        print('%s: %s version %d' % (sys.argv[1], f.attrs['Format'], f.attrs['FormatVersion']))
        for grid in f['Slice_0'].values():
            show(grid)
        shots = f['Slice_0/Shots']
        for name in ('type_id', 'serial', 'build', 'group_velocity', 'wavelength'):
            print('  attribute %-16s %s' % (name, shots.attrs.get(name)))
        if 'OPP' in f['Slice_0'] and fragments(f['Slice_0/OPP'][CHART]['Range']):
            opp = f['Slice_0/OPP']
            # An echo belongs to the shot of the same time.
            time = column(shots, 'GPSTime')
            row = np.searchsorted(time, column(opp, 'GPSTime')[:5])
            origin, direction = column(shots, 'Positions')[row], column(shots, 'Waveforms.DirectionDelta')[row]
            distance = column(opp, 'Range')[:5, None]
            print('first points [m]:')
            for p in origin + distance * direction:
                print('  %10.3f %10.3f %10.3f' % tuple(p))


if __name__ == '__main__':
    main()
