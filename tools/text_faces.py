#!/usr/bin/env python3
"""Build step: the launcher's own faces for its fixed texts.

    text_faces.py <out-dir> <regular-font> <index> <bold-font> <index> <source>...

Cuts the installed faces (Noto Sans CJK SC, regular and bold) down to printable ASCII and the
characters of the sources given, and names the result "Kestravine Texts": <out-dir>/
texts-regular.otf and texts-bold.otf. Outlines, hinting and layout features stay as they are,
so every glyph draws as before; the launcher lists the family first, with the installed faces
behind it for whatever else a text holds. A face of a few hundred glyphs keeps the start-up from
reading the tables of one with tens of thousands.
"""
import pathlib
import sys

from fontTools import subset

FAMILY = "Kestravine Texts"


def main():
    out, regular, regular_index, bold, bold_index, *sources = sys.argv[1:]
    characters = {chr(c) for c in range(0x20, 0x7F)}
    for source in sources:
        characters |= {c for c in pathlib.Path(source).read_text("utf-8") if ord(c) > 0x7F}
    text = "".join(sorted(characters))
    for style, path, index in (("Regular", regular, regular_index), ("Bold", bold, bold_index)):
        options = subset.Options()
        options.font_number = int(index)
        options.name_IDs = ["*"]
        options.name_languages = ["*"]
        options.layout_features = ["*"]
        options.notdef_outline = True
        font = subset.load_font(path, options)
        subsetter = subset.Subsetter(options)
        subsetter.populate(text=text)
        subsetter.subset(font)
        for record in font["name"].names:
            if record.nameID in (1, 16):
                record.string = FAMILY
            elif record.nameID in (2, 17):
                record.string = style
            elif record.nameID == 4:
                record.string = f"{FAMILY} {style}"
            elif record.nameID == 6:
                record.string = f"KestravineTexts-{style}"
        subset.save_font(font, f"{out}/texts-{style.lower()}.otf", options)


if __name__ == "__main__":
    main()
