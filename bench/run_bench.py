#!/usr/bin/python3
"""run_bench.py BUILD_FOLDER [--shots N] [--repeat N]: all figures of one run, one line each: name, value, unit.

Micro-benchmarks give medians of repeated runs. `convert/floor/...` is the wall time of a conversion over that of the
floor program, which reads the same input once and writes the same columns without decoding; both run in turns, on a
recording in the page cache, and their medians are compared.
"""
import argparse
import glob
import json
import os
import resource
import socket
import statistics
import subprocess
import sys
import tempfile
import time


# Samples of the longest waveform that the simulator makes; every full fragment has one.
LONGEST_WAVEFORM = 200


def line(name, value, unit):
    print('%s %.4g %s' % (name, value, unit), flush=True)


def micro(build, repeat):
    for program in sorted(glob.glob(os.path.join(build, 'bench_*')) + glob.glob(os.path.join(build, '*_bench'))):
        if not os.access(program, os.X_OK) or os.path.isdir(program):
            continue
        p = subprocess.run([program, '--benchmark_format=json', '--benchmark_repetitions=%d' % repeat,
                            '--benchmark_report_aggregates_only=true', '--benchmark_min_time=0.2'],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True)
        for b in json.loads(p.stdout)['benchmarks']:
            if b.get('error_occurred'):
                sys.exit('%s: %s' % (b['name'], b['error_message']))
            if b.get('aggregate_name') != 'median':
                continue
            name = b['run_name']
            if 'items_per_second' in b:
                line(name, b['items_per_second'] / 1e6, 'M/s')
            if 'bytes_per_second' in b:
                line(name + '/bytes', b['bytes_per_second'] / 1e9, 'GB/s')
            for ratio in ('ratio', 'processor_ratio', 'closed_ratio'):
                if ratio in b:
                    line('%s/%s' % (name, ratio), b[ratio], 'ratio')


def timed(command, output=None):
    """Wall seconds and peak resident bytes of a command. What earlier ones left for the disk to write is out of its way,
    and so is `output`, if given."""
    if output and os.path.exists(output):
        os.unlink(output)
    os.sync()
    begin = time.monotonic()
    p = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    error = p.stderr.read()
    _, status, usage = os.wait4(p.pid, 0)
    p.returncode = os.waitstatus_to_exitcode(status)
    if p.returncode:
        sys.exit('%s: exit %d: %s' % (command, p.returncode, error.decode()[-500:]))
    return time.monotonic() - begin, usage.ru_maxrss * 1024


def simulate(build, folder, shots, *options):
    name = os.path.join(folder, '200101_120000_Scanner_%d.rxp' % shots)
    subprocess.run([os.path.join(build, 'rxp2k7'), 'simulate', name, '--shots', str(shots), *options],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    return name


def convert_command(build, recording, folder, *options):
    return [os.path.join(build, 'rxp2k7'), 'convert', recording, '--out-dir', folder, '--json', *options]


def converted(build, recording, folder, *options):
    p = subprocess.run(convert_command(build, recording, folder, *options), stdout=subprocess.PIPE,
                       stderr=subprocess.DEVNULL, check=True, text=True)
    return json.loads(p.stdout)['results'][0]


def against_floor(build, folder, name, shots, repeat, *options):
    """The conversion in turns with the floor program: to new files, as users convert, and over the files of an earlier
    run, which costs both the same time to free."""
    recording = simulate(build, folder, shots, *options)
    result = converted(build, recording, folder)
    floor_output, output = os.path.join(folder, 'floor.k7'), os.path.splitext(recording)[0] + '.k7'
    floor = [os.path.join(build, 'floor'), recording, floor_output, str(result['shots']), str(result['echoes']),
             str(result['waveforms']), str(LONGEST_WAVEFORM)]
    convert = convert_command(build, recording, folder)
    for suffix, earlier in (('', (floor_output, output)), ('/rerun', (None, None))):
        ours, floors = [], []
        for _ in range(repeat):
            floors.append(timed(floor, earlier[0])[0])
            ours.append(timed(convert, earlier[1])[0])
        line('convert/seconds/%s%s' % (name, suffix), statistics.median(ours), 's')
        line('floor/seconds/%s%s' % (name, suffix), statistics.median(floors), 's')
        line('convert/floor/%s%s' % (name, suffix), statistics.median(ours) / statistics.median(floors), 'ratio')
        line('convert/input/%s%s' % (name, suffix), os.path.getsize(recording) / statistics.median(ours) / 1e6, 'MB/s')
    os.unlink(recording)


def memory(build, folder, shots):
    """Peak resident size beyond what the staging columns of one fragment may take."""
    rows = 100000 + 500
    staging = rows * (8 + 24 + 24 + 8 + 8 + 4 + 1 + 24 + 4 + 8 + 2 + 1 + 8 + 24 + 2 * 256)
    peaks = []
    for n in shots:
        recording = simulate(build, folder, n)
        peaks.append(timed(convert_command(build, recording, folder))[1])
        os.unlink(recording)
        line('memory/peak/%dM-shots' % (n // 1000000), peaks[-1] / 2**20, 'MiB')
    line('memory/beyond-staging', (max(peaks) - staging) / 2**20, 'MiB')


def datagram_loss(build, folder, rate):
    """Share of the stream that does not arrive when it is sent at so many MB/s to a recording on the same machine."""
    host, recording = os.path.join(build, 'rxp2k7'), simulate(build, folder, 10000000)
    received = os.path.join(folder, 'received.rxp')
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.bind(('127.0.0.1', 0))
        address = '127.0.0.1:%d' % s.getsockname()[1]
    receiver = subprocess.Popen([host, 'record', 'rddp://' + address, received], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(0.3)
    begin = time.monotonic()
    subprocess.run([host, 'replay', recording, '--rddp', address, '--rate', str(rate)], stdout=subprocess.DEVNULL, check=True)
    took = time.monotonic() - begin
    try:
        receiver.wait(timeout=10)
    except subprocess.TimeoutExpired:
        receiver.kill()
        receiver.wait()
    sent, got = os.path.getsize(recording), os.path.getsize(received)
    line('rddp/loss/%dMB' % rate, 100 * (sent - got) / sent, '%')
    line('rddp/sent/%dMB' % rate, sent / took / 1e6, 'MB/s')
    os.unlink(received)
    os.unlink(recording)


def main():
    p = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    p.add_argument('build')
    p.add_argument('--shots', type=int, default=2000000)
    p.add_argument('--repeat', type=int, default=7)
    a = p.parse_args()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    micro(a.build, a.repeat)
    with tempfile.TemporaryDirectory() as folder:
        against_floor(a.build, folder, 'shots', a.shots, a.repeat)
        against_floor(a.build, folder, 'packed', a.shots, a.repeat, '--form', 'shot-echo')
        # Four shots of five see something, and have samples of all three channels.
        against_floor(a.build, folder, 'waveforms', 1250000, min(a.repeat, 5), '--waveforms')
        memory(a.build, folder, (1000000, 4000000))
        for rate in (100, 200, 400):
            datagram_loss(a.build, folder, rate)


if __name__ == '__main__':
    main()
