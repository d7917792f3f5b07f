#!/usr/bin/env python3
"""Writes the small seed corpora under fuzz/corpus/<target>/.

Bodies are rich.proto messages encoded by protoc from text format, plus a few
hand-made wire bodies (packed, nested, cut off, unknown field). The harnesses
read their parameters with libFuzzer's FuzzedDataProvider, which takes numbers
from the end of the input and strings from its front; Provider below builds
inputs in that layout. Run from anywhere: python3 fuzz/make_seeds.py
"""
import os
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CORPUS = os.path.join(ROOT, "fuzz", "corpus")
DATA = os.path.join(ROOT, "tests", "data")

RICH_TEXTS = [
    "must: 1",
    'f_double: 2.5 f_float: 0.25 f_int64: -1 f_uint64: 18446744073709551615 f_int32: -2 '
    'f_fixed64: 7 f_fixed32: 4294967295 f_bool: true f_string: "a\\"b" f_bytes: "\\000\\001" '
    "f_uint32: 300 f_enum: NEGATIVE f_sfixed32: -5 f_sfixed64: -6 f_sint32: -1 f_sint64: 2 must: 0",
    'f_message { i32: 150 text: "x" zz: [-1, 2, 3] } r_int32: [1, 2, 3] r_string: ["p", "q"] '
    "p_double: [1.5, 2] p_float: [0.25] p_int64: [-1] p_uint32: [1, 128] p_sint32: [-1, 2] "
    "p_fixed32: [4294967295] p_sfixed64: [-1] p_bool: [true, false] p_enum: [BLUE, NEGATIVE] must: 5",
    "r_branch { leaf { i32: 1 } leaves { text: \"l\" } count: 3 child { child { blob: \"b\" } } } "
    "r_branch { } tree { child { leaf { dbl: 1 } } } d_int32: 1 d_string: \"s\" must: 9",
]


def varint(v):
    out = bytearray()
    while v >= 0x80:
        out.append((v & 0x7F) | 0x80)
        v >>= 7
    out.append(v)
    return bytes(out)


def field(number, wire_type, payload=b""):
    return varint((number << 3) | wire_type) + payload


def ld(number, payload):
    return field(number, 2, varint(len(payload)) + payload)


def rich(text):
    return subprocess.run(["protoc", "-I", DATA, "--encode=tarn.test.Rich", "rich.proto"],
                          input=text.encode(), capture_output=True, check=True).stdout


def bodies():
    out = [rich(t) for t in RICH_TEXTS]
    out.append(b"")
    out.append(field(5, 0, varint(150)) + field(99, 0, b"\x01"))           # unknown field ends it
    out.append(field(9, 2, b"\x7f" + b"abc"))                               # length past the end
    out.append(ld(51, ld(4, ld(4, ld(4, b""))) ) + field(50, 0, b"\x80"))   # nesting, cut varint
    out.append(field(28, 2, b"\x03\x01\x80\x80"))                           # packed, element runs on
    out.append(field(5, 3) + field(5, 4) + field(1, 1, b"\x00" * 3))         # group, short fixed64
    return out


class Provider:
    """Builds an input that FuzzedDataProvider reads back in the same order."""

    def __init__(self):
        self.front = bytearray()
        self.back = []

    def integral(self, value, lo, hi):
        span, shift = hi - lo, 0
        v = value - lo
        chunk = []
        while shift < 64 and (span >> shift) > 0:
            chunk.append(v & 0xFF)  # first byte read is the most significant
            v >>= 8
            shift += 8
        self.back.extend(reversed(chunk))
        return self

    def string(self, text):
        self.front += text.replace(b"\\", b"\\\\") + b"\\ "
        return self

    def rest(self, data):
        self.front += data
        return self

    def bytes(self):
        return bytes(self.front) + bytes(reversed(self.back))


def write(target, name, data):
    d = os.path.join(CORPUS, target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def main():
    all_bodies = bodies()
    for i, body in enumerate(all_bodies):
        write("parse", "body%d" % i, body)
        write("partial_parse", "body%d" % i, bytes([i * 37 % 256]) + body)
    for i, body in enumerate(all_bodies[:6]):
        capacity = [1024, 77, 9, 0, 300, 40][i]
        write("trace", "body%d" % i,
              Provider().integral(capacity, 0, 1024).integral(i % 3, 0, capacity).rest(body).bytes())
    # merge: flags (bit 0 Sample, bits 1-2 how the two bodies share the input), split.
    merges = [(0x20, all_bodies[1] + all_bodies[0], len(all_bodies[1])),
              (0x06, all_bodies[2], 0), (0x06, all_bodies[3], 0),
              (0x02, all_bodies[3], len(all_bodies[3]) // 2),
              (0x07, bytes.fromhex("2a030a0178"), 0), (0x01, b"", 0)]
    for i, (flags, data, split) in enumerate(merges):
        write("merge", "pair%d" % i,
              Provider().integral(flags, 0, 255).integral(split, 0, len(data) + 2)
              .rest(data).bytes())
    # serialize: flags, offset, used, data count, then per value an op byte.
    for i in range(3):
        p = Provider().integral([0, 1, 0x82][i], 0, 255).integral(i, 0, 8).integral(2, 0, 8)
        p.integral(3, 0, 8)
        for op in [[0x01, 0x00, 0x00, 0x10], [0x01, 0x01, 0x00, 0x20, 0x00], [0x00, 0x00]][i]:
            p.integral(op, 0, 255)
            if op & 1:
                p.integral(1, 0, 4).integral(0x9A, 0, 255).integral(0x1A, 0, 255).string(b"xx")
            else:
                p.string(b"\x08\x96\x01")
        write("serialize", "list%d" % i, p.bytes())
    # context: options ProtoPath / ProtoFile / Type, then the schema text.
    schema = b"\nsyntax = \"proto2\";\npackage fz.a;\nmessage M { optional int32 a = 1 [default = 3]; " \
             b"repeated M m = 2; }\n"
    seeds = [
        (schema, [(0, 0), (1, 0), (3, b"fz.a.M")]),
        (b"s" + schema[1:].replace(b"fz.a", b"fz.b"), [(0, 2), (1, 2), (4, b"fz.b.M")]),
        (schema.replace(b"fz.a", b"fz.c"), [(3, b"fz.c.M"), (1, 0), (1, 1)]),
        (b"syntax = \"proto3\"; import \"nothere.proto\";", [(0, 3), (5, None), (3, b"x")]),
    ]
    for i, (text, options) in enumerate(seeds):
        p = Provider().integral(len(options), 0, 6)
        for which, arg in options:
            p.integral(which, 0, 7).integral(1, 0, 15)
            if which == 0:
                p.integral(arg, 0, 7)
            elif which in (1, 2):
                p.integral(arg, 0, 3)
            elif which in (3, 4):
                p.string(arg)
        write("context", "options%d" % i, p.rest(text).bytes())


if __name__ == "__main__":
    main()
