#!/usr/bin/env python3
"""documents_test.py REPOSITORY [CTEST BUILD]: what documents quote from the tree is there.

  - docs/guarded-inputs.md names tests: cases and suites of the test framework, tests and functions of the scripts, fuzz
    targets, and paths
  - docs/architecture.md names paths and identifiers of the sources
  - docs/troubleshooting.md quotes texts that the program says: parts between `...` stand in literals of one source. It lists
    every kind of loss and every exit code
  - README.md and the pages show commands: programs of the tree can be called as they are shown
"""
import fnmatch
import os
import re
import subprocess
import sys
import unittest

ROOT = os.path.abspath(sys.argv[1])
CTEST = sys.argv[2:4]
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def read(*names):
    with open(os.path.join(ROOT, *names), encoding='utf-8', errors='replace') as f:
        return f.read()


def files(folders, ends):
    for folder in folders:
        for path, _, names in os.walk(os.path.join(ROOT, folder)):
            for name in sorted(names):
                if name.endswith(ends):
                    yield os.path.relpath(os.path.join(path, name), ROOT)


def names_of_tests(listed):
    """Every name that a test may be called by. `listed` is what ctest lists."""
    found = set(re.findall(r'^ *Test +#\d+: (\S+)', listed, re.M))
    for path in files(['tests'], '.cpp'):
        for suite, case in re.findall(r'^(?:TYPED_)?TEST(?:_[FP])?\((\w+),\s*(\w+)\)', read(path), re.M):
            found |= {suite, case, suite + '.' + case}
    for path in files(['tests'], '.py'):
        found |= set(re.findall(r'^ *def (test_\w+)', read(path), re.M))
    for path in files(['fuzz'], 'CMakeLists.txt'):
        found |= set(re.findall(r'rxp2k7_fuzz\((\w+)', read(path)))
    return found


def called_programs(document):
    """Programs of the tree with which a shown command begins."""
    return set(re.findall(r'^    ((?:examples|scripts)/\S+)', document, re.M))


def missing_tests(document, tests):
    """Names in the last column of the table that name nothing."""
    missing, asked = [], 0
    for row in re.findall(r'^\| .*\|$', document, re.M):
        for name in re.findall(r'`([^`]+)`', row.rsplit('|', 2)[1]):
            asked += 1
            there = os.path.exists(os.path.join(ROOT, name)) if '/' in name else fnmatch.filter(tests, name)
            if not there:
                missing.append(name)
    return missing, asked


def missing_places(document, paths, sources):
    """Code spans that are no path of the tree, from its root or from a library's folder, and no identifiers of the sources."""
    def is_there(span):
        if '/' in span or span.endswith(('.cpp', '.hpp', '.txt')) or '*' in span:
            return any(fnmatch.fnmatch(p, '%s%s%s' % (front, span, behind))
                       for p in paths for front in ('', '*/') for behind in ('', '/*'))
        return all(re.search(r'\b%s\b' % word, sources) for word in re.findall(r'\w+', span))
    return [span for span in re.findall(r'`([^`]+)`', document) if not is_there(span)]


def literals(text):
    """The text's literals, those that stand beside each other as one."""
    text = re.sub(r'^\s*#.*|//.*', '', text, flags=re.M)
    return [''.join(LITERAL.findall(m[0])).replace('\\"', '"').replace('\\n', '\n')
            for m in re.finditer(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+', text)]


def quoted_texts(document):
    """The code spans that begin an entry, one a line."""
    for entry in re.findall(r'^- (`.*(?:\n  `.*)*)', document, re.M):
        for line in entry.split('\n'):
            span = re.fullmatch(r' *`([^`]+)`', line)
            if not span:
                break
            yield span[1]


def is_said(text, sources):
    parts = [p for p in (part.strip() for part in re.split(r'\.\.\.|": ', text)) if re.search('[A-Za-z]', p)]
    return bool(parts) and any(all(any(p in one for one in said) for p in parts) for said in sources)


class Documents(unittest.TestCase):
    def test_guarded_inputs_name_tests_that_exist(self):
        listed = subprocess.run([CTEST[0], '--test-dir', CTEST[1], '-N'], stdout=subprocess.PIPE, text=True, check=True)
        missing, asked = missing_tests(read('docs', 'guarded-inputs.md'), names_of_tests(listed.stdout))
        self.assertGreater(asked, 150)
        self.assertEqual(missing, [])

    def test_architecture_names_what_is_there(self):
        paths = list(files(['scanlib', 'bundle_interface', 'frontend', 'host'], ''))
        sources = '\n'.join(read(p) for p in paths if p.endswith(('.cpp', '.hpp')))
        document = read('docs', 'architecture.md')
        self.assertGreater(document.count('`'), 100)
        self.assertEqual(missing_places(document, paths, sources), [])

    def test_programs_can_be_called_as_they_are_shown(self):
        pages = ['README.md'] + list(files(['docs'], '.md'))
        called = set().union(*(called_programs(read(p)) for p in pages))
        self.assertGreater(len(called), 2)
        self.assertEqual([p for p in sorted(called) if not os.access(os.path.join(ROOT, p), os.X_OK)], [])

    def test_troubleshooting_quotes_what_the_program_says(self):
        sources = [literals(read(p)) for p in files(['host', 'frontend', 'bundle_interface', 'scanlib'], ('.cpp', '.hpp'))]
        texts = list(quoted_texts(read('docs', 'troubleshooting.md')))
        self.assertGreater(len(texts), 80)
        self.assertEqual([t for t in texts if not is_said(t, sources)], [])

    def test_troubleshooting_lists_every_loss(self):
        told = re.findall(r'^    \{"([^"]+)",', read('scanlib', 'src', 'losses', 'loss_log.cpp'), re.M)
        listed = re.findall(r'^\| (.+?) \|', read('docs', 'troubleshooting.md').split('\n## Losses\n')[1], re.M)
        self.assertGreater(len(told), 20)
        self.assertEqual(sorted(listed[1:]), sorted(told))

    def test_troubleshooting_lists_every_exit_code(self):
        codes = re.findall(r'^    \w+ = (\d+),', read('host', 'exit_code.hpp'), re.M)
        listed = re.findall(r'^\| (\d+) \|', read('docs', 'troubleshooting.md'), re.M)
        self.assertEqual(listed, codes)


class Check(unittest.TestCase):
    """What the checks above find."""

    def test_finds_tests_that_do_not_exist(self):
        document = '| Input | Result | Test |\n|---|---|---|\n| a `b` | c | `Suite.Case`, `Gone`, `Suite.*`, `no/path`, `docs` |\n'
        self.assertEqual(missing_tests(document, {'Suite', 'Case', 'Suite.Case', 'docs'}), (['Gone', 'no/path'], 5))

    def test_finds_places_that_are_not_there(self):
        document = '`scanlib`, `a/b.*`, `b.cpp`, `a/b.*`, `c.cpp`, `x/y`, `known`, `known::gone`, `b*.cpp`'
        self.assertEqual(missing_places(document, ['scanlib/a/b.cpp'], 'class known; scanlib'),
                         ['c.cpp', 'x/y', 'known::gone'])

    def test_finds_programs_that_are_called(self):
        document = 'Text:\n\n    scripts/one   # why\n    examples/two a b\n    else scripts/three\n\nscripts/four\n'
        self.assertEqual(called_programs(document), {'scripts/one', 'examples/two'})

    def test_finds_texts_that_nothing_says(self):
        said = [literals('f("cannot \\"" + x + "\\": gone\\n" " for good"); // "never said"\n')]
        self.assertTrue(is_said('cannot "...": gone', said))
        self.assertTrue(is_said('cannot "..."', said))
        for text in ('cannot ...: here', 'never said', '...', 'gone for good'):
            self.assertFalse(is_said(text, said), text)
        self.assertEqual(list(quoted_texts('- `one`\n  `two`\n  Prose `three`.\n- no `four`\n')), ['one', 'two'])


if __name__ == '__main__':
    unittest.main(argv=[sys.argv[0], '-v'])
