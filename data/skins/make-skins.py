#!/usr/bin/python3
"""Makes the skins that ship with the player.

Every skin is drawn from one layout description per screen size: the same
rectangles give the SVG drawings of the four screen bitmaps (stopped, stopped
with every button pressed, playing, playing with every button pressed) and the
coordinates written into the skin's INI file, so the two can never disagree.
The drawings are rendered to PNG with rsvg-convert.

    make-skins.py --out DIR/Skins [--stamp FILE]
"""

import argparse
import os
import subprocess
import sys
from dataclasses import dataclass

# Largest first: the player takes the first size, in file order, that fits the
# screen, so a big screen gets the big layout and a landscape screen the
# landscape one before a smaller portrait one.
RESOLUTIONS = [(720, 1440), (480, 800), (800, 480), (480, 640), (240, 320)]

FONT = "DejaVu Sans"

# The command each button sends, in the order the player reads them.
BUTTONS = [
    "Jump Back Button",
    "Rewind Button",
    "Play Button",
    "FastForward Button",
    "List Program Button",
    "Previous Section Button",
    "Next Section Button",
    "Logo Button",
    "Volume Down Button",
    "Volume Up Button",
]

LABELS = {
    "Jump Back Button": "Back",
    "Rewind Button": "Rewind",
    "Play Button": "Play",
    "FastForward Button": "Forward",
    "List Program Button": "Library",
    "Previous Section Button": "Prev. sec.",
    "Next Section Button": "Next sec.",
    "Logo Button": "About",
    "Volume Down Button": "Quieter",
    "Volume Up Button": "Louder",
}


@dataclass
class Style:
    file: str            # INI file name and bitmap folder
    name: str            # display name
    background: str
    panel: str
    panel_border: str
    button: str
    button_border: str
    icon: str
    hot_button: str
    hot_icon: str
    accent: str          # the play button
    accent_icon: str
    title_text: str
    time_text: str
    total_text: str
    volume_bar: str
    big: bool = False    # large buttons with labels, no cover picture
    corner: float = 0.18


STYLES = [
    Style("daylight", "Daylight", "#f4efe6", "#fffdf8", "#d6cbb8", "#e7dfd1", "#c9bda8", "#3b3631",
          "#a8987e", "#000000", "#c8553d", "#ffffff", "#2b2622", "#1e1a17", "#5a5047", "#c8553d"),
    Style("night", "Night Contrast", "#000000", "#0d0d0d", "#ffd400", "#141414", "#ffd400", "#ffd400",
          "#ffd400", "#000000", "#ffd400", "#000000", "#ffffff", "#ffd400", "#ffffff", "#ffd400",
          corner=0.12),
    Style("largebuttons", "Big Buttons", "#0b3c5d", "#0f4a72", "#7fb3d5", "#ffffff", "#ffffff", "#0b3c5d",
          "#f2b134", "#000000", "#f2b134", "#0b3c5d", "#ffffff", "#ffffff", "#d6eaf8", "#f2b134",
          big=True, corner=0.14),
]


class Rect:
    def __init__(self, left, top, right, bottom):
        self.left, self.top, self.right, self.bottom = (int(round(v)) for v in (left, top, right, bottom))

    @property
    def width(self):
        return self.right - self.left

    @property
    def height(self):
        return self.bottom - self.top

    @property
    def cx(self):
        return (self.left + self.right) / 2

    @property
    def cy(self):
        return (self.top + self.bottom) / 2


def row(left, top, right, bottom, count, gap):
    """count equal rectangles side by side."""
    width = (right - left - gap * (count - 1)) / count
    return [Rect(left + i * (width + gap), top, left + i * (width + gap) + width, bottom) for i in range(count)]


def layout(style, width, height):
    """Every rectangle of one screen size, in pixels."""
    landscape = width > height
    u = (height if landscape else width) / 240.0  # pixels per layout unit
    pad = 6 * u
    gap = 6 * u
    L = {}
    if landscape:
        split = width * 0.5
        info_right = split - gap / 2
        buttons_left = split + gap / 2
        buttons_top, buttons_bottom = pad, height - pad
        info_top = pad
    else:
        info_right = width - pad
        buttons_left = pad
        button_share = 0.62 if style.big else 0.5
        buttons_top = height - pad - (height - 2 * pad) * button_share
        buttons_bottom = height - pad
        info_top = pad

    # Title, then the section line with the partial-content mark at its right.
    title_h = (46 if style.big else 40) * u
    L["Program Title Window"] = Rect(pad, info_top, info_right, info_top + title_h)
    sec_top = info_top + title_h + 2 * u
    sec_h = 16 * u
    L["Section Window"] = Rect(pad, sec_top, info_right - 40 * u, sec_top + sec_h)
    L["Partial Content Window"] = Rect(info_right - 36 * u, sec_top, info_right, sec_top + sec_h)
    area_top = sec_top + sec_h + 4 * u
    area_bottom = buttons_top - gap if not landscape else height - pad
    time_h = (60 if style.big else 52) * u

    if style.big:
        # No cover: the time takes the whole width, as large as it can be.
        L["Elapsed Time Window"] = Rect(pad, area_top, info_right, area_bottom)
        L["Book Cover"] = Rect(pad, area_top, pad, area_top)
    elif not landscape and (area_bottom - area_top) < time_h + 100 * u:
        # Compact: the cover beside the time.
        side = area_bottom - area_top
        L["Book Cover"] = Rect(pad, area_top, pad + side, area_bottom)
        L["Elapsed Time Window"] = Rect(pad + side + gap, area_top, info_right, area_bottom)
    else:
        # Tall: the cover centred on its own, the time below it.
        cover_bottom = area_bottom - time_h - gap
        side = min(cover_bottom - area_top, info_right - pad)
        left = (pad + info_right - side) / 2
        L["Book Cover"] = Rect(left, area_top, left + side, area_top + side)
        L["Elapsed Time Window"] = Rect(pad, area_bottom - time_h, info_right, area_bottom)
    e = L["Elapsed Time Window"]
    L["Current Time"] = Rect(e.left + 4 * u, e.top + 2 * u, e.right - 4 * u, e.top + e.height * 0.62)
    L["Total Time"] = Rect(e.left + 4 * u, e.top + e.height * 0.62, e.right - 4 * u, e.bottom - 2 * u)

    # Three rows of buttons: transport, sections and jump back, the rest.
    rows_h = buttons_bottom - buttons_top
    r1_h = rows_h * 0.4
    r_h = (rows_h - r1_h - 2 * gap) / 2
    r1 = (buttons_top, buttons_top + r1_h)
    r2 = (r1[1] + gap, r1[1] + gap + r_h)
    r3 = (r2[1] + gap, buttons_bottom)
    right = width - pad
    rew, play, ff = row(buttons_left, r1[0], right, r1[1], 3, gap)
    # The play button is round: a square centred in its cell.
    side = min(play.width, play.height)
    play = Rect(play.cx - side / 2, play.cy - side / 2, play.cx + side / 2, play.cy + side / 2)
    prev, jump, nxt = row(buttons_left, r2[0], right, r2[1], 3, gap)
    lst, vdown, vup, logo = row(buttons_left, r3[0], right, r3[1], 4, gap)
    for name, rect in zip(BUTTONS, [jump, rew, play, ff, lst, prev, nxt, logo, vdown, vup]):
        L[name] = rect
    sizes = {
        "title": 15 * u,
        # As tall as the area allows, but "00:00:00" must fit its width.
        "time": min((e.height * 0.62 - 4 * u) * 0.8, (e.width - 8 * u) / 5.3),
        "total": (13 if style.big else 11) * u,
        "volume": (16 if style.big else 12) * u,
        "label": (11 if style.big else 8) * u,
        "tick": 5 * u,
    }
    return L, sizes


# --- drawing -----------------------------------------------------------------

def icon(name, r, colour, playing):
    """SVG of a button's symbol, centred in its rectangle."""
    s = min(r.width, r.height) * 0.42
    cx, cy = r.cx, r.cy

    def tri(x0, direction, size):
        # A triangle pointing right (direction 1) or left (-1) with its base at x0.
        return (f'<polygon points="{x0},{cy - size / 2} {x0},{cy + size / 2} '
                f'{x0 + direction * size * 0.85},{cy}" fill="{colour}"/>')

    def bar(x, size):
        return f'<rect x="{x}" y="{cy - size / 2}" width="{size * 0.16}" height="{size}" fill="{colour}"/>'

    if name == "Play Button":
        if playing:
            a = s * 0.7
            return f'<rect x="{cx - a / 2}" y="{cy - a / 2}" width="{a}" height="{a}" rx="{a * 0.08}" fill="{colour}"/>'
        return tri(cx - s * 0.32, 1, s)
    if name == "FastForward Button":
        return tri(cx - s * 0.7, 1, s * 0.8) + tri(cx, 1, s * 0.8)
    if name == "Rewind Button":
        return tri(cx + s * 0.7, -1, s * 0.8) + tri(cx, -1, s * 0.8)
    if name == "Next Section Button":
        return tri(cx - s * 0.45, 1, s * 0.8) + bar(cx + s * 0.25, s * 0.8)
    if name == "Previous Section Button":
        return bar(cx - s * 0.38, s * 0.8) + tri(cx + s * 0.45, -1, s * 0.8)
    if name == "Jump Back Button":
        rad = s * 0.42
        w = s * 0.13
        # Three quarters of a circle, then an arrow head pointing back.
        return (f'<path d="M {cx + rad} {cy} A {rad} {rad} 0 1 1 {cx} {cy - rad}" fill="none" '
                f'stroke="{colour}" stroke-width="{w}" stroke-linecap="round"/>'
                f'<polygon points="{cx - w * 0.2},{cy - rad - w * 2} {cx - w * 0.2},{cy - rad + w * 2} '
                f'{cx - w * 2.6},{cy - rad}" fill="{colour}"/>')
    if name == "List Program Button":
        out = []
        for i in (-1, 0, 1):
            y = cy + i * s * 0.32
            out.append(f'<circle cx="{cx - s * 0.42}" cy="{y}" r="{s * 0.07}" fill="{colour}"/>')
            out.append(f'<rect x="{cx - s * 0.28}" y="{y - s * 0.06}" width="{s * 0.72}" height="{s * 0.12}" '
                       f'rx="{s * 0.04}" fill="{colour}"/>')
        return "".join(out)
    if name in ("Volume Down Button", "Volume Up Button"):
        k = s * 0.9
        x0 = cx - k * 0.55
        speaker = (f'<polygon points="{x0},{cy - k * 0.15} {x0 + k * 0.2},{cy - k * 0.15} {x0 + k * 0.45},{cy - k * 0.38} '
                   f'{x0 + k * 0.45},{cy + k * 0.38} {x0 + k * 0.2},{cy + k * 0.15} {x0},{cy + k * 0.15}" fill="{colour}"/>')
        t = k * 0.1
        sx = cx + k * 0.32
        sign = f'<rect x="{sx - k * 0.2}" y="{cy - t / 2}" width="{k * 0.4}" height="{t}" fill="{colour}"/>'
        if name == "Volume Up Button":
            sign += f'<rect x="{sx - t / 2}" y="{cy - k * 0.2}" width="{t}" height="{k * 0.4}" fill="{colour}"/>'
        return speaker + sign
    if name == "Logo Button":
        size = min(r.height * 0.32, r.width * 0.2)
        return (f'<text x="{cx}" y="{cy + size * 0.35}" font-family="{FONT}" font-weight="bold" '
                f'font-size="{size}" fill="{colour}" text-anchor="middle">Talvo</text>')
    raise ValueError(name)


def button_svg(style, name, r, pressed, playing, label_size):
    round_button = name == "Play Button"
    if round_button:
        fill = style.hot_button if pressed else style.accent
        colour = style.hot_icon if pressed else style.accent_icon
    else:
        fill = style.hot_button if pressed else style.button
        colour = style.hot_icon if pressed else style.icon
    border = max(1.0, min(r.width, r.height) * 0.03)
    # A pressed button sits lower: its shadow is gone and it moves down a little.
    shift = border if pressed else 0
    out = []
    if round_button:
        rad = r.width / 2 - border
        if not pressed:
            out.append(f'<circle cx="{r.cx}" cy="{r.cy + border}" r="{rad}" fill="#000" fill-opacity="0.25"/>')
        out.append(f'<circle cx="{r.cx}" cy="{r.cy + shift}" r="{rad}" fill="{fill}" '
                   f'stroke="{style.button_border}" stroke-width="{border}"/>')
    else:
        rx = min(r.width, r.height) * style.corner
        inset = border / 2
        if not pressed:
            out.append(f'<rect x="{r.left + inset}" y="{r.top + inset + border}" width="{r.width - border}" '
                       f'height="{r.height - border * 2}" rx="{rx}" fill="#000" fill-opacity="0.2"/>')
        out.append(f'<rect x="{r.left + inset}" y="{r.top + inset + shift}" width="{r.width - border}" '
                   f'height="{r.height - border * 2}" rx="{rx}" fill="{fill}" stroke="{style.button_border}" '
                   f'stroke-width="{border}"/>')
    inner = Rect(r.left, r.top + shift, r.right, r.bottom + shift - border)
    if style.big and name != "Logo Button":
        # Room for the word under the symbol.
        text_h = label_size * 1.2
        symbol = Rect(inner.left, inner.top, inner.right, inner.bottom - text_h)
        out.append(icon(name, symbol, colour, playing))
        word = "Stop" if (name == "Play Button" and playing) else LABELS[name]
        # Narrow buttons get a smaller word rather than one that runs over the edge.
        label_size = min(label_size, inner.width * 0.9 / (0.62 * len(word)))
        out.append(f'<text x="{inner.cx}" y="{inner.bottom - label_size * 0.45}" font-family="{FONT}" '
                   f'font-weight="bold" font-size="{label_size}" fill="{colour}" text-anchor="middle">{word}</text>')
    else:
        out.append(icon(name, inner, colour, playing))
    return "".join(out)


def screen_svg(style, width, height, L, sizes, pressed, playing):
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
           f'viewBox="0 0 {width} {height}">',
           f'<rect width="{width}" height="{height}" fill="{style.background}"/>']
    u = min(width, height) / 240.0
    for name in ("Program Title Window", "Elapsed Time Window"):
        r = L[name]
        out.append(f'<rect x="{r.left}" y="{r.top}" width="{r.width}" height="{r.height}" rx="{4 * u}" '
                   f'fill="{style.panel}" stroke="{style.panel_border}" stroke-width="{max(1, u)}"/>')
    cover = L["Book Cover"]
    if cover.width > 0:
        # What shows where a program has no cover picture.
        out.append(f'<rect x="{cover.left}" y="{cover.top}" width="{cover.width}" height="{cover.height}" '
                   f'rx="{3 * u}" fill="{style.panel}" stroke="{style.panel_border}" stroke-width="{max(1, u)}"/>')
        b = cover.width * 0.22
        out.append(f'<path d="M {cover.cx - b} {cover.cy - b * 1.2} h {b * 2} v {b * 2.4} h {-b * 2} z '
                   f'M {cover.cx - b * 0.7} {cover.cy - b * 1.2} v {b * 2.4}" fill="none" '
                   f'stroke="{style.panel_border}" stroke-width="{max(1, u * 1.5)}"/>')
    for name in BUTTONS:
        out.append(button_svg(style, name, L[name], pressed, playing, sizes["label"]))
    out.append("</svg>")
    return "\n".join(out)


# --- the INI file ------------------------------------------------------------

def colour_ref(hex_colour):
    """#rrggbb as the skin's colour number, red in the lowest byte."""
    r, g, b = (int(hex_colour[i:i + 2], 16) for i in (1, 3, 5))
    return f"0x{b:02X}{g:02X}{r:02X}"


def rect_keys(r):
    return [("Left", r.left), ("Top", r.top), ("Right", r.right), ("Bottom", r.bottom)]


def ini_sections(style, width, height, L, sizes):
    suffix = f"{width}X{height}"
    sections = []
    for name in BUTTONS:
        keys = rect_keys(L[name])
        if name == "Play Button":
            keys.append(("Round", 1))
        sections.append((name + suffix, keys))
    panel = colour_ref(style.panel)
    sections += [
        ("Elapsed Time Window" + suffix, rect_keys(L["Elapsed Time Window"]) +
         [("Elapsed Time Background Color", panel)]),
        ("Program Title Window" + suffix, rect_keys(L["Program Title Window"]) +
         [("Program Title Background Color", panel)]),
        ("Section Window" + suffix, rect_keys(L["Section Window"]) +
         [("Program Title Background Color", colour_ref(style.background))]),
        ("Partial Content Window" + suffix, rect_keys(L["Partial Content Window"]) +
         [("Program Title Background Color", colour_ref(style.background))]),
        ("Current Time" + suffix, rect_keys(L["Current Time"]) +
         [("Elapsed Total Time Text Color", colour_ref(style.time_text)),
          ("Elapsed Time Background Color", panel)]),
        ("Total Time" + suffix, rect_keys(L["Total Time"]) +
         [("Elapsed Total Time Text Color", colour_ref(style.total_text)),
          ("Program Title Background Color", panel)]),
        ("Elapsed Time Font" + suffix, [("Size", int(sizes["time"])), ("Weight", 700), ("Name", FONT),
                                        ("Elapsed Time Text Color", colour_ref(style.time_text))]),
        ("Elapsed Total Time Font" + suffix, [("Size", int(sizes["total"])), ("Weight", 400), ("Name", FONT),
                                              ("Elapsed Total Time Text Color", colour_ref(style.total_text))]),
        # In this section the "background" colour key gives the title's text colour.
        ("Program Title Font" + suffix, [("Size", int(sizes["title"])), ("Name", FONT),
                                         ("Program Title Background Color", colour_ref(style.title_text))]),
        ("Book Cover" + suffix, rect_keys(L["Book Cover"]) + [("Display", 0 if style.big else 1)]),
        ("Volume" + suffix, [("Vertical Color", colour_ref(style.volume_bar)),
                             ("Vertical Position", L["Elapsed Time Window"].bottom - int(4 * min(width, height) / 240)),
                             ("Tick Height", int(sizes["tick"])),
                             ("Size", int(sizes["volume"])), ("Weight", 800), ("Name", FONT)]),
    ]
    return sections


def write_ini(path, style, per_size):
    lines = ["; TalvoPlayer skin, made by make-skins.py from one layout per screen size.", "[Skin]",
             f"Name={style.name}"]
    for (width, height), _ in per_size:
        suffix = f"{width}X{height}"
        for key, state in (("Background", "background"), ("Hot", "hot"), ("Play Background", "play"),
                           ("Play Hot", "play-hot")):
            lines.append(f"{key}{suffix}={style.file}/{suffix}-{state}.png")
    for _, sections in per_size:
        for name, keys in sections:
            lines.append("")
            lines.append(f"[{name}]")
            lines += [f"{k}={v}" for k, v in keys]
    # Lines end with a carriage return: the player's reader ends a line only there.
    with open(path, "w", encoding="ascii", newline="") as f:
        f.write("".join(line + "\r\n" for line in lines))


def render(svg, png, width, height):
    subprocess.run(["rsvg-convert", "--width", str(width), "--height", str(height), "-o", png],
                   input=svg.encode("utf-8"), check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", required=True, help="the Skins folder to fill")
    parser.add_argument("--stamp", help="file to touch when done")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    made = []
    for style in STYLES:
        os.makedirs(os.path.join(args.out, style.file), exist_ok=True)
        per_size = []
        for width, height in RESOLUTIONS:
            L, sizes = layout(style, width, height)
            suffix = f"{width}X{height}"
            for state, pressed, playing in (("background", False, False), ("hot", True, False),
                                            ("play", False, True), ("play-hot", True, True)):
                png = os.path.join(args.out, style.file, f"{suffix}-{state}.png")
                render(screen_svg(style, width, height, L, sizes, pressed, playing), png, width, height)
                made.append(png)
            per_size.append(((width, height), ini_sections(style, width, height, L, sizes)))
        ini = os.path.join(args.out, style.file + ".ini")
        write_ini(ini, style, per_size)
        made.append(ini)
    if args.stamp:
        with open(args.stamp, "w") as f:
            f.write("\n".join(made) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
