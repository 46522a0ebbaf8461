"""The tables of docs/k7-format.md, and the same of K7 files, so that both can be compared."""
import re

import h5py

CHART = 'StandardCartesianChart3D'
OBJECTS = (
    ('file', r'/'), ('slice', r'/Slice_\d+'), ('representation', r'/Slice_\d+/\w+/' + CHART),
    ('fragment', r'/Slice_\d+/\w+/%s/[\w.]+/Fragment_\d+' % CHART), ('field', r'/Slice_\d+/\w+/%s/[\w.]+' % CHART),
    ('part', r'/Slice_\d+/\w+/parts/[\w.]+_\d+'), ('parts', r'/Slice_\d+/\w+/parts'),
    ('scale', r'/Slice_\d+/\w+/(row|xyz|sample)'), ('column', r'/Slice_\d+/\w+/[\w.]+'), ('grid', r'/Slice_\d+/\w+'),
)


def tables(text):
    """Every table as a list of dictionaries, heading to cell."""
    for block in re.findall(r'(?:^\|.*\n)+', text, re.M):
        lines = [[c.strip() for c in line.strip('|\n').split('|')] for line in block.splitlines()]
        yield [dict(zip(lines[0], line)) for line in lines[2:]]


def plain(cell):
    return cell.strip('`')


class Page:
    """objects: names; attributes: (object, name) -> type; columns: (grid, name) -> (type, dimensions, unit)."""

    def __init__(self, path):
        with open(path) as f:
            text = f.read()
        self.objects, self.attributes, self.columns = set(), {}, {}
        for table in tables(text):
            for row in table:
                if 'Path' in row:
                    self.objects.add(row['Object'])
                elif 'Attribute' in row:
                    self.attributes[row['Object'], plain(row['Attribute'])] = row['Type']
                elif 'Column' in row:
                    kind, _, width = row['Type'].partition(' x ')
                    self.columns[row['Grid'], plain(row['Column'])] = (kind, 2 if width else 1, row['Unit'])

    def grids(self):
        found = {}
        for grid, name in self.columns:
            found.setdefault(grid, []).append(name)
        return found


def type_of(attribute):
    """As the page names the type of an attribute."""
    kind = attribute.get_type()
    if isinstance(kind, h5py.h5t.TypeStringID):
        name = 'text' if kind.is_variable_str() and kind.get_cset() == h5py.h5t.CSET_UTF8 else 'chars'
    elif isinstance(kind, (h5py.h5t.TypeIntegerID, h5py.h5t.TypeFloatID)) and kind.get_order() in (h5py.h5t.ORDER_LE, h5py.h5t.ORDER_NONE):
        name = '%s%d' % (kind.dtype.kind, 8 * kind.dtype.itemsize)
    else:
        return 'other'
    return name + (' array' if attribute.get_space().get_simple_extent_type() == h5py.h5s.SIMPLE else '')


def kind_of(path):
    return next(kind for kind, pattern in OBJECTS if re.fullmatch(pattern, path))


class Seen:
    """As Page, of what stands in files."""

    def __init__(self):
        self.objects, self.attributes, self.columns = set(), {}, {}

    def add(self, f):
        self.look('', f)
        f.visititems(self.look)

    def look(self, name, item):
        kind = kind_of('/' + name)
        if kind == 'parts':
            assert not item.attrs
            return
        self.objects.add(kind)
        for attribute in item.attrs:
            told = type_of(h5py.h5a.open(item.id, attribute.encode()))
            assert self.attributes.setdefault((kind, attribute), told) == told, (name, attribute, told)
        if kind in ('column', 'fragment', 'part'):
            grid = name.split('/')[1]
            if kind == 'column':
                column = name.split('/')[2]
            else:
                column = name.split('/')[3] if kind == 'fragment' else name.split('/')[3].rsplit('_', 1)[0]
            number = item.id.get_type()
            assert number.get_order() in (h5py.h5t.ORDER_LE, h5py.h5t.ORDER_NONE), name
            told = ('%s%d' % (item.dtype.kind, 8 * item.dtype.itemsize), item.ndim,
                    item.file['/Slice_0/%s/%s/%s' % (grid, CHART, column)].attrs['units'])
            assert self.columns.setdefault((grid, column), told) == told, (name, told)
