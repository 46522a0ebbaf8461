#!/usr/bin/python3
"""plot_waveform.py FILE.k7 PICTURE [--time SECONDS] [--compressed yes|no] [--bits N]

Plots the waveforms of one shot together with the echoes that the instrument found in them, and prints where each
waveform is strongest and which echo lies nearest. PICTURE ends with .png, .pdf or .svg. Without --time it takes a shot with
many echoes.

The grids "Shots", "OPP" (echoes) and "Waveforms" are joined on "GPSTime": what belongs to one shot has exactly its time. A
waveform's samples are `sampling_time` apart, the first one "SBL_Time" seconds behind the shot; light that is on its way for t
seconds comes from a range of t * group_velocity / 2.

Some instruments store samples compressed, and the rows then hold the words of the compressed form instead of samples:

    bits, from the lowest bit of the first word on, in groups:
        4 bits         width w; 0 ends the waveform
        8 times w bits steps, each added to a sum that runs on
    of each sum, the low bits that the converter has (12 in most instruments) are the next sample

The file does not say so. All waveforms of a recording have the same form, and `rxp2k7 info` on the recording shows it: they
are compressed if it counts packets "sbl_dg_..._compressed" or "packed_shot_echos_sbl_hr". From the file alone it can be seen
as well: samples stay below 2 to the converter's bits, compressed words do not. Without --compressed, that decides.
"""
import argparse

import h5py
import matplotlib
import numpy as np

matplotlib.use('Agg')
import matplotlib.pyplot as plt  # noqa: E402

CHART = 'StandardCartesianChart3D'
NAMES = {0: 'high power', 1: 'low power'}


def fragments(field):
    """The fragments of one field in the order of their numbers."""
    return sorted(field, key=lambda name: int(name.split('_')[1]))


def column(grid, name):
    """One column of a grid, all its fragments joined."""
    field = grid[CHART][name]
    return np.concatenate([field[n][...] for n in fragments(field)])


def rows_at(grid, time):
    """Fragment and row of everything in a grid that has this time."""
    field = grid[CHART]['GPSTime']
    return [(n, row) for n in fragments(field) for row in np.flatnonzero(field[n][...] == time)]


def decompress(words, bits):
    """The samples that compressed words stand for."""
    stream = np.unpackbits(np.asarray(words, '<u2').view('u1'), bitorder='little')
    samples, total, at = [], 0, 0

    def take(width):
        nonlocal at
        value = int(stream[at:at + width] @ (1 << np.arange(width)))
        at += width
        return value

    while at + 4 <= len(stream):
        width = take(4)
        if width == 0 or at + 8 * width > len(stream):
            break
        for _ in range(8):
            total += take(width)
            samples.append(total % (1 << bits))
    return np.array(samples)


def waveforms(grid, time, compressed, bits):
    """Channel, time of the first sample and samples of each waveform of a shot."""
    fields = grid[CHART]
    found = []
    for n, row in rows_at(grid, time):
        if compressed is None:
            compressed = bool(np.any(fields['Waveforms'][n][:1000] >= 1 << bits))
        samples = fields['Waveforms'][n][row, :fields['FWFLength'][n][row]]
        found.append((int(fields['Channel'][n][row]), fields['SBL_Time'][n][row],
                      decompress(samples, bits) if compressed else samples.astype(int)))
    return found


def shot_with_many_echoes(slices):
    """The time of a shot that has waveforms and more echoes than most, the strongest where several have as many."""
    opp = slices['OPP']
    times, first, counts = np.unique(column(opp, 'GPSTime'), return_index=True, return_counts=True)
    strength = column(opp, 'Amplitude')[first]
    good = np.isin(times, column(slices['Waveforms'], 'GPSTime'))
    return max(zip(counts[good], strength[good], times[good]))[2]


def nearest_shot(slices, time):
    """The time of the shot with waveforms that lies nearest."""
    times = column(slices['Waveforms'], 'GPSTime')
    return times[np.argmin(np.abs(times - time))]


def plot(title, found, echoes, sampling_time, velocity, path):
    """`found`: name, start and samples of each waveform; `echoes`: range and amplitude of each."""
    figure, axes = plt.subplots(len(found), 1, sharex=True, squeeze=False, figsize=(7.2, 1.4 + 2.1 * len(found)))
    axes = axes[:, 0]
    for axis, (name, start, samples) in zip(axes, found):
        ranges = (start + np.arange(len(samples)) * sampling_time) * velocity / 2
        axis.plot(ranges, samples, color='#1f4e79', linewidth=0.9, marker='.', markersize=2.5)
        axis.set_ylabel('counts')
        axis.text(0.99, 0.93, name, transform=axis.transAxes, ha='right', va='top', color='#1f4e79', fontsize=9)
        axis.margins(x=0.01, y=0.12)
        axis.spines[['top', 'right']].set_visible(False)
        axis.grid(axis='y', color='0.9', linewidth=0.6)
        axis.set_axisbelow(True)
        for distance, _ in echoes:
            axis.axvline(distance, color='#c0504d', linewidth=0.8, linestyle=(0, (4, 3)), zorder=0)
    # The echoes by name, above all; two that lie close get different heights.
    left, right = axes[0].get_xlim()
    level, before = 0, -np.inf
    for distance, amplitude in sorted(echoes):
        if not left <= distance <= right:
            continue
        level = (level + 1) % 3 if distance - before < 0.13 * (right - left) else 0
        before = distance
        axes[0].annotate('%.2f m, %.0f dB' % (distance, amplitude), (distance, 1), xycoords=('data', 'axes fraction'),
                         xytext=(0, 3 + 10 * level), textcoords='offset points', ha='center', va='bottom', fontsize=7.5,
                         color='#c0504d')
    axes[-1].set_xlabel('range [m]')
    figure.align_ylabels(axes)
    figure.suptitle(title, fontsize=10)
    figure.tight_layout(rect=(0, 0, 1, 0.995))
    figure.savefig(path, dpi=150)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument('file')
    p.add_argument('picture')
    p.add_argument('--time', type=float, help='"GPSTime" of the shot; the nearest one with waveforms is taken')
    p.add_argument('--compressed', choices=('yes', 'no'))
    p.add_argument('--bits', type=int, default=12, help='of the converter, 12 if not given')
    a = p.parse_args()
    with h5py.File(a.file, 'r') as f:
        slices = f['Slice_0']
        for grid in ('OPP', 'Waveforms'):
            if grid not in slices or not fragments(slices[grid][CHART]['GPSTime']):
                p.exit(1, '%s: nothing in the grid "%s"\n' % (a.file, grid))
        about = slices['Waveforms'].attrs
        sampling_time, velocity = about['sampling_time'], about['group_velocity']
        time = shot_with_many_echoes(slices) if a.time is None else nearest_shot(slices, a.time)
        compressed = None if a.compressed is None else a.compressed == 'yes'
        found = [(NAMES.get(channel, 'channel %d' % channel), start, samples)
                 for channel, start, samples in waveforms(slices['Waveforms'], time, compressed, a.bits)]
        opp = slices['OPP'][CHART]
        echoes = [(opp['Range'][n][row], opp['Amplitude'][n][row]) for n, row in rows_at(slices['OPP'], time)]
        title = '%s %s, shot at %.6f s' % (about['type_id'], about['serial'], time)
    print('shot %.9f: %d waveforms, %d echoes' % (time, len(found), len(echoes)))
    for name, start, samples in found:
        if not len(samples):
            continue
        peak = int(np.argmax(samples))
        distance = (start + peak * sampling_time) * velocity / 2
        nearest = min(echoes, key=lambda e: abs(e[0] - distance), default=None)
        print('%s: %d samples, peak %d counts at %.3f m%s' % (
            name, len(samples), samples[peak], distance, '' if nearest is None else ', nearest echo %.3f m, %.2f dB' % nearest))
    plot(title, found, echoes, sampling_time, velocity, a.picture)


if __name__ == '__main__':
    main()
