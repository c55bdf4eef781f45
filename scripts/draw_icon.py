#!/usr/bin/python3
"""Shows the icon of the shell extension as it meets the eye: every image of the file enlarged and in its true
size, alone and over a document, on light and on dark ground.

    draw_icon.py FILE.ico FILE.png
"""

import argparse

from PIL import Image, ImageDraw

LIGHT, DARK = "#ffffff", "#202020"
SCALE = 8
GAP = 3 * SCALE  # between pictures


def document(size):
    """A plain page, as a stand-in for a file's own icon."""
    left, top, right, bottom = size * 5 // 32, size // 16, size - size * 5 // 32, size - size // 16
    page = Image.new("RGBA", (size, size))
    draw = ImageDraw.Draw(page)
    draw.rectangle((left, top, right - 1, bottom - 1), fill="#fafafa", outline="#808080")
    for y in range(top + 3, bottom - 1, 4):
        draw.line((left + 3, y, right - 4, y), fill="#b8c4d0")
    return page


def shown(icon, ground):
    """The images of an icon below each other, each in four pictures that stand on one line."""
    panel, top = Image.new("RGB", (4000, 4000), ground), GAP
    width = 0
    for size in sorted(icon.ico.sizes(), reverse=True):
        image = icon.ico.getimage(size).convert("RGBA")
        whole = Image.alpha_composite(document(image.width), image)
        large = [picture.resize((picture.width * SCALE,) * 2, Image.NEAREST) for picture in (image, whole)]
        left, bottom = GAP, top + large[0].height
        for picture in (*large, image, whole):
            panel.paste(picture, (left, bottom - picture.height), picture)
            left += picture.width + GAP
        top, width = bottom + GAP, max(width, left)
    return panel.crop((0, 0, width, top))


def main():
    parser = argparse.ArgumentParser(description="Shows the images of an icon file enlarged.")
    parser.add_argument("icon", metavar="FILE.ico")
    parser.add_argument("picture", metavar="FILE.png")
    arguments = parser.parse_args()
    with Image.open(arguments.icon) as icon:
        light, dark = shown(icon, LIGHT), shown(icon, DARK)
    both = Image.new("RGB", (light.width + dark.width, light.height))
    both.paste(light, (0, 0))
    both.paste(dark, (light.width, 0))
    both.save(arguments.picture, optimize=True)


if __name__ == "__main__":
    main()
