#!/usr/bin/env python3
"""Draws the overlay icon of the shell extension: dll/sndxdll.ico, 32x32 and 16x16 pixels, 8 bits a pixel.

Explorer lays the icon over the lower left corner of a file's own icon, so the picture keeps to that
corner and the rest is transparent. A dark outline holds it on light ground, the light rim inside it on
dark ground. Transparency is one bit a pixel, so the outline has no soft edge; the few tints smooth the
inner edges only. The small picture is drawn for itself, because the large one scaled down is a smudge.

    make_icon.py [--output FILE.ico]

scripts/draw_icon.py shows what it looks like.
"""

import argparse
import pathlib
import struct

# One letter of the drawings below: red, green, blue. None is transparent.
COLOURS = {
    ".": None,
    "K": (0x0B, 0x2A, 0x5B),  # outline
    "W": (0xFF, 0xFF, 0xFF),  # rim and arrow
    "B": (0x12, 0x6B, 0xD6),  # badge
    "b": (0x7A, 0xAE, 0xEA),  # where the badge meets the rim
}

# Placed with its left edge and its bottom on those of the square.
LARGE = """
.......KKKKK.......
.....KKWWWWWKK.....
...KKWWWWWWWWWKK...
..KKWWbBBBBBbWWKK..
..KWWbBBBBBBBbWWK..
.KWWbBBBBWBBBBbWWK.
.KWWBBBBWWWBBBBWWK.
KWWbBBBWWWWWBBBbWWK
KWWBBBWWWWWWWBBBWWK
KWWBBWWWWWWWWWBBWWK
KWWBBBBBWWWBBBBBWWK
KWWbBBBBWWWBBBBbWWK
.KWWBBBBWWWBBBBWWK.
.KWWbBBBWWWBBBbWWK.
..KWWbBBWWWBBbWWK..
..KKWWbBBBBBbWWKK..
...KKWWWWWWWWWKK...
.....KKWWWWWKK.....
.......KKKKK.......
"""

# Ten pixels hold no white rim beside a legible arrow: a light edge on top does its work.
SMALL = """
...KKKK...
.KKbbbbKK.
.KbBWWBbK.
KbBWWWWBbK
KbWWWWWWbK
KBBBWWBBBK
KBBBWWBBBK
.KBBWWBBK.
.KKBBBBKK.
...KKKK...
"""

TRANSPARENT = 0
PALETTE_SIZE = 256


def place(drawing, size):
    """The drawing in the lower left corner of a square, as rows of letters from the top."""
    rows = drawing.split()
    if len(rows) > size or any(len(row) != len(rows[0]) for row in rows):
        raise ValueError("the drawing is no rectangle or does not fit")
    return ["." * size] * (size - len(rows)) + [row.ljust(size, ".") for row in rows]


def padded(row):
    """Rows of a bitmap end on a multiple of four bytes."""
    return row + bytes(-len(row) % 4)


def bitmap(picture):
    """One image of an icon file: header, palette, colours, mask; rows from the bottom."""
    size = len(picture)
    index = {letter: number for number, letter in enumerate(COLOURS)}
    assert index["."] == TRANSPARENT
    palette = b"".join(struct.pack("<BBBB", c[2], c[1], c[0], 0) for c in COLOURS.values() if c)
    # A transparent pixel has to be black besides being masked: the ground is ANDed with the mask, then
    # XORed with the pixel's colour.
    palette = (bytes(4) + palette).ljust(4 * PALETTE_SIZE, b"\0")
    colours = b"".join(padded(bytes(index[letter] for letter in row)) for row in reversed(picture))
    mask = b""
    for row in reversed(picture):
        bits = "".join("1" if letter == "." else "0" for letter in row)
        mask += padded(int(bits, 2).to_bytes(size // 8, "big"))
    # The height counts colours and mask.
    header = struct.pack("<IiiHHIIiiII", 40, size, 2 * size, 1, 8, 0, len(colours) + len(mask), 0, 0,
                         PALETTE_SIZE, 0)
    return header + palette + colours + mask


def icon_file(pictures):
    """The pictures as an .ico file."""
    images = [bitmap(picture) for picture in pictures]
    offset = 6 + 16 * len(images)
    directory = struct.pack("<HHH", 0, 1, len(images))
    for picture, image in zip(pictures, images):
        # Colour count 0 stands for 256.
        directory += struct.pack("<BBBBHHII", len(picture), len(picture), 0, 0, 1, 8, len(image), offset)
        offset += len(image)
    return directory + b"".join(images)


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "dll" / "sndxdll.ico"
    parser = argparse.ArgumentParser(description="Draws the overlay icon of the shell extension.")
    parser.add_argument("--output", type=pathlib.Path, default=default, metavar="FILE.ico")
    arguments = parser.parse_args()
    pictures = [place(LARGE, 32), place(SMALL, 16)]
    arguments.output.write_bytes(icon_file(pictures))


if __name__ == "__main__":
    main()
