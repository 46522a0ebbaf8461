#!/usr/bin/python3
"""package_test.py SOURCE BUILD CMAKE COMPILER TEST ...: the Debian packages, built and unpacked."""
import os
import re
import shutil
import tempfile
import unittest

import staged
from staged import run


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not shutil.which('dpkg-shlibdeps'):
            raise unittest.SkipTest('dpkg-dev is not installed')
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cpack = os.path.join(os.path.dirname(staged.CMAKE), 'cpack')
        run(cpack, '-G', 'DEB', '-B', cls.folder, '--config', os.path.join(staged.BUILD, 'CPackConfig.cmake'))
        packages = [os.path.join(cls.folder, n) for n in sorted(os.listdir(cls.folder)) if n.endswith('.deb')]
        names = [os.path.basename(p).split('_')[0] for p in packages]
        if names != ['rxp2k7-dev', 'rxp2k7']:
            raise AssertionError('packages: %s' % names)
        cls.development, cls.program = packages
        cls.root = os.path.join(cls.folder, 'root')
        run('dpkg-deb', '-x', cls.program, cls.root)

    def control(self, package, field):
        return run('dpkg-deb', '-f', package, field).stdout.strip()

    def files(self, package):
        listed = run('dpkg-deb', '-c', package).stdout.splitlines()
        return [re.search(r' \./(\S+)', line)[1] for line in listed if not line.startswith('d')]

    def test_depends_on_the_libraries_that_it_loads(self):
        depends = self.control(self.program, 'Depends')
        for name in ('libc6', 'libstdc++6', 'libhdf5', 'libcairo2', 'libqt6core6', 'libboost-filesystem'):
            loaded = run('ldd', os.path.join(self.root, 'usr/bin/rxp2k7')).stdout
            file = {'libhdf5': 'libhdf5', 'libc6': 'libc.so', 'libstdc++6': 'libstdc++', 'libcairo2': 'libcairo',
                    'libqt6core6': 'libQt6Core', 'libboost-filesystem': 'libboost_filesystem'}[name]
            self.assertEqual(name in depends, file in loaded, '%s in %s' % (name, depends))
        self.assertIn('libhdf5', depends)

    def test_program_runs_where_it_was_unpacked(self):
        program = os.path.join(self.root, 'usr', 'bin', 'rxp2k7')
        recording = os.path.join(self.folder, '200101_120000_Scanner_1.rxp')
        run(program, 'simulate', recording, '--shots', 2000, env={})
        run(program, 'convert', recording, '--out-dir', self.folder, env={})
        self.assertTrue(os.path.exists(os.path.join(self.folder, '200101_120000_Scanner_1.k7')))

    def test_clients_package_needs_just_this_version_of_the_program(self):
        self.assertEqual(self.control(self.development, 'Depends'), 'rxp2k7 (= %s)' % self.control(self.program, 'Version'))

    def test_clients_files_are_in_their_own_package(self):
        client = re.compile(r'usr/include/|.*\.cmake$|.*\.pc$|.*/librxp2k7\.so$|usr/share/doc/rxp2k7-dev/')
        self.assertEqual([f for f in self.files(self.program) if client.match(f)], [])
        self.assertEqual([f for f in self.files(self.development) if not client.match(f)], [])

    def test_documents_lie_where_debian_looks_for_them(self):
        files = self.files(self.program)
        for name in ('usr/share/man/man1/rxp2k7-convert.1.gz', 'usr/share/bash-completion/completions/rxp2k7',
                     'usr/share/zsh/vendor-completions/_rxp2k7', 'usr/share/fish/vendor_completions.d/rxp2k7.fish',
                     'usr/share/doc/rxp2k7/copyright', 'usr/share/doc/rxp2k7/changelog.gz'):
            self.assertIn(name, files)

    def test_pages_are_packed_always_in_the_same_way(self):
        folder = os.path.join(self.root, 'usr', 'share', 'man', 'man1')
        self.assertGreater(len(os.listdir(folder)), 5)
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), 'rb') as f:
                head = f.read(10)
            # Best compression, with neither a name nor a time of its own.
            self.assertEqual(head[:9], b'\x1f\x8b\x08\x00\x00\x00\x00\x00\x02', name)

    def test_policy_finds_no_errors(self):
        if not shutil.which('lintian'):
            self.skipTest('lintian is not installed')
        run('lintian', '--allow-root', '--fail-on', 'error', self.program, self.development)

    def test_loader_learns_of_the_library(self):
        run('dpkg-deb', '-e', self.program, os.path.join(self.folder, 'control'))
        self.assertEqual(staged.read(os.path.join(self.folder, 'control', 'triggers')), 'activate-noawait ldconfig\n')


if __name__ == '__main__':
    staged.main()
