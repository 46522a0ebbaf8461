#!/usr/bin/python3
"""h5wasm_test.py HOST: K7 files as a viewer in a browser reads them, which has its own build of HDF5, against h5py."""
import os
import shutil
import sys
import tempfile
import unittest

import h5py
import numpy as np

TESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..')
sys.path[:0] = [os.path.join(TESTS, 'support'), os.path.join(TESTS, 'reading')]
import node  # noqa: E402
import recordings  # noqa: E402

HOST = os.path.abspath(sys.argv[1])


class Found:
    """What the reader told of a file; values are taken in the order it wrote them."""

    def __init__(self, k7, out, names):
        self.objects = node.run('read_k7.mjs', k7, out, *names)
        with open(out, 'rb') as f:
            self.raw = f.read()
        self.at = 0

    def take(self, dtype, shape):
        count = int(np.prod(shape))
        values = np.frombuffer(self.raw, dtype, count, self.at).reshape(shape)
        self.at += values.nbytes
        return values


@unittest.skipIf(node.missing('h5wasm'), node.missing('h5wasm'))
class H5wasm(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)

    def same_attributes(self, told, wanted):
        self.assertEqual(set(told), set(wanted.attrs), wanted.name)
        for name, attribute in told.items():
            space = wanted.attrs.get_id(name)
            self.assertEqual(tuple(attribute['shape']), space.shape, name)
            if 'value' not in attribute:
                self.assertIn(name, ('DIMENSION_LIST', 'REFERENCE_LIST'))
                continue
            value = wanted.attrs[name]
            if isinstance(value, bytes):
                value = value.decode()
            if isinstance(value, str):
                self.assertEqual(attribute['value'], value, name)
            else:
                self.assertEqual(np.dtype(attribute['dtype']), value.dtype, name)
                self.assertTrue(np.array_equal(np.array(attribute['value']).astype(value.dtype), value, equal_nan=True), name)

    def same_values(self, found, told, wanted):
        self.assertEqual(tuple(told['shape']), wanted.shape, wanted.name)
        self.assertEqual(told['scales'], [[scale.name for scale in axis.values()] for axis in wanted.dims], wanted.name)
        if 'texts' in told:
            self.assertEqual(told['texts'], [text.decode() for text in wanted[...]])
            return
        self.assertEqual(np.dtype(told['dtype']), wanted.dtype, wanted.name)
        values = wanted[...]
        first, last = told['rows']
        for part in (values, values[first:last] if values.size else values):
            self.assertEqual(found.take(wanted.dtype, part.shape).tobytes(), part.tobytes(), wanted.name)

    def same(self, form, *names):
        """The objects of the form's file, or those named, once all of them are found the same."""
        path = recordings.convert(HOST, self.folder, form)
        found = Found(path, os.path.join(self.folder, form + '.values'), names)
        with h5py.File(path, 'r') as f:
            wanted = list(names) or ['/']
            if not names:
                f.visit(wanted.append)
            self.assertEqual(sorted(found.objects), sorted(wanted))
            for name, told in found.objects.items():
                self.assertEqual('dataset' in told, isinstance(f[name], h5py.Dataset), name)
                self.same_attributes(told['attributes'], f[name])
                if 'dataset' in told:
                    self.same_values(found, told['dataset'], f[name])
        self.assertEqual(found.at, len(found.raw))
        return found.objects

    def test_a_whole_file(self):
        objects = self.same('waves')
        for name in ('Slice_0/Shots/GPSTime', 'Slice_0/OPP/Range', 'Slice_0/Waveforms/SBL_Time'):
            self.assertGreater(objects[name]['dataset']['shape'][0], 1000)
        waveforms = objects['Slice_0/Waveforms/Waveforms']['dataset']
        self.assertEqual(waveforms['scales'], [['/Slice_0/Waveforms/row'], ['/Slice_0/Waveforms/sample']])

    def test_columns_over_compressed_fragments(self):
        self.same('packed', 'Slice_0/OPP/Range', 'Slice_0/Shots/Positions', 'Slice_0/Waveforms/Waveforms')

    def test_columns_over_hundreds_of_fragments(self):
        self.same('many', 'Slice_0/OPP/Range', 'Slice_0/OPP/parts/Range_1', 'Slice_0/Shots/Waveforms.DirectionDelta')

    def test_a_grid_without_rows(self):
        objects = self.same('plain', 'Slice_0/Waveforms', 'Slice_0/Waveforms/Waveforms', 'Slice_0/Waveforms/GPSTime')
        self.assertEqual(objects['Slice_0/Waveforms/Waveforms']['dataset']['shape'], [0, 0])


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
