"""What the packaging tests share: the staged installation, and what the program's help tells."""
import os
import re
import subprocess
import sys
import unittest

SOURCE, BUILD, CMAKE, COMPILER = sys.argv[1:5]
STAGE = os.path.join(BUILD, 'staged')
HOST = os.path.join(STAGE, 'bin', 'rxp2k7')


def run(*args, code=0, **more):
    p = subprocess.run([str(a) for a in args], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                       text=True, timeout=240, **more)
    if p.returncode != code:
        raise AssertionError('%s ended with %d: %s%s' % (args[0], p.returncode, p.stdout, p.stderr))
    return p


def staged(*names):
    return os.path.join(STAGE, *names)


def read(path):
    with open(path, encoding='utf-8') as f:
        return f.read()


def help_of(command):
    return run(HOST, *[c for c in (command, '--help') if c]).stdout


def commands():
    """Names of all commands, as the help lists them."""
    listed = help_of('').split('\nSubcommands:\n')[1].split('\n\n')[0]
    return re.findall(r'^  (\S+)', listed, re.M)


def option_lines(command):
    return re.findall(r'^  (-\S+.*)', help_of(command), re.M)


def options(command):
    """Names of all options of a command."""
    return {name for line in option_lines(command) for name in line.split()[0].split(',')}


def choices(command):
    """Names of the options that take one of some words, with these words."""
    found = {}
    for line in option_lines(command):
        m = re.match(r'(\S+) \S+?:\{([^}]*)\}', line)
        if m:
            found[m[1].split(',')[-1]] = set(m[2].split(','))
    return found


def main():
    unittest.main(argv=[sys.argv[0], '-v'] + sys.argv[5:])
