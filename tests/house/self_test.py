#!/usr/bin/env python3
"""The house check must find what it is there to find: each rule is broken once in a small tree of its own."""
import os
import subprocess
import sys
import tempfile

CHECK = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'check_house.py')
BROKEN = {
    'scanlib/src/up.cpp': ('#include "frontend/conversion.hpp"\n', 'scanlib must not include frontend/conversion.hpp'),
    'bundle_interface/src/side.cpp': ('#include "scanlib/pointcloud.hpp"\n', 'bundle_interface must not include scanlib/pointcloud.hpp'),
    'frontend/src/up.cpp': ('#include "host/convert.hpp"\n', 'frontend must not include host/convert.hpp'),
    'frontend/src/h5.cpp': ('#include <hdf5.h>\n', 'know HDF5'),
    'bundle_interface/src/storage.hpp': ('#include <H5Ipublic.h>\n', 'know HDF5'),
    'host/long.cpp': ('\n' * 700, '700 lines'),
    'host/letters.cpp': ('// \u00e4\n', 'not ASCII'),
}

with tempfile.TemporaryDirectory() as root:
    for path, (text, _) in BROKEN.items():
        os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
        with open(os.path.join(root, path), 'w') as f:
            f.write(text)
    for n in range(10):
        with open(os.path.join(root, 'host', 'good%d.cpp' % n), 'w') as f:
            f.write('#include "frontend/conversion.hpp"\n#include "scanlib/pointcloud.hpp"\n')
    p = subprocess.run([sys.executable, CHECK, root], stdout=subprocess.PIPE, text=True)
    missed = [path for path, (_, finding) in BROKEN.items() if not any(path in l and finding in l for l in p.stdout.split('\n'))]
    falsely = [l for l in p.stdout.split('\n') if 'good' in l]
    print(p.stdout)
    sys.exit('missed: %s, falsely: %s' % (missed, falsely) if missed or falsely or p.returncode != 1 else 0)
