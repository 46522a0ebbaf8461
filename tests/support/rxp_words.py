"""Packets of a recording, read without the product."""
import struct

PREAMBLE_BYTES = 16
ESCAPE = 0xFFFFFF00


def frames(data):
    """The words of each packet, start word first, escapes removed."""
    words = struct.unpack('<%dI' % ((len(data) - PREAMBLE_BYTES) // 4), data[PREAMBLE_BYTES:len(data) // 4 * 4])
    found, escaped = [], False
    for w in words:
        if escaped:
            found[-1].append(w ^ 0xFFFFFFFF)
            escaped = False
        elif w > ESCAPE:
            found.append([w])
        elif w == ESCAPE:
            escaped = True
        else:
            found[-1].append(w)
    return found


def packets(data):
    """(id, version, payload words) of each packet."""
    codes, found = {}, []
    for f in frames(data):
        code = f[0] & 0xFF
        if code == 255:
            word = f[1] if len(f) > 1 else 0
            pair, body = (word >> 16, word & 0xFFFF), f[2:]
        else:
            pair, body = {254: (65535, 65535), 253: (50, 0)}.get(code) or codes.get(code, (0, code)), f[1:]
        if pair == (1, 0):
            for j, word in enumerate(body[12:254 + 12], 1):
                codes[j] = (word >> 16, word & 0xFFFF)
        found.append((*pair, body))
    return found
