#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Hash values of the kernel's tables by exact integers: the expected values in tests/base/qxhash_test.cpp.

Every formula is written over Python's unbounded integers and cut to 32 bits afterwards, so that no machine arithmetic
stands behind the numbers.
"""
import struct

M = 0xFFFFFFFF


def integer(x):
    a = (x & M) * 4097 & M
    a ^= a >> 22
    a = a * 17 & M
    a ^= a >> 9
    a = a * 1025 & M
    a ^= a >> 2
    a = a * 129 & M
    return (a ^ a >> 12) & 0x7FFFFFFF


def text(data):
    h = 0x811C9DC5
    for byte in data:
        h = (h ^ byte) * 16777619 & M
    return h ^ h >> 8 ^ h >> 16 ^ h >> 24


def signed(a):
    return a - (1 << 32) if a & 0x80000000 else a


def magnitude(a):
    return max(signed(a), -signed(a)) & M


def double(x):
    low, high = struct.unpack("<II", struct.pack("<d", x))
    x = low ^ high
    a = (x + (~(x << 9) & M)) & M
    a = (a ^ (signed(a) >> 14 & M)) * 17 & M
    a = a ^ (signed(a) >> 10 & M)
    return magnitude(a)


def pair(h1, h2):
    return magnitude((h1 * 69069 + h2 * 362437) & M)


print("integers:", {x: integer(x) for x in (0, 1, 2, 12345, -1, 2**31 - 1, 2**32 + 7)})
print("texts:   ", {t: text(t) for t in (b"", b"a", b"temperature", bytes([0xC3, 0xA9, 0x80]))})
print("doubles: ", {x: double(x) for x in (0.0, 1.0, 0.1, -2.5, 1e300)})
print("pair (1, 2):          ", pair(integer(1), integer(2)))
print("triple (3, (1, 2)):   ", pair(integer(3), pair(integer(1), integer(2))))
print("pair ('T', 5):        ", pair(text(b"T"), integer(5)))
print("complex 0.1 - 2.5i:   ", pair(double(0.1), double(-2.5)))
