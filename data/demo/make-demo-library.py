#!/usr/bin/python3
"""Builds the demo library: a few short spoken programs of every file type.

Speech comes from espeak-ng, covers from ImageMagick (or, without it, plain PNGs
drawn here), and zqxpack packs them into OUT/Author/Title/Title.zq(x).  Run by
the build (target demo_library); takes a few seconds.

usage: make-demo-library.py --zqxpack PATH --out DIR [--stamp FILE]
"""
import argparse
import concurrent.futures
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

# Each program: author, title, file type, voice, its sections (title, text) and
# optional extras.  Kept short: the whole library is about three minutes of speech.
PROGRAMS = [
    dict(author="Ada Lindqvist", title="Morning Notes", type=1, voice="en-gb",
         narrator="Ada Lindqvist", provider="Talvo Demo Press",
         description="Three short notes for the start of a day, read slowly.",
         cover=("#2f6f8f", "#f2d16b"),
         sections=[
             ("Waking", "Good morning. The kettle is on, the window is open, and the street is still quiet. "
                        "This is the first note, about waking up without hurry."),
             ("Walking", "The second note is about walking. Ten minutes outside before work changes the whole day. "
                         "Count the trees you pass, and notice one you never saw before."),
             ("Planning", "The third note is about planning. Write down three things, only three, "
                          "and let the rest of the list wait until tomorrow."),
         ]),
    dict(author="Bram Okafor", title="The Lighthouse Keeper", type=2, voice="en-us",
         narrator="Bram Okafor", provider="Talvo Demo Press",
         description="A short story in three chapters about a keeper and a storm.",
         cover=("#1d3557", "#e63946"), jpeg=True,
         sections=[
             ("Chapter One", "Chapter one. The keeper climbed the hundred and twelve steps every evening, "
                             "lit the lamp, and wrote the weather in a small green book."),
             ("Chapter Two", "Chapter two. One night the wind turned north, and the sea rose over the rocks. "
                             "A small boat was trying to reach the harbour."),
             ("Chapter Three", "Chapter three. The keeper turned the lamp by hand until morning, "
                               "and the boat came home. He wrote one word in the book: calm."),
         ]),
    dict(author="Clara Mendes", title="Garden Stories", type=3, voice="en-gb-x-rp", rate=24000,
         narrator="Clara Mendes", provider="Green Shelf Audio",
         description="Small stories from a city garden, with a new picture for each season.",
         cover=("#386641", "#f2e8cf"), second_picture=("#bc4749", "#f2e8cf"),
         sections=[
             ("Spring", "In spring the garden is mostly mud and promises. The first green shoots are the onions, "
                        "always in a hurry."),
             ("Summer", "In summer the tomatoes take over everything. The neighbours get bags of them, "
                        "whether they want them or not."),
             ("Autumn", "In autumn the leaves come down and the soil gets its blanket. "
                        "Next year starts now, quietly, under the leaves."),
         ]),
    dict(author="Daily Wire Service", title="Evening News", type=4, voice="en-us",
         provider="Daily Wire Service", description="Yesterday's evening bulletin, in three items.",
         cover=("#222222", "#ffb703"),
         sections=[
             ("Headlines", "Good evening. Here are the headlines. The city council opened the new bridge, "
                           "and the weather stays mild for the rest of the week."),
             ("The Bridge", "The new bridge carries cyclists and walkers only. "
                            "Four thousand people crossed it on the first day."),
             ("Weather", "Tomorrow will be cloudy in the morning and bright in the afternoon, "
                         "with a light wind from the west."),
         ]),
    dict(author="Ada Lindqvist", title="Quiet Hours", type=5, voice="en-gb", rate=16000,
         narrator="Ada Lindqvist", description="Two readings for the evening, in plain uncompressed audio.",
         cover=("#5e548e", "#e0b1cb"),
         sections=[
             ("First Reading", "The first reading is about the hour after dinner, when the dishes are done "
                               "and nobody needs anything from you."),
             ("Second Reading", "The second reading is about sleep, which comes when you stop waiting for it."),
         ]),
]

# One program in two files, each holding a part of it (a time span).
LONG_PROGRAM = dict(
    author="Bram Okafor", title="The Long Voyage", type=1, voice="en-us", narrator="Bram Okafor",
    provider="Talvo Demo Press", description="A voyage told in four legs, delivered in two parts.",
    cover=("#003049", "#fcbf49"),
    sections=[
        ("Leaving Port", "The ship left port at dawn, with forty crates of oranges and one passenger."),
        ("Open Sea", "For six days there was nothing but water, and the passenger learned every sailor's name."),
        ("The Island", "On the seventh day they saw an island that was on none of the captain's maps."),
        ("Home Again", "They never landed there. The ship came home a week later, and the oranges were sold."),
    ])

COVER_SIZE = 240


def png_bytes(size, top, bottom):
    """A vertical gradient as PNG, for machines without ImageMagick."""
    def rgb(h):
        return tuple(int(h[i:i + 2], 16) for i in (1, 3, 5))
    a, b = rgb(top), rgb(bottom)
    rows = []
    for y in range(size):
        t = y / (size - 1)
        px = bytes(int(a[c] + (b[c] - a[c]) * t) for c in range(3))
        rows.append(b"\0" + px * size)
    raw = zlib.compress(b"".join(rows), 9)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", raw) + chunk(b"IEND", b""))


def make_cover(path, title, colours):
    # ImageMagick's own binary; the name alone may find a wrapper that does not take these options.
    convert = "/usr/bin/convert" if os.access("/usr/bin/convert", os.X_OK) else shutil.which("convert")
    if convert:
        caption = title.replace("'", "")
        r = subprocess.run([convert, "-size", f"{COVER_SIZE}x{COVER_SIZE}", f"gradient:{colours[0]}-{colours[1]}",
                            "-gravity", "center", "-fill", "white", "-font", "DejaVu-Sans", "-pointsize", "22",
                            "-annotate", "+0+0", caption, path], capture_output=True)
        if r.returncode == 0 and os.path.exists(path) and os.path.getsize(path) > 0:
            return path
    if path.endswith(".jpg"):
        path = path[:-4] + ".png"
    with open(path, "wb") as f:
        f.write(png_bytes(COVER_SIZE, *colours))
    return path


def speak(work, voice, text, name):
    wav = os.path.join(work, name + ".wav")
    subprocess.run(["espeak-ng", "-v", voice, "-s", "150", "-w", wav, text], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return wav


def wav_ms(path):
    """Length of a 16-bit PCM WAV file in ms (espeak-ng writes plain RIFF files)."""
    with open(path, "rb") as f:
        data = f.read()
    rate = struct.unpack_from("<I", data, 24)[0]
    channels, bits = struct.unpack_from("<HH", data, 22)[0], struct.unpack_from("<H", data, 34)[0]
    at = 12
    while at + 8 <= len(data):
        kind, size = data[at:at + 4], struct.unpack_from("<I", data, at + 4)[0]
        if kind == b"data":
            size = min(size, len(data) - at - 8)
            return size * 1000 // (rate * channels * bits // 8)
        at += 8 + size + (size & 1)
    raise ValueError(f"{path}: no audio data")


def pack(zqxpack, program, work, out_root, part=None):
    """Speaks a program's sections and packs them; part=(n, total_ms) packs half n of two."""
    tag = f"{program['author']}-{program['title']}".replace(" ", "_")
    work = os.path.join(work, tag)
    os.makedirs(work, exist_ok=True)
    folder = os.path.join(out_root, program["author"], program["title"])
    os.makedirs(folder, exist_ok=True)
    ext = ".zqx" if program["type"] == 3 else ".zq"
    wavs = [speak(work, program["voice"], text, f"s{i}") for i, (_, text) in enumerate(program["sections"])]
    cover = make_cover(os.path.join(work, "cover.jpg" if program.get("jpeg") else "cover.png"),
                       program["title"], program["cover"])
    args = [zqxpack, "--quiet", "--type", str(program["type"]), "--title", program["title"],
            "--author", program["author"], "--description", program["description"],
            "--id", tag.lower(), "--picture", cover + "@0"]
    for key in ("narrator", "provider"):
        if program.get(key):
            args += ["--" + key, program[key]]
    if program.get("rate"):
        args += ["--rate", str(program["rate"])]
    if program.get("second_picture"):
        second = make_cover(os.path.join(work, "second.png"), program["title"], program["second_picture"])
        args += ["--picture", f"{second}@{wav_ms(wavs[0])}"]
    name = program["title"]
    if part:
        total = sum(wav_ms(w) for w in wavs)
        half = total // 2
        span = f"0:{half}" if part == 1 else f"{half}:{total}"
        args += ["--span", span]
        if part == 2:
            # The clock of the second part runs on from where the first part stopped.
            args += ["--time-offset", str(half)]
        name += f" Part {part}"
    for (title, _), wav in zip(program["sections"], wavs):
        args += ["--section-title", title]
    args += ["-o", os.path.join(folder, name + ext)] + wavs
    r = subprocess.run(args, capture_output=True, text=True)
    if r.returncode != 0:
        raise RuntimeError(f"zqxpack failed for {name}: {r.stderr.strip()}")
    return os.path.join(program["author"], program["title"], name + ext)


def main():
    ap = argparse.ArgumentParser(description="Builds the demo library of spoken programs.")
    ap.add_argument("--zqxpack", required=True)
    ap.add_argument("--out", required=True, help="the music folder to fill (replaced)")
    ap.add_argument("--stamp", help="file touched when the library is complete")
    opts = ap.parse_args()
    if not shutil.which("espeak-ng"):
        sys.exit("make-demo-library: espeak-ng is not installed (scripts/deps.sh installs it)")

    # Build beside the target and swap it in, so a failed run leaves no half library.
    parent = os.path.dirname(os.path.abspath(opts.out))
    os.makedirs(parent, exist_ok=True)
    fresh = tempfile.mkdtemp(prefix=".music-", dir=parent)
    try:
        with tempfile.TemporaryDirectory() as work:
            jobs = [(p, None) for p in PROGRAMS] + [(LONG_PROGRAM, 1), (LONG_PROGRAM, 2)]
            with concurrent.futures.ThreadPoolExecutor(max_workers=os.cpu_count() or 2) as pool:
                # The two parts speak the same text; give each its own work folder.
                done = [pool.submit(pack, opts.zqxpack, p, os.path.join(work, f"job{i}"), fresh, part)
                        for i, (p, part) in enumerate(jobs)]
                files = [f.result() for f in done]
        if os.path.isdir(opts.out):
            shutil.rmtree(opts.out)
        os.rename(fresh, opts.out)
    except BaseException:
        shutil.rmtree(fresh, ignore_errors=True)
        raise
    files = [os.path.join(opts.out, f) for f in files]
    print(f"demo library: {len(files)} programs in {opts.out}")
    if opts.stamp:
        with open(opts.stamp, "w") as f:
            f.write("\n".join(files) + "\n")


if __name__ == "__main__":
    main()
