#!/usr/bin/python3
"""read_k7_xarray.py FILE.k7: the points of a scan with xarray: their number, their box and mean range, and the shot with most
echoes.

A grid is a netCDF group, so that xarray opens it without options: one variable a column, with the dimensions `row`, `xyz` (of
points and directions) and `sample` (of waveforms), and the scan attributes of the instrument. Values are read when they are
asked for. The engines "netcdf4" and "h5netcdf" both do. Each looks through the whole file first; where a file has
thousands of fragments, h5py opens it sooner (read_k7.py).
"""
import sys

import numpy as np
import xarray


def main():
    path = sys.argv[1]
    shots = xarray.open_dataset(path, group='Slice_0/Shots')
    echoes = xarray.open_dataset(path, group='Slice_0/OPP')
    print('%s %s, %d shots' % (shots.attrs.get('type_id'), shots.attrs.get('serial'), shots.sizes['row']))
    if echoes.sizes['row'] == 0:
        print('no echoes')
        return
    # An echo belongs to the shot of the same time.
    shot = xarray.DataArray(np.searchsorted(shots.GPSTime, echoes.GPSTime), dims='row')
    points = shots.Positions.load()[shot] + echoes.Range * shots['Waveforms.DirectionDelta'].load()[shot]
    print('%d points, mean range %.3f m' % (points.sizes['row'], echoes.Range.mean()))
    print('from %.3f %.3f %.3f m to %.3f %.3f %.3f m' % (*points.min('row').values, *points.max('row').values))
    times, counts = np.unique(echoes.GPSTime, return_counts=True)
    print('most echoes of a shot: %d, at %.6f s' % (counts.max(), times[counts.argmax()]))
    print('highest point: x %.3f m' % points.sel(xyz='x').values[points.sel(xyz='z').argmax()])


if __name__ == '__main__':
    main()
