#!/usr/bin/env python3
"""Writes a raw version resource of a given size: a VS_VERSIONINFO header padded with zeros.

The identity check must refuse version information above its size limit before reading it, so
the content beyond the header does not matter."""
import struct
import sys

path, size = sys.argv[1], int(sys.argv[2])
header = struct.pack('<HHH', 0xFFFF, 0, 0) + 'VS_VERSION_INFO\0'.encode('utf-16-le')
with open(path, 'wb') as out:
    out.write(header)
    out.write(b'\0' * (size - len(header)))
