#!/usr/bin/python3
"""recordings_test.py HOST FOLDER: converts the recording in FOLDER and compares everything that comes out of it: the K7
file, the returned text, `Errors`, the error log, the console and standard output."""
import glob
import json
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402


def arguments(o, name, out):
    args = ['convert', name, '--out-dir', out, '--fragment-size', str(o['fragment_size']), '--waveform-length',
            str(o['waveform_length']), '--json', '--error-log', os.path.join(out, 'errors.log')]
    args += [] if o['export_opp'] else ['--no-echoes']
    args += [] if o['export_fwf'] else ['--no-waveforms']
    return args + (['--time-range', '%r:%r' % tuple(o['time_range'])] if o['time_range'] else [])


def main():
    host, folder = sys.argv[1:]
    with open(os.path.join(folder, 'options.json')) as f:
        o = json.load(f)
    name = o.get('main') or os.path.basename(glob.glob(os.path.join(folder, '*.rxp'))[0])
    found = []
    with tempfile.TemporaryDirectory() as out:
        p = subprocess.run([host] + arguments(o, name, out), cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           text=True, timeout=120)
        result = json.loads(p.stdout)['results'][0]
        for key in ('text', 'errors'):
            if result[key] != o[key]:
                found.append('%s is %r, expected %r' % (key, result[key], o[key]))
        # An interrupted stream is damaged even where the operation returns no text.
        damaged = bool(o['text']) or 'Export interrupted' in o['errors']
        if p.returncode != (4 if damaged else 0):
            found.append('exit code %d' % p.returncode)
        log = os.path.join(out, 'errors.log')
        logged = open(log).read() if os.path.exists(log) else ''
        if logged != o['error_log']:
            found.append('error log is %r, expected %r' % (logged, o['error_log']))
        said = p.stderr.split('\n')
        missing = [line for line in o['console'] + o['stdout'] if line not in said]
        found += ['console lacks %r' % line for line in missing]
        found += k7.differences(os.path.join(folder, 'expected.k7'), os.path.join(out, os.path.splitext(name)[0] + '.k7'))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
