#!/usr/bin/python3
"""read_k7.py FILE.k7 [--rows N]: the points of a scan with h5py, block by block: their number, their box and mean range.

Every column of a grid is one dataset, "/Slice_0/OPP/Range" and so on; a slice of it reads only those rows. An echo of the
grid "OPP" belongs to the shot of the grid "Shots" that has exactly its time, and its point is the shot's origin + range *
direction, in the scanner's own coordinates.

Files without whole columns (the .part of a conversion that was killed) and programs with HDF5 before 1.10 have the same rows
in fragments; `fragments` reads them.
"""
import argparse

import h5py
import numpy as np

CHART = 'StandardCartesianChart3D'


def fragments(grid, name):
    """The fragments of one column in the order of their rows."""
    field = grid[CHART][name]
    for fragment in sorted(field, key=lambda n: int(n.split('_')[1])):
        yield field[fragment][...]


def column(grid, name):
    """One column, all of it."""
    if name in grid:
        return grid[name][...]
    return np.concatenate(list(fragments(grid, name)) or [np.empty(0)])


def blocks(grid, names, rows):
    """Columns of a grid in blocks of so many rows, as a dictionary of arrays."""
    if all(name in grid for name in names):
        for first in range(0, len(grid[names[0]]), rows):
            yield {name: grid[name][first:first + rows] for name in names}
    else:
        # Within a grid all columns of a fragment have the same number of rows.
        for parts in zip(*(fragments(grid, name) for name in names)):
            for first in range(0, len(parts[0]), rows):
                yield {name: part[first:first + rows] for name, part in zip(names, parts)}


class Shots:
    """Times, origins and beams of all shots, for finding those of echoes."""

    def __init__(self, grid):
        self.time = column(grid, 'GPSTime')
        self.origin = column(grid, 'Positions')
        self.direction = column(grid, 'Waveforms.DirectionDelta')

    def points(self, echoes):
        """Points of a block of echoes, one a row."""
        row = np.searchsorted(self.time, echoes['GPSTime'])
        return self.origin[row] + echoes['Range'][:, None] * self.direction[row]


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument('file')
    p.add_argument('--rows', type=int, default=1000000, help='of a block')
    a = p.parse_args()
    with h5py.File(a.file, 'r') as f:
        slices = f['Slice_0']
        about = slices['Shots'].attrs
        print('%s %s, %d shots' % (about.get('type_id'), about.get('serial'), len(column(slices['Shots'], 'GPSTime'))))
        if 'OPP' not in slices:
            p.exit(0, 'no echoes\n')
        shots = Shots(slices['Shots'])
        count, total = 0, 0.0
        low, high = np.full(3, np.inf), np.full(3, -np.inf)
        for echoes in blocks(slices['OPP'], ('GPSTime', 'Range'), a.rows):
            points = shots.points(echoes)
            count += len(points)
            total += echoes['Range'].sum()
            low, high = np.minimum(low, points.min(axis=0)), np.maximum(high, points.max(axis=0))
        if count == 0:
            p.exit(0, 'no echoes\n')
        print('%d points, mean range %.3f m' % (count, total / count))
        print('from %.3f %.3f %.3f m to %.3f %.3f %.3f m' % (*low, *high))


if __name__ == '__main__':
    main()
