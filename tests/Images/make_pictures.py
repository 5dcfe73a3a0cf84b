#!/usr/bin/env python3
"""Writes the small pictures that the image tests and the fuzzer start from: make_pictures.py FOLDER

Written from the formats' descriptions with zlib alone, so that no image library checks itself. ImageLoaderTest.cpp
states the same pixels: 7 x 5, at x, y from the top (40 x, 60 y, 20 (x + y)), alpha 36 x + y, levels (x + 2 y) mod n.
"""
import os
import struct
import sys
import zlib

W, H = 7, 5
ALL = [(x, y) for y in range(H) for x in range(W)]


def rgb(x, y):
    return [40 * x, 60 * y, 20 * (x + y)]


def rgba(x, y):
    return rgb(x, y) + [36 * x + y]


def level(bits):
    return lambda x, y: [(x + 2 * y) % (1 << bits)]


def pack(samples, bits):
    """Samples of a row, most significant bit first, filled up to a byte."""
    if bits == 16:
        return b"".join(struct.pack(">H", s) for s in samples)
    text = "".join(format(s, "0%db" % bits) for s in samples)
    text += "0" * (-len(text) % 8)
    return bytes(int(text[i:i + 8], 2) for i in range(0, len(text), 8))


# --------------------------------------------------------------------------------------------------------------- PNG

ADAM7 = ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2))


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(pixel, bits, color, extra=b"", interlaced=False, size=(W, H)):
    passes = ADAM7 if interlaced else ((0, 0, 1, 1),)
    data = b""
    for x0, y0, dx, dy in passes:
        for y in range(y0, H, dy):
            row = [s for x in range(x0, W, dx) for s in pixel(x, y)]
            if row:
                data += b"\0" + pack(row, bits)
    header = struct.pack(">IIBBBBB", size[0], size[1], bits, color, 0, 0, int(interlaced))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + extra + chunk(b"IDAT", zlib.compress(data))
            + chunk(b"IEND", b""))


def wide(pixel):
    """16 bits with a low byte that rounding would carry upwards."""
    return lambda x, y: [s * 256 + 250 for s in pixel(x, y)]


PALETTE = bytes(v for i in range(16) for v in (i * 16, 255 - i * 10, i * 7))


# -------------------------------------------------------------------------------------------------------------- JPEG

def jpeg(blocks, marker=b"", components=1):
    """Blocks of 8 x 8 in a row, each of one colour: only their mean is coded. All divisors are 1."""
    def segment(code, data):
        return bytes((0xFF, code)) + struct.pack(">H", len(data) + 2) + data

    bits = ""
    last = [0] * components
    for block in blocks:
        for c in range(components):
            value = (block[c] - 128) * 8
            difference, last[c] = value - last[c], value
            size = abs(difference).bit_length()
            bits += format(size, "04b")
            if size:
                bits += format(difference if difference > 0 else difference + (1 << size) - 1, "0%db" % size)
            bits += "0"  # end of block
    bits += "1" * (-len(bits) % 8)
    scan = bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8)).replace(b"\xff", b"\xff\0")
    ids = range(1, components + 1)
    return (b"\xff\xd8" + marker + segment(0xDB, b"\0" + b"\1" * 64)
            + segment(0xC0, struct.pack(">BHHB", 8, 8, 8 * len(blocks), components)
                      + b"".join(bytes((i, 0x11, 0)) for i in ids))
            + segment(0xC4, b"\0" + bytes((0, 0, 0, 12) + (0,) * 12) + bytes(range(12)))
            + segment(0xC4, b"\x10" + bytes((1,) + (0,) * 15) + b"\0")
            + segment(0xDA, bytes((components,)) + b"".join(bytes((i, 0)) for i in ids) + b"\0\x3f\0")
            + scan + b"\xff\xd9")


ADOBE = b"\xff\xee\0\x0eAdobe\0\x64\0\0\0\0\0"  # no transform: the components are the colours


# -------------------------------------------------------------------------------------------------------------- TIFF

def lzw(data):
    """Literals alone, with a clear code before the codes grow."""
    bits = ""
    for i, byte in enumerate(data):
        if i % 200 == 0:
            bits += format(256, "09b")
        bits += format(byte, "09b")
    bits += format(257, "09b")
    bits += "0" * (-len(bits) % 8)
    return bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))


def tiff(pixel, bits, photometric, samples, packed=None, code=1, extra=(), tile=0, big_endian=False, colormap=(),
         planes=False, start=8, subfile=0):
    order = ">" if big_endian else "<"

    def raw(xs, ys, plane=slice(None)):
        out = b""
        for y in ys:
            row = [s for x in xs for s in (pixel(x, y) if x < W and y < H else [0] * samples)[plane]]
            out += b"".join(struct.pack(order + "H", s) for s in row) if bits == 16 else pack(row, bits)
        return (packed or (lambda d: d))(out)

    if tile:
        blocks = [raw(range(x, x + tile), range(y, y + tile)) for y in range(0, H, tile) for x in range(0, W, tile)]
    else:
        parts = [slice(p, p + 1) for p in range(samples)] if planes else [slice(None)]
        blocks = [raw(range(W), range(y, min(H, y + 2)), part) for part in parts for y in range(0, H, 2)]
    tags = [(256, 4, [W]), (257, 4, [H]), (258, 3, [bits] * samples), (259, 3, [code]), (262, 3, [photometric]),
            (277, 3, [samples]), (284, 3, [2 if planes else 1])]
    if not tile:
        tags += [(273, 4, None), (278, 4, [2]), (279, 4, [len(b) for b in blocks])]
    else:
        tags += [(322, 4, [tile]), (323, 4, [tile]), (324, 4, None), (325, 4, [len(b) for b in blocks])]
    if subfile:
        tags.append((254, 4, [subfile]))
    if extra:
        tags.append((338, 3, list(extra)))
    if colormap:
        tags.append((320, 3, list(colormap)))
    tags.sort(key=lambda t: t[0])

    offsets, at = [], start
    for block in blocks:
        offsets.append(at)
        at += len(block)
    body = b"".join(blocks)
    directory, behind = b"", b""
    behind_at = at + 2 + 12 * len(tags) + 4
    for tag, kind, values in tags:
        values = offsets if values is None else values
        data = b"".join(struct.pack(order + ("H" if kind == 3 else "I"), v) for v in values)
        if len(data) > 4:
            directory += struct.pack(order + "HHII", tag, kind, len(values), behind_at + len(behind))
            behind += data
        else:
            directory += struct.pack(order + "HHI", tag, kind, len(values)) + data.ljust(4, b"\0")
    return ((b"MM\0*" if big_endian else b"II*\0") + struct.pack(order + "I", at) + body
            + struct.pack(order + "H", len(tags)) + directory + bytes(4) + behind)


def two_pages(subfile=0):
    first, second = tiff(rgb, 8, 2, 3), tiff(rgba, 8, 2, 4, extra=[2], start=len(tiff(rgb, 8, 2, 3)), subfile=subfile)
    directory = struct.unpack("<I", first[4:8])[0]
    link = directory + 2 + 12 * struct.unpack("<H", first[directory:directory + 2])[0]
    return first[:link] + second[4:8] + first[link + 4:] + second[8:]


# ------------------------------------------------------------------------------------------------------------ others

def bmp():
    rows = b"".join(bytes(v for x in range(W) for v in reversed(rgb(x, y))) + bytes(-W * 3 % 4)
                    for y in reversed(range(H)))
    return (b"BM" + struct.pack("<IHHI", 54 + len(rows), 0, 0, 54)
            + struct.pack("<IiiHHIIiiII", 40, W, H, 1, 24, 0, len(rows), 2835, 2835, 0, 0) + rows)


def deep_bmp():
    """32 bits: the fourth byte is the alpha."""
    rows = b"".join(bytes((p[2], p[1], p[0], p[3])) for y in reversed(range(H)) for p in (rgba(x, y) for x in range(W)))
    return (b"BM" + struct.pack("<IHHI", 54 + len(rows), 0, 0, 54)
            + struct.pack("<IiiHHIIiiII", 40, W, H, 1, 32, 0, len(rows), 2835, 2835, 0, 0) + rows)


def tga():
    rows = b"".join(bytes((p[2], p[1], p[0], p[3])) for y in reversed(range(H)) for p in (rgba(x, y) for x in range(W)))
    return struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, W, H, 32, 8) + rows


def packed_tga():
    """Runs and literals by turns, an index into 16 colours each; the screen place must not matter."""
    indices = [level(4)(x, y)[0] for y in reversed(range(H)) for x in range(W)]
    data, at = b"", 0
    while at < len(indices):
        run = 1
        while at + run < len(indices) and indices[at + run] == indices[at]:
            run += 1
        data += bytes((127 + run, indices[at])) if at % 2 else bytes((run - 1,)) + bytes(indices[at:at + run])
        at += run
    colors = b"".join(bytes(reversed(PALETTE[3 * i:3 * i + 3])) for i in range(16))
    return struct.pack("<BBBHHBHHHHBB", 2, 1, 9, 0, 16, 24, 3, 4, W, H, 8, 0) + b"id" + colors + data


def grey_tga():
    rows = bytes(rgb(x, y)[0] for y in range(H) for x in range(W))
    return struct.pack("<BBBHHBHHHHBB", 0, 0, 3, 0, 0, 0, 0, 0, W, H, 8, 0x20) + rows  # the top row first


def color_run_tga():
    """Packets of one colour each, in runs of two where the row allows."""
    data = b""
    for y in reversed(range(H)):
        for x in range(0, W, 2):
            p = rgb(x, y)
            data += bytes((128 + min(1, W - 1 - x), p[2], p[1], p[0]))
    return struct.pack("<BBBHHBHHHHBB", 0, 0, 10, 0, 0, 0, 0, 0, W, H, 24, 0) + data


def palette_bmp():
    rows = b"".join(pack([level(4)(x, y)[0] for x in range(W)], 4) for y in range(H))
    colors = b"".join(bytes(reversed(PALETTE[3 * i:3 * i + 3])) + b"\0" for i in range(16))
    return (b"BM" + struct.pack("<IHHI", 54 + 64 + len(rows), 0, 0, 118)
            + struct.pack("<IiiHHIIiiII", 40, W, -H, 1, 4, 0, len(rows), 2835, 2835, 16, 16) + colors + rows)


def packed_bmp():
    """Four bits: plain pixels below, runs above, and a jump over the first pixel, which is 0."""
    data = b""
    for y in reversed(range(H)):
        row = [level(4)(x, y)[0] for x in range(W)]
        if y == 0:
            data += b"\0\2\1\0" + b"".join(bytes((1, i << 4)) for i in row[1:])
        elif y % 2:
            data += bytes((2, row[0] << 4 | row[1])) + b"".join(bytes((1, i << 4)) for i in row[2:])
        else:
            data += bytes((0, W)) + pack(row, 4)
        data += b"\0\0" if y else b"\0\1"
    colors = b"".join(bytes(reversed(PALETTE[3 * i:3 * i + 3])) + b"\0" for i in range(16))
    return (b"BM" + struct.pack("<IHHI", 118 + len(data), 0, 0, 118)
            + struct.pack("<IiiHHIIiiII", 40, W, H, 1, 4, 2, len(data), 2835, 2835, 0, 0) + colors + data)


def masked_bmp():
    """The long header with masks for all four channels, in the order of memory."""
    rows = b"".join(bytes(v for x in range(W) for v in rgba(x, y)) for y in reversed(range(H)))
    header = struct.pack("<IiiHHIIiiII", 108, W, H, 1, 32, 3, len(rows), 2835, 2835, 0, 0)
    header += struct.pack("<IIII", 0xFF, 0xFF00, 0xFF0000, 0xFF000000) + bytes(52)
    return b"BM" + struct.pack("<IHHI", 122 + len(rows), 0, 0, 122) + header + rows


def mirrored_tga():
    """Five bits a colour and one of alpha, set in odd columns; the right column first."""
    def pixel(x, y):
        r, g, b = (v >> 3 for v in rgb(x, y))
        return struct.pack("<H", x % 2 << 15 | r << 10 | g << 5 | b)
    rows = b"".join(pixel(x, y) for y in reversed(range(H)) for x in reversed(range(W)))
    return struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, W, H, 16, 0x11) + rows


def gif_codes(indices, root):
    """Welch's coder: codes grow to 12 bits, and a full table is cleared a few codes late."""
    clear = 1 << root
    table, width, bits, late = {}, root + 1, [], 0

    def reset():
        table.clear()
        table.update({(i,): i for i in range(clear)})

    def put(code):
        bits.extend(code >> i & 1 for i in range(width))

    reset()
    put(clear)
    string = ()
    for index in indices:
        if string + (index,) in table:
            string += (index,)
            continue
        put(table[string])
        size = len(table) + 2
        if size < 4096:
            table[string + (index,)] = size
            if size == 1 << width and width < 12:
                width += 1
        else:
            late += 1
            if late == 50:
                put(clear)
                reset()
                width, late = root + 1, 0
        string = (index,)
    put(table[string])
    # The decoder has taken in one more string by then.
    if len(table) + 2 == 1 << width and width < 12:
        width += 1
    put(clear + 1)
    return sum(bit << i for i, bit in enumerate(bits)).to_bytes((len(bits) + 7) // 8, "little")


def gif(indices, size, bits, palette, local=False, rows=None, transparent=None):
    width, height = size
    order = rows or range(height)
    data = gif_codes([indices[y * width + x] for y in order for x in range(width)], max(2, bits))
    blocks = b"".join(bytes((len(data[i:i + 255]),)) + data[i:i + 255] for i in range(0, len(data), 255))
    flags = 0x80 | bits - 1
    control = b"" if transparent is None else b"\x21\xf9\4\1\0\0" + bytes((transparent, 0))
    return (b"GIF89a" + struct.pack("<HHBBB", width, height, 0 if local else flags, 0, 0) + (b"" if local else palette)
            + control + b"\x21\xfe\3abc\0\x2c"
            + struct.pack("<HHHHB", 0, 0, width, height, (flags if local else 0) | (0x40 if rows else 0))
            + (palette if local else b"") + bytes((max(2, bits),)) + blocks + b"\0\x3b")


def noise(count):
    value, out = 1, []
    for i in range(count):
        value = (value * 1664525 + 1013904223) % (1 << 32)
        out.append(0 if i // 700 % 2 else value >> 24)
    return out


def pictures():
    for bits in (1, 2, 4):
        yield "grey%d.png" % bits, png(level(bits), bits, 0)
        yield "palette%d.png" % bits, png(level(bits), bits, 3, chunk(b"PLTE", PALETTE[:3 << bits]))
    yield "grey8.png", png(lambda x, y: [rgb(x, y)[0]], 8, 0)
    yield "grey16.png", png(wide(lambda x, y: [rgb(x, y)[0]]), 16, 0)
    yield "palette8.png", png(level(4), 8, 3, chunk(b"PLTE", PALETTE))
    yield "greyalpha16.png", png(wide(lambda x, y: [rgb(x, y)[0], rgba(x, y)[3]]), 16, 4)
    yield "greyalpha8.png", png(lambda x, y: [rgb(x, y)[0], rgba(x, y)[3]], 8, 4)
    yield "palettealpha4.png", png(level(4), 4, 3, chunk(b"PLTE", PALETTE) + chunk(b"tRNS", bytes((0, 100, 200))))
    yield "rgb8.png", png(rgb, 8, 2)
    yield "rgbkey8.png", png(rgb, 8, 2, chunk(b"tRNS", struct.pack(">HHH", *rgb(3, 2))))
    yield "rgb16.png", png(wide(rgb), 16, 2)
    yield "rgba8.png", png(rgba, 8, 6)
    yield "rgba16.png", png(wide(rgba), 16, 6)
    yield "interlaced8.png", png(rgba, 8, 6, interlaced=True)
    yield "interlaced1.png", png(level(1), 1, 0, interlaced=True)
    yield "interlaced4.png", png(level(4), 4, 3, chunk(b"PLTE", PALETTE), interlaced=True)
    yield "several.png", png(rgb, 8, 2, chunk(b"acTL", struct.pack(">II", 2, 0)))
    yield "interlaced16.png", png(wide(rgb), 16, 2, interlaced=True)
    yield "huge.png", png(rgb, 8, 2, size=(100000, 100000))
    yield "hollow.png", png(rgb, 8, 2, size=(30000, 30000))

    yield "grey.jpg", jpeg([[10], [200]])
    yield "rgb.jpg", jpeg([[10, 200, 90], [250, 0, 128]], ADOBE, 3)
    yield "ycc.jpg", jpeg([[100, 128, 128], [150, 100, 180]], components=3)
    yield "cmyk.jpg", jpeg([[200, 100, 50, 255], [200, 100, 50, 128]], ADOBE, 4)
    yield "ycck.jpg", jpeg([[100, 128, 128, 255], [100, 128, 128, 128]], ADOBE[:-1] + b"\2", 4)

    cmyk = lambda x, y: rgb(x, y) + [10 * x]
    yield "rgb8.tif", tiff(rgb, 8, 2, 3)
    yield "rgb16.tif", tiff(wide(rgb), 16, 2, 3, big_endian=True)
    yield "rgba8-lzw.tif", tiff(rgba, 8, 2, 4, lzw, 5, extra=[2])
    yield "rgba8-tiles.tif", tiff(rgba, 8, 2, 4, zlib.compress, 8, extra=[2], tile=16)
    yield "grey16-tiles.tif", tiff(wide(lambda x, y: [rgb(x, y)[0]]), 16, 1, 1, tile=16)
    yield "white1.tif", tiff(level(1), 1, 0, 1)
    colormap = [PALETTE[3 * i + c] * 257 for c in range(3) for i in range(16)]
    yield "palette4.tif", tiff(level(4), 4, 3, 1, colormap=colormap)
    yield "cmyk8.tif", tiff(cmyk, 8, 5, 4)

    yield "rgb8-planes.tif", tiff(rgb, 8, 2, 3, lzw, 5, planes=True)
    yield "rgb16-lzw.tif", tiff(wide(rgb), 16, 2, 3, lzw, 5)
    yield "channels.tif", tiff(lambda x, y: rgba(x, y) + [99, 7], 8, 2, 6, extra=[2, 0, 0])
    yield "several.tif", two_pages()
    yield "several-sizes.tif", two_pages(subfile=1)
    yield "associated.tif", tiff(lambda x, y: [s // 5 for s in rgb(x, y)] + [51], 8, 2, 4, extra=[1])

    yield "rgb.bmp", bmp()
    yield "rgba.bmp", deep_bmp()
    yield "palette4.bmp", palette_bmp()
    yield "runs4.bmp", packed_bmp()
    yield "masks.bmp", masked_bmp()
    yield "rgba.tga", tga()
    yield "mirrored16.tga", mirrored_tga()
    yield "runs.tga", packed_tga()
    yield "grey.tga", grey_tga()
    yield "rgb-runs.tga", color_run_tga()
    yield "key.gif", gif([level(2)(x, y)[0] for x, y in ALL], (W, H), 2, PALETTE[:12], transparent=2)
    yield "interlaced.gif", gif([level(4)(x, y)[0] for x, y in ALL], (W, H), 4, PALETTE, True, [0, 4, 2, 1, 3])
    frame = gif([level(4)(x, y)[0] for x, y in ALL], (W, H), 4, PALETTE, local=True)
    yield "several.gif", frame[:-1] + frame[13:]
    yield "grown.gif", gif(noise(120 * 100), (120, 100), 8, bytes(v for i in range(256) for v in (i, 255 - i, i // 2)))
    yield "rgb.ppm", b"P6 # a comment\n7\t5\n255\n" + bytes(v for x, y in ALL for v in rgb(x, y))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    os.makedirs(sys.argv[1], exist_ok=True)
    for name, data in pictures():
        with open(os.path.join(sys.argv[1], name), "wb") as file:
            file.write(data)


if __name__ == "__main__":
    main()
