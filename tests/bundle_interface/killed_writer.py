#!/usr/bin/python3
"""killed_writer.py WRITER KILLS [FRAGMENTS [LEAST]]: kills writers at random moments; each file must open with every
flushed fragment. With LEAST, each is killed after that many at the earliest."""
import os
import random
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np

FIELDS = '/Slice_0/Shots/StandardCartesianChart3D/'


def one(writer, folder, rows, fragments, seconds, least):
    path = os.path.join(folder, 'killed.k7')
    process = subprocess.Popen([writer, 'endless', path, str(rows), str(fragments)], stdout=subprocess.PIPE)
    first = b''.join(process.stdout.readline() for _ in range(least))
    time.sleep(seconds)
    process.kill()
    told = (first + process.communicate()[0]).decode()
    # The last line may be cut by the kill.
    flushed = len(told[:told.rfind('\n') + 1].split())
    assert not os.path.exists(path), 'a killed writer must not leave a finished file'
    with h5py.File(path + '.part', 'r') as f:
        present = []
        f.visititems(lambda n, o: present.append(n) if isinstance(o, h5py.Dataset) else None)
        for field in ('GPSTime', 'Range', 'Amplitude', 'Channel'):
            for i in range(flushed):
                values = f[FIELDS + field + '/Fragment_%d' % i][:]
                assert (values == i + np.arange(rows)).all(), (field, i)
    assert len(present) >= 4 * flushed
    return flushed


def main():
    writer, kills = sys.argv[1], int(sys.argv[2])
    fragments = int(sys.argv[3]) if len(sys.argv) > 3 else 120
    random.seed(kills)
    least = int(sys.argv[4]) if len(sys.argv) > 4 else 1
    sizes = (1, 1000, 50000) if least == 1 else (1,)
    total = 0
    for i in range(kills):
        with tempfile.TemporaryDirectory() as folder:
            # Small fragments make the writer spend its time in flushes, large ones in column data.
            total += one(writer, folder, random.choice(sizes), fragments,
                         random.uniform(0, 0.03), least)
    print('%d kills, %d fragments flushed' % (kills, total))


if __name__ == '__main__':
    main()
