"""Reading point files as the descriptions of their formats have them, for tests: each gives columns by name."""
import struct

import numpy as np

# LAS 1.4, point data record format 6.
LAS_POINT = np.dtype({
    'names': ['X', 'Y', 'Z', 'intensity', 'returns', 'flags', 'classification', 'user_data', 'scan_angle', 'source', 'gps_time'],
    'formats': ['<i4', '<i4', '<i4', '<u2', 'u1', 'u1', 'u1', 'u1', '<i2', '<u2', '<f8'],
    'offsets': [0, 4, 8, 12, 14, 15, 16, 17, 18, 20, 22],
    'itemsize': 30})
LAS_EXTRA_TYPES = {9: '<f4', 10: '<f8'}


def text(raw):
    return raw.split(b'\0')[0].decode('ascii')


class Las:
    def __init__(self, path):
        with open(path, 'rb') as f:
            self.raw = raw = f.read()
        assert raw[:4] == b'LASF'
        self.source_id, self.encoding = struct.unpack_from('<HH', raw, 4)
        self.guid = raw[8:24]
        self.version = struct.unpack_from('<BB', raw, 24)
        self.system, self.software = text(raw[26:58]), text(raw[58:90])
        self.day, self.year, self.header_size = struct.unpack_from('<HHH', raw, 90)
        self.points_at, self.record_count, self.format, self.point_size = struct.unpack_from('<IIBH', raw, 96)
        self.legacy_counts = struct.unpack_from('<6I', raw, 107)
        self.scale, self.offset = (np.frombuffer(raw, '<f8', 3, at) for at in (131, 155))
        bounds = np.frombuffer(raw, '<f8', 6, 179)
        self.greatest, self.least = bounds[0::2], bounds[1::2]
        self.waveforms_at, self.extended_at, self.extended_count = struct.unpack_from('<QQI', raw, 227)
        self.count, = struct.unpack_from('<Q', raw, 247)
        self.by_return = np.frombuffer(raw, '<u8', 15, 255)
        self.records = {}
        at = self.header_size
        for _ in range(self.record_count):
            user, number, size, _ = struct.unpack_from('<16sHH32s', raw, at + 2)
            self.records[text(user), number] = raw[at + 54:at + 54 + size]
            at += 54 + size
        self.records_end = at
        assert self.format == 6
        self.points = np.frombuffer(raw, self.point_type(), self.count, self.points_at)
        self.end = self.points_at + self.count * self.point_size

    def point_type(self):
        """Format 6, and the extra fields that record 4 describes, 192 bytes each."""
        fields = {n: (t, o) for n, (t, o) in LAS_POINT.fields.items()}
        at = LAS_POINT.itemsize
        extra = self.records.get(('LASF_Spec', 4), b'')
        for i in range(0, len(extra), 192):
            kind, name = extra[i + 2], text(extra[i + 4:i + 36])
            fields[name] = (LAS_EXTRA_TYPES[kind], at)
            at += np.dtype(LAS_EXTRA_TYPES[kind]).itemsize
        assert at == self.point_size
        return np.dtype({'names': list(fields), 'formats': [t for t, _ in fields.values()],
                         'offsets': [o for _, o in fields.values()], 'itemsize': at})

    def columns(self):
        p = self.points
        out = {axis.lower(): p[axis] * self.scale[i] + self.offset[i] for i, axis in enumerate('XYZ')}
        out.update(gps_time=p['gps_time'], intensity=p['intensity'], reflectance=p['Reflectance'], channel=p['user_data'],
                   return_number=p['returns'] & 15, number_of_returns=p['returns'] >> 4)
        return out


PLY_TYPES = {'double': '<f8', 'float': '<f4', 'uchar': 'u1', 'ushort': '<u2', 'int': '<i4'}


def read_ply(path):
    with open(path, 'rb') as f:
        raw = f.read()
    head, _, body = raw.partition(b'end_header\n')
    lines = [line for line in head.decode('ascii').split('\n') if not line.startswith('comment ')]
    assert lines[:2] == ['ply', 'format binary_little_endian 1.0'] and lines[-1] == '', lines
    word, name, count = lines[2].split(' ')
    assert (word, name) == ('element', 'vertex')
    fields = [line.split(' ') for line in lines[3:-1]]
    assert all(f[0] == 'property' for f in fields)
    kind = np.dtype([(f[2], PLY_TYPES[f[1]]) for f in fields])
    assert len(body) == int(count) * kind.itemsize, (len(body), count)
    points = np.frombuffer(body, kind)
    return {n: points[n] for n in kind.names}


def read_csv(path):
    with open(path, encoding='ascii') as f:
        names = f.readline().rstrip('\n').split(',')
        rows = [line.rstrip('\n').split(',') for line in f]
    assert all(len(row) == len(names) for row in rows)
    return {n: np.array([float(row[i]) for row in rows]) for i, n in enumerate(names)}
