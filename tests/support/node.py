"""Independent readers that run in node, for tests. scripts/setup has them installed where it can."""
import json
import os
import shutil
import subprocess

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..')
INSTALLED = os.path.join(ROOT, 'build', 'readers', 'node')


def missing(package):
    """What there is not, as a text, or None."""
    if not shutil.which('node'):
        return 'node is not installed'
    if not os.path.isdir(os.path.join(INSTALLED, 'node_modules', package)):
        return package + ' is not installed'
    return None


def run(script, *args):
    """The JSON that a script of tests/node prints. It goes in by standard input, so that it finds the packages by the place it
    runs at; paths among its arguments are absolute."""
    with open(os.path.join(ROOT, 'tests', 'node', script), encoding='ascii') as source:
        p = subprocess.run(['node', '--input-type=module', '-', *args], stdin=source, cwd=INSTALLED,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)
    assert p.returncode == 0, p.stderr
    return json.loads(p.stdout)
