#!/usr/bin/python3
"""installed_test.py SOURCE BUILD CMAKE COMPILER TEST ...: the installed files, as a client of the library meets them."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import h5py

import staged
from staged import STAGE, read, run

OPERATIONS = ['Riegl::rxpToSkeinK7', 'Riegl::inspectFWFs', 'Riegl::Input::speak[abi:cxx11]']


def library():
    """The library under its full name."""
    found = [os.path.join(path, n) for path, _, names in os.walk(STAGE) for n in names
             if re.fullmatch(r'librxp2k7\.so\.\d+\.\d+\.\d+', n)]
    if len(found) != 1:
        raise AssertionError('libraries found: %s' % found)
    return found[0]


class Install(unittest.TestCase):
    """Comes first: the other tests use what it leaves."""

    @classmethod
    def setUpClass(cls):
        shutil.rmtree(STAGE, ignore_errors=True)
        # Who installed this build somewhere removes it by the list that the build keeps.
        manifest = os.path.join(staged.BUILD, 'install_manifest.txt')
        before = read(manifest) if os.path.exists(manifest) else None
        run(staged.CMAKE, '--install', staged.BUILD, '--prefix', STAGE)
        if before is not None:
            with open(manifest, 'w') as f:
                f.write(before)

    def test_program_finds_its_library_without_help(self):
        env = {k: v for k, v in os.environ.items() if k != 'LD_LIBRARY_PATH'}
        self.assertRegex(run(staged.HOST, '--version', env=env).stdout, r'^rxp2k7 \d+\.\d+\.\d+\n$')
        self.assertIn(os.path.realpath(os.path.dirname(library())),
                      os.path.realpath(re.search(r'librxp2k7\S* => (\S+)', run('ldd', staged.HOST, env=env).stdout)[1]))

    def test_soname_is_the_major_version_and_links_lead_to_the_file(self):
        full = library()
        major = re.search(r'\.so\.(\d+)\.', full)[1]
        dynamic = run('readelf', '-d', full).stdout
        self.assertEqual(re.search(r'SONAME.*\[(.*)\]', dynamic)[1], 'librxp2k7.so.' + major)
        for name in ('librxp2k7.so', 'librxp2k7.so.' + major):
            self.assertEqual(os.path.realpath(os.path.join(os.path.dirname(full), name)), os.path.realpath(full))

    def test_nothing_else_is_installed(self):
        places = re.compile(r'bin/rxp2k7|include/rxp2k7/.*\.hpp|lib[^/]*/librxp2k7\.so[.\d]*|lib[^/]*/cmake/rxp2k7/[\w-]+\.cmake'
                            r'|lib[^/]*/pkgconfig/rxp2k7\.pc|share/man/man1/rxp2k7[\w-]*\.1|share/doc/rxp2k7/[\w.-]+'
                            r'|share/bash-completion/completions/rxp2k7|share/zsh/site-functions/_rxp2k7'
                            r'|share/fish/vendor_completions\.d/rxp2k7\.fish')
        files = [os.path.relpath(os.path.join(path, n), STAGE) for path, _, names in os.walk(STAGE) for n in names]
        self.assertGreater(len(files), 30)
        self.assertEqual([f for f in files if not places.fullmatch(f)], [])

    def test_no_installed_text_knows_the_build_or_source_folder(self):
        for path, _, names in os.walk(STAGE):
            for name in names:
                if name.endswith(('.cmake', '.pc', '.1', '.hpp', '.fish')) or name.startswith('_'):
                    text = read(os.path.join(path, name))
                    self.assertNotIn(staged.SOURCE, text, name)


class Headers(unittest.TestCase):
    def setUp(self):
        self.root = staged.staged('include', 'rxp2k7')
        self.headers = {os.path.relpath(os.path.join(path, n), self.root)
                        for path, _, names in os.walk(self.root) for n in names}

    def test_are_those_of_the_exported_operations_and_what_they_include(self):
        own = os.path.join(staged.SOURCE, 'frontend', 'include')
        waiting = ['frontend/' + n for n in os.listdir(os.path.join(own, 'frontend'))
                   if 'RXP2K7_EXPORT' in read(os.path.join(own, 'frontend', n))]
        self.assertTrue(waiting)
        needed = set()
        while waiting:
            header = waiting.pop()
            if header not in needed:
                needed.add(header)
                waiting += re.findall(r'#include "([^"]+)"', read(os.path.join(self.root, header)))
        self.assertEqual(self.headers, needed)

    def test_each_compiles_alone(self):
        # Before the language was C++17 there was no std::filesystem; clients need no newer one.
        failures = []
        for header in sorted(self.headers):
            p = subprocess.run([staged.COMPILER, '-std=c++17', '-Wall', '-Wextra', '-Wpedantic', '-Werror', '-fsyntax-only',
                                '-I', self.root, '-x', 'c++', '-'], input='#include "%s"\n' % header,
                               stderr=subprocess.PIPE, text=True, timeout=120)
            if p.returncode:
                failures.append(header + ': ' + p.stderr.split('\n')[0])
        self.assertEqual(failures, [])


class Symbols(unittest.TestCase):
    def setUp(self):
        lines = run('nm', '-DC', '--defined-only', library()).stdout.splitlines()
        self.shown = {line.split(' ', 2)[2] for line in lines}

    def test_are_those_of_the_list(self):
        listed = set(read(os.path.join(staged.SOURCE, 'tests', 'house', 'exported_symbols.txt')).splitlines())
        self.assertEqual(sorted(self.shown - listed), [], 'shown, but not listed')
        self.assertEqual(sorted(listed - self.shown), [], 'listed, but not shown')

    def test_hold_the_operations(self):
        for operation in OPERATIONS:
            self.assertTrue(any(s.startswith(operation + '(') for s in self.shown), operation)

    def test_hold_nothing_of_other_libraries(self):
        self.assertEqual([s for s in self.shown if not re.search(r'\b(Riegl|Holdfast|Skein)::', s)], [])


class Client(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.example = os.path.join(staged.SOURCE, 'examples', 'use_library')
        cls.recording = os.path.join(cls.folder, '200101_120000_Scanner_1.rxp')
        run(staged.HOST, 'simulate', cls.recording, '--shots', 5000)

    def convert_with(self, program, env=None):
        out = tempfile.mkdtemp(dir=self.folder)
        p = run(program, self.recording, out, env=env)
        with h5py.File(os.path.join(out, '200101_120000_Scanner_1.k7')) as f:
            grids = f['Slice_0']
            rows = [sum(d.shape[0] for n, d in grids[g]['StandardCartesianChart3D/GPSTime'].items() if n.startswith('Fragment_'))
                    for g in ('Shots', 'OPP')]
        self.assertEqual(rows[0], 5000)
        self.assertIn('%d shots, %d echoes, 0 waveforms' % tuple(rows), p.stdout)
        steps = [int(n) for n in re.findall(r'^.*: (\d+) of about \d+$', p.stdout, re.M)]
        self.assertIn(len(steps), range(1, 12))
        self.assertEqual(steps, sorted(steps))

    def test_of_cmake_finds_builds_and_converts(self):
        build = os.path.join(self.folder, 'build')
        run(staged.CMAKE, '-S', self.example, '-B', build, '-DCMAKE_PREFIX_PATH=' + STAGE,
            '-DCMAKE_CXX_COMPILER=' + staged.COMPILER, '-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror')
        run(staged.CMAKE, '--build', build)
        program = os.path.join(build, 'use_rxp2k7')
        self.convert_with(program)
        missing = run(program, os.path.join(self.folder, 'missing.rxp'), self.folder, code=1)
        self.assertIn('missing.rxp', missing.stderr)

    def test_of_pkg_config_builds_and_converts_from_a_moved_prefix(self):
        moved = os.path.join(self.folder, 'moved')
        shutil.copytree(STAGE, moved, symlinks=True)
        folder = os.path.join(moved, os.path.relpath(os.path.dirname(library()), STAGE))
        env = dict(os.environ, PKG_CONFIG_PATH=os.path.join(folder, 'pkgconfig'), LD_LIBRARY_PATH=folder)
        flags = run('pkg-config', '--cflags', '--libs', 'rxp2k7', env=env).stdout.split()
        self.assertIn(os.path.realpath(moved), os.path.realpath(flags[0][2:]))
        program = os.path.join(self.folder, 'by_pkg_config')
        run(staged.COMPILER, '-std=c++17', os.path.join(self.example, 'main.cpp'), '-o', program, *flags)
        self.convert_with(program, env)

    def test_that_asks_for_another_version_is_refused(self):
        project = os.path.join(self.folder, 'newer')
        os.mkdir(project)
        with open(os.path.join(project, 'CMakeLists.txt'), 'w') as f:
            f.write('cmake_minimum_required(VERSION 3.16)\nproject(newer NONE)\nfind_package(rxp2k7 99.0 REQUIRED)\n')
        p = run(staged.CMAKE, '-S', project, '-B', project, '-DCMAKE_PREFIX_PATH=' + STAGE, code=1)
        self.assertIn('99.0', p.stderr)


if __name__ == '__main__':
    staged.main()
