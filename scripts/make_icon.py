#!/usr/bin/python3
"""Draws the overlay icon of the shell extension: dll/sndxdll.ico, 32x32 and 16x16 pixels, 8 bits a pixel.

Explorer lays the icon over the lower left corner of a file's own icon, so the picture keeps to that
corner and the rest is transparent. A dark outline holds it on light ground, the light rim inside it on
dark ground. Transparency is one bit a pixel, so the outline has no soft edge; the few tints smooth the
inner edges only. The small picture is drawn for itself, because the large one scaled down is a smudge.

    make_icon.py [--output FILE.ico]

scripts/draw_icon.py shows what it looks like. Both need Pillow (Debian: python3-pil), which writes no icons of
8 bits with a mask: only the container is made by hand here.
"""

import argparse
import pathlib
import struct

from PIL import Image

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

def drawn(drawing, size):
    """The drawing in the lower left corner of a square; its colours are the places of the letters in COLOURS."""
    rows = drawing.split()
    letters = list(COLOURS)
    pixels = bytes(letters.index(letter) for letter in "".join(rows))
    square = Image.new("P", (size, size))
    square.putpalette([part for colour in COLOURS.values() for part in colour or (0, 0, 0)])
    square.paste(Image.frombytes("P", (len(rows[0]), len(rows)), pixels), (0, size - len(rows)))
    return square


def bitmap(picture):
    """One image of an icon file: header, palette, colours, mask; rows from the bottom, of whole words."""
    size = picture.width
    # A transparent pixel has to be black besides being masked: the ground is ANDed with the mask, then
    # XORed with the pixel's colour.
    palette = bytes(picture.getpalette("BGRX")).ljust(4 * 256, b"\0")
    colours = picture.tobytes("raw", "P", size, -1)
    mask = picture.point([255] + [0] * 255, "1").tobytes("raw", "1", 4, -1)
    # The height counts colours and mask.
    header = struct.pack("<IiiHHIIiiII", 40, size, 2 * size, 1, 8, 0, len(colours) + len(mask), 0, 0, 256, 0)
    return header + palette + colours + mask


def icon_file(pictures):
    """The pictures as an .ico file."""
    images = [bitmap(picture) for picture in pictures]
    offset = 6 + 16 * len(images)
    directory = struct.pack("<HHH", 0, 1, len(images))
    for picture, image in zip(pictures, images):
        # Colour count 0 stands for 256.
        directory += struct.pack("<BBBBHHII", picture.width, picture.height, 0, 0, 1, 8, len(image), offset)
        offset += len(image)
    return directory + b"".join(images)


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "dll" / "sndxdll.ico"
    parser = argparse.ArgumentParser(description="Draws the overlay icon of the shell extension.")
    parser.add_argument("--output", type=pathlib.Path, default=default, metavar="FILE.ico")
    arguments = parser.parse_args()
    pictures = [drawn(LARGE, 32), drawn(SMALL, 16)]
    arguments.output.write_bytes(icon_file(pictures))


if __name__ == "__main__":
    main()
