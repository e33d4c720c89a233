#!/usr/bin/env python3
"""Writes the seed corpus of dsp_message_fuzz (the input format is described at the top of
dsp_message_fuzz.cc): calls of a few operations that the host DSP accepts, with inline, shared
and null buffers, and the session and block messages. Operation numbers come from a build's
generated dispatch.

    python3 dsp/fuzz/make_corpus.py build/host-release/gen/dsp_server.cc dsp/fuzz/corpus
"""
import re
import struct
import sys
from pathlib import Path

IN, OUT, INOUT = 1, 2, 3
OPEN, INIT, DEINIT, VERSION, CLOCK, CALL, REGISTER, UNREGISTER, FLUSH = 1, 2, 3, 4, 5, 6, 7, 8, 9


def scalar(value):
    if 0 <= value < 256:
        return bytes([0x00, value])
    return bytes([0x80]) + struct.pack("<Q", value & (2**64 - 1))


def inline(length, direction):
    return bytes([1 | direction << 2]) + struct.pack("<H", length)


def null(direction):
    return bytes([2 | direction << 2])


def shared(offset, length, direction):
    return bytes([3 | direction << 2]) + struct.pack("<HH", offset, length)


def call(op, *args):
    return bytes([1]) + struct.pack("<HB", op, len(args)) + b"".join(args)


def message(kind, a=0, b=0, payload=b""):
    return bytes([0]) + struct.pack("<IIIH", kind, a, b, len(payload)) + payload


def main(dispatch, out):
    ops = {name: int(number) for number, name in re.findall(r'case (\d+): return "(\w+)";', Path(dispatch).read_text())}
    f32 = struct.unpack("<I", struct.pack("<f", 1.5))[0]
    seeds = {
        "bit_count": call(ops["tvxBitCountu8"], inline(64, IN), scalar(64)),
        "median_inline": call(ops["tvxFilterMedian3x3u8_v2"], inline(320, IN), scalar(24), scalar(10), scalar(32),
                              inline(240, OUT), scalar(24)),
        "median_shared": call(ops["tvxFilterMedian3x3u8_v3"], shared(0, 320, IN), scalar(24), scalar(10), scalar(32),
                              shared(4096, 240, OUT), scalar(24), scalar(2), scalar(200)),
        "add_scalar_f32": call(ops["tvxAddScalarf32"], inline(128, IN), scalar(7), scalar(4), scalar(32), scalar(f32),
                               inline(128, OUT), scalar(32)),
        "or_s32_null_mask": call(ops["tvxBitwiseOrs32"], inline(120, IN), shared(12288, 120, IN), scalar(9), scalar(3),
                                 scalar(40), inline(108, INOUT), scalar(36), null(IN), scalar(0)),
        "rgb_to_ycbcr420": call(ops["tvxColorRGB888ToYCbCr420Planaru8"], inline(192, IN), scalar(10), scalar(6),
                                scalar(32), inline(60, OUT), shared(16384, 15, OUT), inline(18, OUT), scalar(10),
                                scalar(5), scalar(6)),
        "corr_nxn": call(ops["tvxFilterCorrNxNu8"], inline(9, IN), scalar(3), scalar(4), inline(96, IN), scalar(12),
                         scalar(8), scalar(12), inline(104, OUT), scalar(13)),
        "session": message(VERSION) + message(CLOCK) + message(FLUSH, 1, 0, struct.pack("<QQ", 0, 16)) +
                   message(DEINIT) + call(ops["tvxBitCountu8"], inline(8, IN), scalar(8)) +
                   message(REGISTER, 2, 0, struct.pack("<Q", 4096)) + message(UNREGISTER, 1),
    }
    Path(out).mkdir(parents=True, exist_ok=True)
    for name, body in seeds.items():
        (Path(out) / name).write_bytes(bytes([0]) + body)
    # A closed channel that the input opens and initialises itself.
    (Path(out) / "open_init").write_bytes(bytes([3]) + message(OPEN, 1, 0, b"mdsp") +
                                          message(INIT, 0, 0, struct.pack("<III", 1, 3, 0)) +
                                          call(ops["tvxBitCountu8"], inline(8, IN), scalar(8)))


if __name__ == "__main__":
    main(*sys.argv[1:])
