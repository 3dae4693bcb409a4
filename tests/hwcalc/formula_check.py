#!/usr/bin/env python3
"""Checks the resource formulas to the last bit over 10,000 records.

formula_check.py PROGRAM, where PROGRAM is hwcalc_formula_table. Computes every
barrier and limit a second time, with single precision as a rounding step of its
own, and ends with 1 at the first difference. Uses nothing but the core modules.
"""

import math
import struct
import subprocess
import sys

COUNT = 10000
INF = float("inf")
INT_MAX = 2**31 - 1


def f32(x):
    """x rounded to single precision."""
    try:
        return struct.unpack("<f", struct.pack("<f", x))[0]
    except OverflowError:
        return math.copysign(INF, x)


def bits(x):
    return struct.unpack("<I", struct.pack("<f", x))[0]


def from_bits(b):
    return struct.unpack("<f", struct.pack("<I", b))[0]


def int32(n):
    n &= 0xFFFFFFFF
    return n - 2**32 if n >= 2**31 else n


def int64(n):
    n &= 2**64 - 1
    return n - 2**64 if n >= 2**63 else n


def sat(x):
    if not x < 2147483648.0:
        return INT_MAX
    if x < -2147483648.0:
        return -(2**31)
    return int(x)


def satd(x):
    return sat(f32(x))


def times(a, b):
    """The product of two single-precision numbers, in single precision: exact in
    double precision, so rounded once."""
    return f32(a * b)


def to_uint64(x):
    if x <= -(2.0**63):
        return 2**63
    return int(x) % 2**64


NAMES = (
    "numproc numtcpsock numothersock numfile privvmpages lockedpages shmpages "
    "numflock numiptent diskspace diskinodes quotaugidlimit"
).split()


def expected(page, ps, ds, av, m):
    s = {name: int32(value) for name, value in m.items()}

    def scaled(name, floor):
        return sat(times(f32(float(max(s[name], floor))), ps))

    d = sat(times(f32(float(s["diskspace"])), ds))
    i = sat(times(f32(float(s["diskinodes"])), ds))
    p = scaled("numproc", 240)
    a = times(av, ps)
    if a < 180.0:
        a = 180.0
    t = scaled("numtcpsock", 80)
    o = scaled("numothersock", 80)
    f = scaled("numfile", 9312)
    v = sat(times(f32(float(s["privvmpages"])), ps))
    if not v > 65535:
        v = 65536
    lp = scaled("lockedpages", 256)
    sh = scaled("shmpages", 21504)
    k = scaled("numflock", 188)
    n = scaled("numiptent", 128)
    q = 0 if s["quotaugidlimit"] == 0 else max(int32(2 * s["quotaugidlimit"]), 1024)

    F = max(f, satd(float(o + t + 255)))
    F = max(F, satd(a * 32.0))
    D = satd(float(F * 384) * 1.1)
    K = satd(float(p * 61440 + D))
    T = satd(float(t * 65536))
    Tb = satd(f32(float(t * 65536)) - float(t) * 2.5 * 1024.0)
    O = satd(float(o * 65536))
    Ob = satd(f32(float(o * 65536)) - float(o) * 2.5 * 1024.0)
    V = sat(times(f32(float(v)), f32(1.1)))
    S = sh if sh > 1023 else 1024

    # A sum of two single-precision numbers rounds the same by way of double.
    total = f32(float(K))
    total = f32(total + f32(float(int32(2 * T))))
    total = f32(total + f32(float(O)))
    total = f32(total + 262144.0)
    total = f32(total + f32(float(int32(page * V))))
    total = f32(total + f32(float(int32(page * lp))))
    total = times(total, ps)
    cap = int32(page * 1073741823) % 2**64
    M = int64(to_uint64(total) if f32(float(cap)) > total else cap)

    top = 2**63 - 1
    rows = [
        ("numproc", p, p),
        ("avnumproc", sat(a), sat(a)),
        ("numtcpsock", t, t),
        ("numothersock", o, o),
        ("numpty", 255, 255),
        ("numfile", F, F),
        ("dcachesize", D, D),
        ("kmemsize", K, K),
        ("tcpsndbuf", Tb, T),
        ("tcprcvbuf", Tb, T),
        ("othersockbuf", Ob, O),
        ("dgramrcvbuf", 262144, 262144),
        ("vmguarpages", 0, top),
        ("privvmpages", v, V),
        ("oomguarpages", 0, top),
        ("lockedpages", lp, lp),
        ("shmpages", S, S),
        ("physpages", 0, top),
        ("numflock", k, satd(float(k) * 1.1)),
        ("numsiginfo", 256, 256),
        ("numiptent", n, n),
        ("diskspace", d, satd(float(d) * 1.1)),
        ("diskinodes", i, satd(float(i) * 1.1)),
        ("cpuunits", None, 1000),
        ("quotatime", None, 0),
        ("quotaugidlimit", None, q),
        ("slmmemorylimit", M, M),
    ]
    return [
        "%s=%d" % (name, limit) if barrier is None else "%s=%d:%d" % (name, barrier, limit)
        for name, barrier, limit in rows
    ]


class Numbers:
    """The same pseudo-random numbers in every run and on every machine."""

    def __init__(self, seed):
        self.state = seed

    def next(self):
        self.state = (self.state * 6364136223846793005 + 1442695040888963407) % 2**64
        return self.state >> 33

    def choose(self, values):
        return values[self.next() % len(values)]

    def counter(self):
        kind = self.next() % 4
        if kind == 0:
            return self.choose(EXTREME_COUNTERS)
        if kind == 1:
            return (self.next() * 2 + self.next() % 2) % 2**32
        # Mostly of a size that servers have.
        return self.next() >> (self.next() % 31)

    def factor(self):
        kind = self.next() % 4
        if kind == 0:
            return self.choose(EXTREME_FACTORS)
        if kind == 1:
            value = from_bits((self.next() * 2 + self.next() % 2) % 2**32)
            return value if value == value else 1.0
        return f32((self.next() % 1000000) / 100000.0)


EXTREME_COUNTERS = [0, 1, 79, 80, 81, 239, 240, 241, 9311, 9312, 9313, 21503, 21504]
EXTREME_COUNTERS += [511, 512, 513, 65535, 65536, 65537, 2**24 - 1, 2**24, 2**24 + 1]
EXTREME_COUNTERS += [2**30 - 1, 2**30, 2**31 - 1, 2**31 - 64, 2**31, 2**31 + 1, 2**32 - 1]
EXTREME_FACTORS = [0.0, -0.0, 1e-45, 1e-38, 0.01, 0.5, 1.0, 1.1, 2.0, 1e3, 1e9, 1e19, 1e30]
EXTREME_FACTORS += [3.4e38, INF, -1.0, -0.5, -1e30]
EXTREME_FACTORS = [f32(x) for x in EXTREME_FACTORS]


def main():
    numbers = Numbers(20)
    records = []
    for index in range(COUNT):
        plain = index % 2 == 0
        ps = f32(1.0) if plain and index % 4 == 0 else numbers.factor()
        ds = f32(1.0) if plain else numbers.factor()
        av = f32(numbers.counter() / 7.0) if plain else abs(numbers.factor())
        page = 4096 if index % 5 else numbers.choose([4096, 8192, 16384, 65536])
        records.append((page, ps, ds, av, {name: numbers.counter() for name in NAMES}))
    lines = [
        " ".join(str(x) for x in [page, bits(ps), bits(ds), bits(av)] + [m[n] for n in NAMES])
        for page, ps, ds, av, m in records
    ]
    result = subprocess.run(
        [sys.argv[1]], input="\n".join(lines) + "\n", stdout=subprocess.PIPE, text=True, check=True
    )
    answers = result.stdout.splitlines()
    if len(answers) != COUNT:
        sys.exit("%d answers for %d records" % (len(answers), COUNT))
    values = 0
    for record, answer in zip(records, answers):
        wanted = expected(*record)
        got = answer.split()
        if got != wanted:
            for a, b in zip(got, wanted):
                if a != b:
                    print("computed %s, expected %s" % (a, b))
            sys.exit("differs for %r" % (record,))
        values += sum(2 if ":" in word else 1 for word in got)
    print("%d records, %d values: all equal" % (COUNT, values))


if __name__ == "__main__":
    main()
