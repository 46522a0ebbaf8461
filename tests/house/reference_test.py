#!/usr/bin/env python3
"""reference_test.py REPOSITORY: the API reference is made without a warning, and what nobody describes would give one."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.abspath(sys.argv[1])
BROKEN = {
    'frontend/include/frontend/broken.hpp':
        '/// @file\n#pragma once\n/// Described.\nclass Half {\n  public:\n    int forgotten();\n};\n',
    'bundle_interface/include/bundle_interface/broken.hpp': '#pragma once\nclass Undescribed {\n  public:\n    /// Described.\n    int described();\n};\n',
    'scanlib/include/scanlib/broken.hpp':
        '#pragma once\n/// A space.\nnamespace space {\nint also_forgotten();\n}\n',
}


def make_docs(root, out):
    return subprocess.run([os.path.join(ROOT, 'scripts', 'make-docs'), out], env=dict(os.environ, DOCS_ROOT=root),
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120)


class Reference(unittest.TestCase):
    def setUp(self):
        if not shutil.which('doxygen'):
            self.skipTest('doxygen is not installed')
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.out = os.path.join(self.folder, 'out')

    def test_is_made_without_warnings_and_has_the_exported_operations(self):
        p = make_docs(ROOT, self.out)
        self.assertEqual((p.returncode, p.stdout), (0, self.out + '/html/index.html\n'))
        with open(os.path.join(self.out, 'html', 'namespaceRiegl.html'), encoding='utf-8') as f:
            page = f.read()
        for operation in ('rxpToSkeinK7', 'inspectFWFs', 'ProgressMonitor'):
            self.assertIn(operation, page)

    def test_tells_what_nobody_describes(self):
        for path, text in BROKEN.items():
            os.makedirs(os.path.dirname(os.path.join(self.folder, path)), exist_ok=True)
            with open(os.path.join(self.folder, path), 'w', encoding='utf-8') as f:
                f.write(text)
        os.mkdir(os.path.join(self.folder, 'docs'))
        for name in ('Doxyfile', 'api.md'):
            shutil.copy(os.path.join(ROOT, 'docs', name), os.path.join(self.folder, 'docs'))
        p = make_docs(self.folder, self.out)
        self.assertEqual(p.returncode, 1, p.stdout)
        for forgotten in ('Member forgotten()', 'Compound Undescribed', 'Member also_forgotten()'):
            self.assertIn(forgotten, p.stdout)


if __name__ == '__main__':
    unittest.main(argv=[sys.argv[0], '-v'])
