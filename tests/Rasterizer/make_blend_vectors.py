#!/usr/bin/env python3
"""Writes the results of the blend types in a layer resolve, worked out in exact fractions: make_blend_vectors.py FILE

A row: blend type, channels before, channels of the layer, weight, result. Quotients by 255 truncate toward zero.
ShaderTest.cpp compares each row.
"""
import random
import sys
from fractions import Fraction as F
from math import floor


def T(x):
    return -(-x // 255) if x < 0 else x // 255


def clamp(x):
    return max(0, min(255, x))


def mix(d, x, a):
    return (d + T((x - d) * a)) % 256


def smoothed_ramp():
    ramp = [i * 255 // 50 if i < 50 else 255 if i < 200 else (255 - i) * 255 // 55 for i in range(256)]
    for _ in range(2):
        for i in range(1, 254):
            ramp[i] = sum(ramp[i - 1:i + 2]) // 3
    return ramp


RAMP = smoothed_ramp()


def contrast(row, i):
    if row == 0:
        return 127
    v = (row - 127) / 128
    gain = 32 ** (v * abs(v))
    return floor(255 * max(0.0, min(1.0, (i / 255 - 0.5) * gain + 0.5)) + (1e-9 if row == 127 else 0))


def to_hsl(rgb):
    r, g, b = rgb
    mx, mn = max(rgb), min(rgb)
    l, d = (mx + mn) // 2, mx - mn
    if d == 0:
        return 0, l, 0
    s = d * 255 // (mx + mn if l < 128 else 510 - mx - mn)
    trunc = lambda x: int(F(x * 255, d))
    h = trunc(g - b) if mx == r else 0
    h = trunc(b - r) + 510 if mx == g else h
    h = trunc(r - g) + 1020 if mx == b else h
    return int(F(h, 6)) % 256, l, s


def to_rgb(hsl):
    h, l, s = hsl
    if l > 254 or l == 0 or s == 0:
        return [l] * 3
    L, S, H = F(l, 255), F(s, 255), F(h * 360, 255)
    q = (S + 1) * L if L <= F(1, 2) else S + L - S * L
    p = 2 * L - q

    def channel(hue):
        hue %= 360
        if hue < 60:
            return p + (q - p) * hue / 60
        if hue < 180:
            return q
        return p + (q - p) * (240 - hue) / 60 if hue < 240 else p
    return [floor(channel(hue) * 255 + F(1, 2)) for hue in (H + 120, H, H - 120)]


def each(target):
    return lambda d, s, a: [mix(x, target(x, y), a) for x, y in zip(d, s)]


def curve(sign):
    def blend(d, s, a):
        row = 127 + sign * (T(sum(s) // 3 * 255) >> 1)
        return [mix(x, contrast(row, x), a) for x in d]
    return blend


def hsl(change):
    def blend(d, s, a):
        new = change(to_hsl(d), s)
        return list(d) if new is None else [mix(x, y, a) for x, y in zip(d, to_rgb(new))]
    return blend


def natural(sign, keep=lambda new, old: True):
    def change(old, s):
        lightness = contrast(127 + sign * (T(sum(s) // 3 * 255) >> 1), old[1])
        return (old[0], lightness, old[2]) if keep(lightness, old[1]) else None
    return hsl(change)


def dodge(d, s):
    return min(d, 8) * min(255, d * 255 // (256 - s)) >> 3


BLENDS = [
    each(lambda d, s: s),
    lambda d, s, a: [min(255, x + T(a * (sum(s) // 3))) for x in d],
    lambda d, s, a: [max(0, x - T(a * (sum(s) // 3))) for x in d],
    each(max),
    each(min),
    each(lambda d, s: T(s * d)),
    each(lambda d, s: T(T(d * s) * (255 - d) + (255 - T((255 - s) * (255 - d))) * d)),
    each(lambda d, s: 255 - T((255 - d) * (255 - s))),
    each(lambda d, s: clamp(d + (s - 127) * 2)),
    each(lambda d, s: clamp(d + floor(F(s - 127, 2)))),
    each(dodge),
    each(lambda d, s: 255 - (min(255 - d, 8) * min(255, (255 - d) * 255 // (s + 1)) >> 3)),
    lambda d, s, a: [(x + T(T((255 - 2 * x) * y) * a)) % 256 for x, y in zip(d, s)],
    each(lambda d, s: abs(d - s)),
    hsl(lambda old, s: (to_hsl(s)[0], old[1], old[2])),
    hsl(lambda old, s: ((old[0] + T(sum(s) // 9 * 255)) % 256, old[1], old[2])),
    hsl(lambda old, s: ((old[0] - T(sum(s) // 9 * 255)) % 256, old[1], old[2])),
    hsl(lambda old, s: (old[0], to_hsl(s)[1], T(old[2] * RAMP[old[1]]))),
    hsl(lambda old, s: (old[0], old[1], old[2] + T((to_hsl(s)[2] - old[2]) * 255))),
    hsl(lambda old, s: (old[0], old[1], min(255, old[2] + T(sum(s) // 3 * 255)))),
    hsl(lambda old, s: (old[0], old[1], max(0, old[2] - sum(s) // 3))),
    each(lambda d, s: min(255, d + s)),
    each(lambda d, s: max(0, d - s)),
    hsl(lambda old, s: (to_hsl(s)[0], old[1], to_hsl(s)[2])),
    curve(1),
    curve(-1),
    natural(1),
    natural(-1),
    natural(1, lambda new, old: new >= old),
    natural(1, lambda new, old: new <= old),
]


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    generator = random.Random(20)
    byte = lambda: generator.choice((0, 255, 127, 128, 1)) if generator.random() < 0.25 else generator.randrange(256)
    with open(sys.argv[1], "w") as file:
        for number, blend in enumerate(BLENDS):
            for i in range(16):
                d, s = [byte() for _ in range(3)], [byte() for _ in range(3)]
                a = (255, 1, 254)[i] if i < 3 else 1 + generator.randrange(255)
                file.write("%d\t%s\t%s\t%d\t%s\n" % (number, *(",".join(map(str, v)) for v in (d, s)), a,
                                                   ",".join(map(str, blend(d, s, a)))))


if __name__ == "__main__":
    main()
