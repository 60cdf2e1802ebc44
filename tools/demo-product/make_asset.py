#!/usr/bin/env python3
"""Writes the demo product's asset file: SIZE bytes of a repeating 16 KiB pseudo-random block.

It compresses well (the block repeats within the ZIP format's 32 KiB window), so the demo
package stays small to download while extraction has real work to show.

    make_asset.py PATH SIZE
"""
import random
import sys

path, size = sys.argv[1], int(sys.argv[2])
block = random.Random(1505).randbytes(16384)
with open(path, "wb") as out:
    remaining = size
    while remaining > 0:
        piece = block[:min(len(block), remaining)]
        out.write(piece)
        remaining -= len(piece)
