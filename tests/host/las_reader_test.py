#!/usr/bin/python3
"""las_reader_test.py HOST: LAS files of `rxp2k7 export`, as an independent reader has them, against a join of the K7 file."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import k7  # noqa: E402
import node  # noqa: E402

HOST = os.path.abspath(sys.argv[1])
STEP = 1e-4
# What each dimension is in the join.
EXACT = {'GpsTime': 'gps_time', 'ReturnNumber': 'return_number', 'NumberOfReturns': 'number_of_returns', 'UserData': 'channel',
         'Reflectance': 'reflectance'}
UNUSED = ('Synthetic', 'KeyPoint', 'Withheld', 'Overlap', 'ScannerChannel', 'ScanDirectionFlag', 'EdgeOfFlightLine',
          'Classification', 'ScanAngle', 'PointSourceId')


@unittest.skipIf(node.missing('copc'), node.missing('copc'))
class LasReader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.scan = cls.path('scan.k7')
        cls.host('simulate', cls.path('scan.rxp'), '--shots', '6000')
        cls.host('convert', cls.path('scan.rxp'), '--out-dir', cls.folder, '--no-waveforms')
        with h5py.File(cls.scan, 'r+') as f:  # what no simulated instrument tells
            reflectance = f['Slice_0/OPP/StandardCartesianChart3D/Reflectance/Fragment_0']
            reflectance[100:200] = np.nan
        cls.wanted = k7.points(cls.scan)
        cls.told, cls.values = cls.read(cls.scan)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.folder, name)

    @classmethod
    def host(cls, *args):
        subprocess.run([HOST, *args], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    @classmethod
    def read(cls, scan):
        las, out = cls.path('scan.las'), cls.path('scan.values')
        cls.host('export', scan, las)
        told = node.run('read_las.mjs', las, out)
        return told, dict(zip(told['dimensions'], np.fromfile(out).reshape(len(told['dimensions']), -1)))

    def test_points_are_those_of_the_join(self):
        n = len(self.wanted['x'])
        self.assertGreater(n, 4000)
        self.assertGreater(self.wanted['number_of_returns'].max(), 2)
        self.assertTrue(np.isnan(self.wanted['reflectance']).any())
        self.assertEqual((self.told['header']['pointCount'], self.told['count']), (n, n))
        self.assertEqual(set(self.values), {'X', 'Y', 'Z', 'Intensity', *EXACT, *UNUSED})
        for axis in 'XYZ':
            self.assertLessEqual(np.abs(self.values[axis] - self.wanted[axis.lower()]).max(), STEP / 2 * (1 + 1e-6), axis)
        self.assertLessEqual(np.abs(self.values['Intensity'] - 100.0 * self.wanted['amplitude']).max(), 0.5)
        for name, source in EXACT.items():
            self.assertTrue(np.array_equal(self.values[name], self.wanted[source].astype('f8'), equal_nan=True), name)
        for name in UNUSED:
            self.assertFalse(self.values[name].any(), name)

    def test_header_tells_what_is_there(self):
        header = self.told['header']
        self.assertEqual((header['majorVersion'], header['minorVersion'], header['pointDataRecordFormat']), (1, 4, 6))
        self.assertEqual(header['pointDataRecordLength'], 34)
        self.assertEqual((header['scale'], header['offset']), ([STEP] * 3, [0.0] * 3))
        self.assertEqual((header['waveformDataOffset'], header['evlrOffset'], header['evlrCount']), (0, 0, 0))
        self.assertEqual(header['pointCountByReturn'], np.bincount(self.wanted['return_number'], minlength=16)[1:].tolist())
        for name, end in (('min', np.min), ('max', np.max)):
            self.assertEqual(header[name], [end(self.values[axis]) for axis in 'XYZ'])
            box = np.array([end(self.wanted[axis]) for axis in 'xyz'])
            self.assertLessEqual(np.abs(box - header[name]).max(), STEP / 2 * (1 + 1e-6))

    def test_extra_bytes_and_coordinates_are_described(self):
        self.assertEqual([(r['userId'], r['recordId']) for r in self.told['records']], [('LASF_Projection', 2112), ('LASF_Spec', 4)])
        last = self.told['records'][-1]
        self.assertEqual(self.told['header']['pointDataOffset'], last['contentOffset'] + last['contentLength'])
        field, = self.told['extra']
        self.assertEqual({k: v for k, v in field.items() if k != 'description'}, {'name': 'Reflectance', 'type': 'float', 'length': 4})
        self.assertRegex(self.told['coordinates'], r'^LOCAL_CS\[.*UNIT\["metre",1\].*\]\0$')

    def test_places_far_away_have_an_offset(self):
        far = self.path('far.k7')
        shutil.copy(self.scan, far)
        with h5py.File(far, 'r+') as f:
            f['Slice_0/Shots/StandardCartesianChart3D/Positions/Fragment_0'][...] += [4.5e5, -5.4e6, 300]
        told, values = self.read(far)
        self.assertEqual(told['header']['offset'], [450000, -5400000, 0])
        wanted = k7.points(far)
        for axis in 'XYZ':
            self.assertLessEqual(np.abs(values[axis] - wanted[axis.lower()]).max(), STEP / 2 * (1 + 1e-3), axis)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
