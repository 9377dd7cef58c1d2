#!/usr/bin/python3
"""Compares a few pictures of the gallery with the stored ones.

    compare.py [--accept] GALLERY BUNDLE OUT [PICTURE]...

Draws the pictures that stand under References/, or those of them that are named, with fonts
that are the same everywhere. A picture that differs is written into OUT three times side by
side: as it was, as it is, and where the two differ. With --accept the new ones are stored
instead. The last line says "N passed, N failed"; the exit status is 1 when a picture
differs, and 77 when the fonts are not installed and nothing can be compared.
"""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

from PIL import Image, ImageChops

HERE = Path(__file__).resolve().parent
REFERENCES = HERE / "References"
FONT_FOLDER = Path("/usr/share/fonts/truetype/noto")
FONTS = ["NotoSans-Regular.ttf", "NotoSans-SemiBold.ttf", "NotoSansArabic-Regular.ttf",
         "NotoSansArabic-SemiBold.ttf", "NotoSansHebrew-Regular.ttf", "NotoSansHebrew-SemiBold.ttf"]
SKIPPED = 77

# Another release of the libraries that draw letters shades their edges a little differently. A letter that
# moved by a pixel changes more than this.
MOST_SHADING = 48
MOST_PIXELS = 12
# A ground, a hairline or the letters of a text, and what their colour may differ by.
LARGE = 150
ALMOST = 3

GROUND = (207, 213, 226)

FONT_CONFIGURATION = """<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "fonts.dtd">
<fontconfig>
{folder}
  <cachedir>{cache}</cachedir>
  <alias><family>sans-serif</family><prefer><family>Noto Sans</family></prefer></alias>
  <match target="pattern"><edit name="family" mode="append_last"><string>Noto Sans</string></edit></match>
  <match target="font">
    <edit name="antialias" mode="assign"><bool>true</bool></edit>
    <edit name="hinting" mode="assign"><bool>true</bool></edit>
    <edit name="hintstyle" mode="assign"><const>hintslight</const></edit>
    <edit name="rgba" mode="assign"><const>none</const></edit>
  </match>
</fontconfig>
"""


def draw(gallery, bundle, names, folder):
    """Draws the pictures into a folder."""
    fonts = Path(folder, "fonts")
    fonts.mkdir()
    for font in FONTS:
        (fonts / font).symlink_to(FONT_FOLDER / font)
    configuration = Path(folder, "fonts.conf")
    configuration.write_text(FONT_CONFIGURATION.format(folder=f"  <dir>{fonts}</dir>", cache=Path(folder, "cache")))
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith(("QT_", "LC_", "LANG", "FONTCONFIG", "DISPLAY", "WAYLAND"))}
    environment.update(FONTCONFIG_FILE=str(configuration), LC_ALL="C.UTF-8", XDG_RUNTIME_DIR=folder, HOME=folder,
                       XDG_CURRENT_DESKTOP="")
    only = [argument for name in names for argument in ("--only", name)]
    subprocess.run([gallery, *only, bundle, str(Path(folder, "gallery"))], env=environment, check=True,
                   stdout=subprocess.DEVNULL)
    return Path(folder, "gallery")


def on_ground(path):
    """The picture on a plain ground, so that its transparent corners are compared too."""
    picture = Image.open(path).convert("RGBA")
    ground = Image.new("RGBA", picture.size, (*GROUND, 255))
    return Image.alpha_composite(ground, picture).convert("RGB")


def difference(old, new):
    """What differs, as black on white, and in how many pixels; None when the sizes differ."""
    if old.size != new.size:
        return None, 0
    red, green, blue = ImageChops.difference(old, new).split()
    most = ImageChops.lighter(ImageChops.lighter(red, green), blue)
    mask = most.point(lambda value: 255 if value > MOST_SHADING else 0)
    return ImageChops.invert(mask), mask.histogram()[255]


def amount(picture, color):
    return sum(pixels for pixels, other in picture.getcolors(picture.width * picture.height)
               if max(abs(one - two) for one, two in zip(color, other)) <= ALMOST)


def lost_colors(old, new):
    """The colours of large parts of the old picture, of which the new one has less than half."""
    return [color for pixels, color in old.getcolors(old.width * old.height)
            if pixels >= LARGE and amount(new, color) < pixels / 2]


def side_by_side(old, new, mask):
    """Old, new, and the difference."""
    pictures = [old, new] if mask is None else [old, new, mask.convert("RGB")]
    gap = 16
    sheet = Image.new("RGB", (sum(picture.width + gap for picture in pictures) + gap,
                              max(picture.height for picture in pictures) + 2 * gap), GROUND)
    left = gap
    for picture in pictures:
        sheet.paste(picture, (left, gap))
        left += picture.width + gap
    return sheet


def compare(name, drawn, out):
    """One line on what is wrong with a picture, or None."""
    old, new = on_ground(REFERENCES / name), on_ground(drawn / name)
    mask, pixels = difference(old, new)
    lost = lost_colors(old, new)
    if mask is not None and pixels <= MOST_PIXELS and not lost:
        return None
    sheet = out / name
    sheet.parent.mkdir(parents=True, exist_ok=True)
    side_by_side(old, new, mask).save(sheet)
    what = (f"{pixels} pixels differ" + (f", these colours are gone: {lost}" if lost else "") if mask is not None
            else f"it is {new.width} x {new.height}, was {old.width} x {old.height}")
    return f"{what}: see {sheet}; if it is as it should be: Scripts/accept-pictures {name}"


def main():
    parser = argparse.ArgumentParser(description="Compares pictures of notices with the stored ones.")
    parser.add_argument("--accept", action="store_true", help="store the pictures as they are now")
    parser.add_argument("gallery")
    parser.add_argument("bundle")
    parser.add_argument("out", type=Path)
    parser.add_argument("pictures", nargs="*", metavar="PICTURE", help="by its path, as in languages/en-casb.png")
    arguments = parser.parse_args()

    missing = [font for font in FONTS if not (FONT_FOLDER / font).exists()]
    if missing:
        print("skipped: these fonts of the packages fonts-noto-core and fonts-noto-extra are missing:",
              " ".join(missing))
        return SKIPPED
    names = arguments.pictures or sorted(str(path.relative_to(REFERENCES)) for path in REFERENCES.glob("*/*.png"))
    if not names:
        sys.exit(f"there are no pictures in {REFERENCES}")
    failed = 0
    with tempfile.TemporaryDirectory(prefix="notice-pictures-") as folder:
        drawn = draw(arguments.gallery, arguments.bundle, names, folder)
        for name in names:
            if arguments.accept:
                target = REFERENCES / name
                target.parent.mkdir(parents=True, exist_ok=True)
                Image.open(drawn / name).save(target, optimize=True)
                print(f"accepted: {name}")
                continue
            fault = compare(name, drawn, arguments.out)
            failed += fault is not None
            print(f"failed: {name}: {fault}" if fault else f"passed: {name}")
    if not arguments.accept:
        print(f"{len(names) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
