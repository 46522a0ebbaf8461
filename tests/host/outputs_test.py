#!/usr/bin/python3
"""outputs_test.py HOST [TEST ...]: no command's output takes the place of what the command reads."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
from host_case import HostCase  # noqa: E402


class Inputs(HostCase):
    """An output has the name OUT.part until it is whole, which can be an input's name as well as OUT itself."""

    def setUp(self):
        super().setUp()
        self.simulate(shots=300)
        self.good('convert', 'scan.rxp')
        self.write('scan.pxp', b'{"packets": []}')
        self.write('scan.txt', self.good('dump', 'scan.rxp').stdout.encode())

    def check(self, source, *args):
        """`args` with the input for IN, and an output OUT that stands in its way."""
        for name, output in ((source, source), ('in.part', 'in')):
            if name != source:
                os.rename(self.path(source), self.path(name))
            before = self.read(name)
            p = self.host(*({'IN': name, 'OUT': output}.get(a, a) for a in args))
            self.assertEqual(p.returncode, 2, (name, p.stdout, p.stderr))
            self.assertEqual(self.read(name), before)
        self.assertFalse(os.path.exists(self.path('in')))
        os.rename(self.path('in.part'), self.path(source))

    def test_of_look_stay(self):
        self.check('scan.k7', 'look', 'IN', '--png', 'OUT')

    def test_of_export_stay(self):
        self.check('scan.k7', 'export', 'IN', 'OUT', '--format', 'ply')

    def test_of_points_stay(self):
        self.check('scan.rxp', 'points', 'IN', '-o', 'OUT')

    def test_of_assemble_stay(self):
        self.check('scan.txt', 'assemble', 'IN', 'OUT')

    def test_of_override_stay(self):
        self.check('scan.rxp', 'override', 'IN', 'scan.pxp', 'OUT')
        self.check('scan.pxp', 'override', 'scan.rxp', 'IN', 'OUT')


if __name__ == '__main__':
    host_case.main()
