"""Makes universal files of made-up code, and reads their tables."""
import struct

CPU = {'ppc': (18, 0), 'ppc7400': (18, 10), 'i386': (7, 3), 'x86_64': (0x01000007, 0x80000003), 'arm64': (0x0100000c, 0)}
ALIGNMENT = 12


def universal(slices, wide=False):
    """`slices` is a list of (name, content)."""
    entry = 32 if wide else 20
    table = struct.pack('>II', 0xcafebabf if wide else 0xcafebabe, len(slices))
    at = 8 + entry * len(slices)
    places = []
    for name, content in slices:
        at = (at + (1 << ALIGNMENT) - 1) >> ALIGNMENT << ALIGNMENT
        places.append(at)
        table += struct.pack('>IIQQII' if wide else '>IIIII', *CPU[name], at, len(content), ALIGNMENT, *([0] * wide))
        at += len(content)
    data = table
    for (_, content), place in zip(slices, places):
        data = data.ljust(place, b'\0') + content
    return data


def write(path, slices, wide=False):
    with open(path, 'wb') as f:
        f.write(universal(slices, wide))
    return path


def read(path):
    """The slices as universal() takes them."""
    with open(path, 'rb') as f:
        data = f.read()
    magic, count = struct.unpack_from('>II', data)
    assert magic in (0xcafebabe, 0xcafebabf), hex(magic)
    wide = magic == 0xcafebabf
    slices = []
    for number in range(count):
        kind, subtype, offset, size = struct.unpack_from('>IIQQ' if wide else '>IIII', data, 8 + number * (32 if wide else 20))
        name = next(name for name, cpu in CPU.items() if cpu == (kind, subtype))
        slices.append((name, data[offset:offset + size]))
    return slices
