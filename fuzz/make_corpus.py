#!/usr/bin/env python3
"""Writes the seed corpus of every family's fuzz target from the generated entry table.

Each entry of a family gets four seeds, their widths cycling through those that matter (1, 2,
15, 16, 17, 63, 64, 65 and odd large ones) so that a family covers all of them, with heights,
paddings and placements cycling too; a seed is only the five-byte header, so the call uses the
entry's sample values (fuzz/call.h describes the layout).

    fuzz/make_corpus.py build/fuzz/gen/fuzz_calls.inc fuzz/corpus
"""
import os
import re
import shutil
import sys

WIDTH_CODES = {1: 0, 2: 1, 15: 8, 16: 9, 17: 10, 63: 14, 64: 15, 65: 16, 641: 23, 1921: 25}


def main():
    table, out = sys.argv[1], sys.argv[2]
    families = {}
    with open(table) as f:
        for line in f:
            m = re.match(r'\s*\{"(\w+)", "(\w+)", ', line)
            if m:
                families.setdefault(m[1], []).append(m[2])
    shutil.rmtree(out, ignore_errors=True)
    for family, names in families.items():
        d = os.path.join(out, family)
        os.makedirs(d)
        for k, name in enumerate(names):
            widths = list(WIDTH_CODES.items())
            for i in range(4):
                width, code = widths[(4 * k + i) % len(widths)]
                header = bytes([k, code, (k + i) % 8, i % 4, (0, 1, 2)[(k + i) % 3]])
                with open(os.path.join(d, f"{name}_{width}"), "wb") as f:
                    f.write(header)
    print(f"{sum(len(v) for v in families.values())} entries in {len(families)} families")


if __name__ == "__main__":
    main()
