#!/usr/bin/python3
"""bad_input_test.py HOST RECORDING [CASE...]: what a user does wrong, and what machines do to files. Every case ends with
the exit code and the words it should, never by a signal, and keeps what was read before the damage."""
import ctypes
import glob
import json
import os
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time


sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402

NO_TABLE = 'WFM::shall_we_write: No reflectance amplitude attributes found in meta json string.'


def without_privileges():
    """Takes from a superuser's child what lets it read and write everything, so that modes count for it too."""
    if os.getuid() == 0:
        drop_from_bounding_set, dac_override, dac_read_search = 24, 1, 2
        libc = ctypes.CDLL(None)
        for capability in (dac_override, dac_read_search):
            libc.prctl(drop_from_bounding_set, capability, 0, 0, 0)



class Case:
    def __init__(self, host, recording, folder):
        self.host, self.recording, self.folder = host, recording, folder
        self.out = os.path.join(folder, 'out')
        os.makedirs(self.out, exist_ok=True)
        os.chmod(folder, 0o755)
        with open(recording, 'rb') as f:
            self.bytes = f.read()

    def path(self, name, content=None):
        p = os.path.join(self.folder, name)
        if content is not None:
            with open(p, 'wb') as f:
                f.write(content)
        return p

    def convert(self, *inputs, options=(), out=None, preexec=None):
        p = subprocess.run([self.host, 'convert', *inputs, '--out-dir', out or self.out, '--json', *options],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120, preexec_fn=preexec)
        assert p.returncode >= 0, 'ended by signal %d' % -p.returncode
        return p

    def result(self, p):
        return json.loads(p.stdout)['results'][0]

    def k7(self, name):
        return os.path.join(self.out, name + '.k7')

    def rows(self, path):
        return {g: k7.columns(path, g) for g in ('Shots', 'OPP')}


def expect(condition, text):
    if not condition:
        raise AssertionError(text)


def says(p, *words):
    for w in words:
        expect(w in p.stderr + p.stdout, 'does not say %r: %s' % (w, p.stderr))


def missing_file(c):
    p = c.convert(c.path('nowhere.rxp'))
    expect(p.returncode == 3, 'exit %d' % p.returncode)
    says(p, 'nowhere.rxp', 'no such file')
    expect(not os.listdir(c.out), 'left something behind')


def directory(c):
    os.makedirs(c.path('folder.rxp'))
    p = c.convert(c.path('folder.rxp'))
    expect(p.returncode == 3, 'exit %d' % p.returncode)
    says(p, 'folder.rxp', 'directory')
    expect(not os.listdir(c.out), 'left something behind')


def unreadable_file(c):
    path = c.path('secret.rxp', c.bytes)
    os.chmod(path, 0)
    p = c.convert(path, preexec=without_privileges)
    expect(p.returncode == 3, 'exit %d: %s' % (p.returncode, p.stderr))
    says(p, 'secret.rxp', 'ermission denied')


def no_stream(c):
    """Nothing that a stream could begin with: the preamble is missed, the file is kept, and the text says so."""
    contents = {'empty': b'', 'fifteen': c.bytes[:15], 'other': b'x' * 16 + c.bytes[16:],
                'noise': random.Random(1).randbytes(5000)}
    for name, content in contents.items():
        p = c.convert(c.path(name + '.rxp', content))
        expect(p.returncode == 4, '%s: exit %d' % (name, p.returncode))
        expect(c.result(p)['text'] == NO_TABLE, '%s: %r' % (name, c.result(p)['text']))
        expect(not k7.fragments(c.k7(name)), name + ' has rows')


def cut_anywhere(c):
    """A recording cut at any place gives the first rows of the whole one, and the more the later the cut."""
    whole = c.path('whole.rxp', c.bytes)
    c.convert(whole, options=('--fragment-size', '100'))
    full = c.rows(c.k7('whole'))
    chance = random.Random(2)
    seen = []
    for n in sorted(chance.randrange(len(c.bytes)) for _ in range(200)):
        p = c.convert(c.path('cut.rxp', c.bytes[:n]), options=('--fragment-size', '100'))
        expect(p.returncode in (0, 4), 'cut at %d: exit %d: %s' % (n, p.returncode, p.stderr))
        part = c.rows(c.k7('cut'))
        for grid, wanted in full.items():
            for name, values in part[grid].items():
                expect(k7.same(wanted[name][:len(values)], values) is None, 'cut at %d: %s/%s differs' % (n, grid, name))
        lost = {l['name'] for l in c.result(p)['losses']}
        if n % 4 == 0 and n > 16:
            seen.append(len(part['Shots'].get('GPSTime', ())))
        elif n > 20:
            expect('partial words' in lost, 'cut at %d: partial word not counted' % n)
    expect(seen == sorted(seen) and seen[-1] > 0.9 * len(full['Shots']['GPSTime']), 'rows were lost before the cut')


def output_folder(c):
    path = c.path('good.rxp', c.bytes)
    p = c.convert(path, out=c.path('absent'))
    expect(p.returncode == 5, 'absent: exit %d' % p.returncode)
    says(p, 'absent')
    expect(not os.path.exists(c.path('absent')), 'made the folder')
    closed = c.path('closed')
    os.makedirs(closed, mode=0o555)
    p = c.convert(path, out=closed, preexec=without_privileges)
    expect(p.returncode == 5, 'closed: exit %d' % p.returncode)
    says(p, 'closed')


def full_disk(c):
    """The store fails at every size that the file may reach: never a finished file, always words and exit 5."""
    path = c.path('good.rxp', c.bytes)
    c.convert(path, options=('--fragment-size', '100'))
    size = os.path.getsize(c.k7('good'))
    os.unlink(c.k7('good'))

    def limit(n):
        def apply():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (n, n))
        return apply
    for n in [0, 1, 1000, size // 3, size // 2, size - 1] + [size * i // 12 for i in range(1, 12)]:
        p = c.convert(path, options=('--fragment-size', '100'), preexec=limit(n))
        expect(p.returncode == 5, 'limit %d of %d: exit %d: %s' % (n, size, p.returncode, p.stderr))
        says(p, 'good')
        expect(not os.path.exists(c.k7('good')), 'limit %d: a finished file' % n)


def killed(c):
    """A killed process leaves a .part that opens and holds whole fragments, the same as the finished file's."""
    host_recording = c.path('long.rxp')
    subprocess.run([c.host, 'simulate', host_recording, '--shots', '300000'], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    options = ('--fragment-size', '5000')
    begin = time.monotonic()
    c.convert(host_recording, options=options)
    seconds = time.monotonic() - begin
    whole = k7.fragments(c.k7('long'))
    os.unlink(c.k7('long'))
    chance = random.Random(3)
    kills = stored = 0
    for _ in range(int(os.environ.get('KILLS', '50'))):
        p = subprocess.Popen([c.host, 'convert', host_recording, '--out-dir', c.out, '--json', *options],
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(chance.uniform(0.02, seconds))
        p.kill()
        if p.wait() == 0:
            os.unlink(c.k7('long'))
            continue
        expect(p.returncode == -signal.SIGKILL, 'exit %d' % p.returncode)
        kills += 1
        parts = glob.glob(os.path.join(c.out, '*.part'))
        if not parts:
            continue
        found = k7.fragments(parts[0])
        for name, values in found.items():
            expect(k7.same(whole[name], values) is None, '%s differs' % name)
        # Fragments are flushed together: up to the newest number all are there, but perhaps for the newest.
        numbers = {int(n.rsplit('_', 1)[1]) for n in found}
        for n in range(max(numbers, default=0)):
            lacking = [w for w in whole if w.endswith('Fragment_%d' % n) and w not in found]
            expect(not lacking, 'fragment %d lacks %s' % (n, lacking))
        stored += bool(numbers)
        os.unlink(parts[0])
    expect(kills > 10 and stored > 5, 'only %d kills, %d with fragments' % (kills, stored))


def fragment_size_zero(c):
    p = c.convert(c.path('good.rxp', c.bytes), options=('--fragment-size', '0'))
    expect(p.returncode == 0, 'exit %d: %s' % (p.returncode, p.stderr))
    c.convert(c.path('wanted.rxp', c.bytes))
    zero, wanted = c.rows(c.k7('good')), c.rows(c.k7('wanted'))
    for grid in wanted:
        for name in wanted[grid]:
            expect(k7.same(wanted[grid][name], zero[grid][name]) is None, '%s/%s differs' % (grid, name))


def waveform_length_zero(c):
    p = c.convert(c.path('good.rxp', c.bytes), options=('--waveform-length', '0'))
    expect(p.returncode == 0, 'exit %d: %s' % (p.returncode, p.stderr))
    expect(c.result(p)['shots'] > 0, 'no shots')


def one_of_several(c):
    """One failing input does not stop the others."""
    p = c.convert(c.path('a.rxp', c.bytes), c.path('nowhere.rxp'), c.path('b.rxp', c.bytes))
    expect(p.returncode == 6, 'exit %d' % p.returncode)
    results = json.loads(p.stdout)['results']
    expect([r['shots'] > 0 for r in results] == [True, False, True], 'shots %s' % [r['shots'] for r in results])
    expect(os.path.exists(c.k7('a')) and os.path.exists(c.k7('b')), 'an output is missing')


def usage(c):
    for options in (['--time-range', 'x'], ['--time-range', '1:2:3'], ['--fragment-size', '-1'], ['--compress', '11'],
                    ['--no-such-option'], ['--fragment-size', '4294967296']):
        p = c.convert(c.path('good.rxp', c.bytes), options=options)
        expect(p.returncode == 2, '%s: exit %d' % (options, p.returncode))
        expect(not os.listdir(c.out), '%s left something behind' % options)
    p = c.convert()
    expect(p.returncode == 2, 'no input: exit %d' % p.returncode)
    os.makedirs(c.path('other'))
    p = c.convert(c.path('good.rxp', c.bytes), c.path('other/good.rxp', c.bytes))
    expect(p.returncode == 2, 'two inputs with one output: exit %d' % p.returncode)


def rerun_is_the_same(c):
    path = c.path('good.rxp', c.bytes)
    seen = []
    for _ in range(2):
        c.convert(path, options=('--fragment-size', '100'))
        with open(c.k7('good'), 'rb') as f:
            seen.append(f.read())
    expect(seen[0] == seen[1], 'two runs differ')


CASES = [missing_file, directory, unreadable_file, no_stream, cut_anywhere, output_folder, full_disk, killed,
         fragment_size_zero, waveform_length_zero, one_of_several, usage, rerun_is_the_same]


def main():
    host, recording, *names = sys.argv[1:]
    failed = 0
    for case in CASES:
        if names and case.__name__ not in names:
            continue
        folder = tempfile.mkdtemp()
        try:
            case(Case(host, recording, folder))
            print('ok      ' + case.__name__)
        except Exception as e:  # every failing case is told, not only the first
            failed += 1
            print('FAILED  %s: %s: %s' % (case.__name__, type(e).__name__, e))
        finally:
            shutil.rmtree(folder)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
