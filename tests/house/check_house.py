#!/usr/bin/env python3
"""check_house.py REPOSITORY: the rules of the house that a machine can check.

  - includes point one way: host -> frontend -> (scanlib, bundle_interface)
  - only the writers and the reader of K7 files include HDF5; tests may read back with it
  - sources are ASCII and no longer than 600 lines
  - every public header compiles alone (the caller passes the compiler command behind --)
"""
import os
import re
import subprocess
import sys
import tempfile

# Folder -> folders whose headers it may include. A folder's own headers are always allowed.
ARROWS = {
    'scanlib': set(),
    'bundle_interface': set(),
    'frontend': {'scanlib', 'bundle_interface'},
    'host': {'frontend', 'scanlib', 'bundle_interface'},
}
LONGEST = 600
HDF5_FILES = tuple('bundle_interface/src/%s.cpp' % n for n in ('k7_columns', 'k7_file', 'k7_reader', 'storage_library'))


def sources(root, folder):
    for path, _, names in os.walk(os.path.join(root, folder)):
        for n in sorted(names):
            if n.endswith(('.cpp', '.hpp', '.inc')):
                yield os.path.relpath(os.path.join(path, n), root)


def owner_of(root, include):
    for folder in ARROWS:
        if include.startswith(folder + '/') or os.path.exists(os.path.join(root, folder, 'include', include)):
            return folder
    return None


def check_file(root, folder, path):
    with open(os.path.join(root, path), 'rb') as f:
        raw = f.read()
    if not raw.isascii():
        yield '%s: not ASCII' % path
    lines = raw.decode('latin-1').split('\n')
    if len(lines) > LONGEST + 1:
        yield '%s: %d lines' % (path, len(lines) - 1)
    for number, line in enumerate(lines, 1):
        m = re.match(r'\s*#\s*include\s*[<"]([^>"]+)[>"]', line)
        if not m:
            continue
        to = owner_of(root, m[1])
        if to and to != folder and to not in ARROWS.get(folder, set(ARROWS)):
            yield '%s:%d: %s must not include %s' % (path, number, folder, m[1])
        if '..' in m[1]:
            yield '%s:%d: include leaves its folder' % (path, number)
        if folder in ARROWS and re.match(r'(hdf5|H5\w*)\.h', m[1]) and path not in HDF5_FILES:
            yield '%s:%d: only %s know HDF5' % (path, number, ' and '.join(HDF5_FILES))


def check_headers(root, compiler):
    for folder in ARROWS:
        for path in sources(root, folder):
            if '/include/' not in path:
                continue
            with tempfile.NamedTemporaryFile('w', suffix='.cpp') as f:
                f.write('#include "%s"\n' % path.split('/include/')[1])
                f.flush()
                p = subprocess.run(compiler + ['-fsyntax-only', f.name], stderr=subprocess.PIPE, text=True)
            if p.returncode:
                yield '%s does not compile alone: %s' % (path, p.stderr.split('\n')[0])


def main():
    root = sys.argv[1]
    found, files = [], 0
    for folder in list(ARROWS) + ['tests', 'bench', 'fuzz', 'examples']:
        for path in sources(root, folder):
            files += 1
            found += check_file(root, folder, path)
    if '--' in sys.argv:
        found += check_headers(root, sys.argv[sys.argv.index('--') + 1:])
    for line in found:
        print(line)
    print('%d files, %d findings' % (files, len(found)))
    return 1 if found or files < 10 else 0


if __name__ == '__main__':
    sys.exit(main())
