#!/usr/bin/env python3
"""Shows the icon of the shell extension as it meets the eye: every image of the file enlarged and in its true
size, alone and over a document, on light and on dark ground. Reads the .ico file itself.

    draw_icon.py FILE.ico FILE.png
"""

import argparse
import pathlib
import struct
import zlib

LIGHT, DARK = (0xFF, 0xFF, 0xFF), (0x20, 0x20, 0x20)
SCALE = 8
GAP = 3  # between pictures, in enlarged pixels


def read_images(data):
    """The 8-bit images of an icon file: rows of colours from the top, None where transparent."""
    _, kind, count = struct.unpack_from("<HHH", data)
    if kind != 1:
        raise ValueError("no icon file")
    images = []
    for entry in range(count):
        offset = struct.unpack_from("<I", data, 6 + 16 * entry + 12)[0]
        header, size, _, _, bits = struct.unpack_from("<IiiHH", data, offset)
        if bits != 8:
            raise ValueError(f"an image of {bits} bits a pixel")
        palette = offset + header
        colours = palette + 4 * 256
        row = (size + 3) // 4 * 4  # rows end on a multiple of four bytes
        mask = colours + row * size
        mask_row = (size + 31) // 32 * 4
        image = []
        for y in reversed(range(size)):
            line = []
            for x in range(size):
                hidden = data[mask + y * mask_row + x // 8] >> (7 - x % 8) & 1
                blue, green, red = struct.unpack_from("<BBB", data, palette + 4 * data[colours + y * row + x])
                line.append(None if hidden else (red, green, blue))
            image.append(line)
        images.append(image)
    return images


def document(size):
    """A plain page, as a stand-in for a file's own icon."""
    left, top, right, bottom = size * 5 // 32, size // 16, size - size * 5 // 32, size - size // 16
    page = [[None] * size for _ in range(size)]
    for y in range(top, bottom):
        for x in range(left, right):
            edge = x in (left, right - 1) or y in (top, bottom - 1)
            line = (y - top) % 4 == 3 and left + 2 < x < right - 3
            page[y][x] = (0x80, 0x80, 0x80) if edge else (0xB8, 0xC4, 0xD0) if line else (0xFA, 0xFA, 0xFA)
    return page


def over(front, back):
    return [[a or b for a, b in zip(*rows)] for rows in zip(front, back)]


def enlarged(picture):
    return [[colour for colour in row for _ in range(SCALE)] for row in picture for _ in range(SCALE)]


def beside(pictures, ground):
    """Pictures from left to right with margins, standing on one line."""
    height = max(len(picture) for picture in pictures)
    margin = [ground] * (GAP * SCALE)
    lines = [list(margin) for _ in range(height)]
    for picture in pictures:
        empty = [[None] * len(picture[0])] * (height - len(picture))
        for line, row in zip(lines, empty + picture):
            line += [colour or ground for colour in row] + margin
    return lines


def panel(images, ground):
    lines = []
    for image in images:
        whole = over(image, document(len(image)))
        block = beside([enlarged(image), enlarged(whole), image, whole], ground)
        lines += [[ground] * len(block[0])] * (GAP * SCALE) + block
    width = max(len(line) for line in lines)
    lines += [[ground] * width] * (GAP * SCALE)
    return [line + [ground] * (width - len(line)) for line in lines]


def png(lines):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    pixels = b"".join(b"\0" + bytes(part for colour in line for part in colour) for line in lines)
    header = struct.pack(">IIBBBBB", len(lines[0]), len(lines), 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(pixels, 9))
            + chunk(b"IEND", b""))


def main():
    parser = argparse.ArgumentParser(description="Shows the images of an icon file enlarged.")
    parser.add_argument("icon", type=pathlib.Path, metavar="FILE.ico")
    parser.add_argument("picture", type=pathlib.Path, metavar="FILE.png")
    arguments = parser.parse_args()
    images = read_images(arguments.icon.read_bytes())
    light, dark = panel(images, LIGHT), panel(images, DARK)
    arguments.picture.write_bytes(png([a + b for a, b in zip(light, dark)]))


if __name__ == "__main__":
    main()
