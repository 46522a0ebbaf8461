#!/usr/bin/python3
"""killed_finish.py WRITER KILLS FRAGMENTS: kills writers while they add the columns and finish the file. Each file must
open with every fragment, and a column that is there must have the values of all fragments."""
import os
import random
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np

GRID = '/Slice_0/Shots/'
FIELDS = ('GPSTime', 'Range', 'Amplitude', 'Channel')
ROWS = 3


def finish(writer, path, fragments, seconds=None):
    """Runs a writer up to its finish, and kills it that long after it began. Returns how long it lived then."""
    process = subprocess.Popen([writer, 'finish', path, str(ROWS), str(fragments)], stdout=subprocess.PIPE)
    assert process.stdout.readline() == b'finishing\n'
    begin = time.monotonic()
    if seconds is not None:
        time.sleep(seconds)
        process.kill()
    process.wait()
    process.stdout.close()
    return time.monotonic() - begin


def check(path, fragments):
    """Returns how many columns the file has."""
    wanted = (np.arange(fragments)[:, None] + np.arange(ROWS)).ravel()
    with h5py.File(path, 'r') as f:
        for name in FIELDS:
            field = f[GRID + 'StandardCartesianChart3D/' + name]
            assert len(field) == fragments, (path, name, len(field))
            values = np.concatenate([field['Fragment_%d' % i][:] for i in range(fragments)])
            assert np.array_equal(values, wanted), (path, name)
        assert f[GRID].attrs['serial'] == 'S1234567' and len(f[GRID].attrs['refltab']) == 16384
        columns = [name for name in FIELDS if name in f[GRID]]
        for name in columns:
            assert np.array_equal(f[GRID + name][:], wanted), (path, name)
    return len(columns)


def main():
    writer, kills, fragments = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    random.seed(kills)
    seen = []
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, 'killed.k7')
        window = min(finish(writer, path, fragments) for _ in range(2))
        assert check(path, fragments) == len(FIELDS)
        while len(seen) < kills:
            os.unlink(path)
            finish(writer, path, fragments, random.uniform(0, window))
            if os.path.exists(path):
                check(path, fragments)  # the kill came too late
                window *= 0.95
                continue
            os.rename(path + '.part', path)
            seen.append(check(path, fragments))
    print('%d kills within %.1f ms of the finish, %d files with columns' % (kills, 1000 * window, sum(map(bool, seen))))


if __name__ == '__main__':
    main()
