#!/usr/bin/env python3
"""Writes a deterministic dailies log: one record per take of a film shoot.

    gen_dailies.py --records 200 --seed 1 --format kst --out dailies.kst
    gen_dailies.py --records 20 --seed 2 --format csv --out dailies.csv

The .kst form is byte for byte what the library's save_text writes for the same database
(parameters, marker, widths, types, names, then one quoted line per record, with each
record's tag in its Tag column). The .csv form is a header line of column names and plain
comma-separated values without quotes, as the library's ".csv" input reads it.

Large logs (a million records, about 250 MB) are written in one pass: records go to a
temporary file beside the output while the column widths are measured, then the header and
the records are joined into the output.
"""

import argparse
import os
import random
import shutil
import sys
import tempfile

# Column name, type token, minimum width (the writer's table of standard columns).
COLUMNS = [
    ("Cookie", "text", 12),
    ("Name", "text", 32),
    ("Reel", "text", 10),
    ("Scene", "text", 24),
    ("Shot", "text", 24),
    ("Start time", "timecode", 12),
    ("End time", "timecode", 12),
    ("Duration", "timecode", 16),
    ("snd reel", "text", 10),
    ("snd start", "timecode", 12),
    ("snd end", "timecode", 12),
    ("start keycode", "text", 17),
    ("end keycode", "text", 17),
    ("Who", "text", 24),
    ("Description", "text", 64),
    ("Notes", "text", 100),
    ("Tag", "text", 1),
]

FPS = 24
FRAMES_PER_FOOT = 16

CREW = ["Ana Ruiz", "Ben Okafor", "Chen Wei", "Dana Kowalski", "Eli Brandt", "Farah Nadeem"]
SUBJECTS = ["Mara", "Tom", "the detective", "the courier", "the inspector", "the crowd", "the stand-in"]
ACTIONS = [
    "enters the harbour office",
    "crosses the pier at dusk",
    "argues by the window",
    "reads the letter",
    "runs for the ferry",
    "waits under the crane",
    "finds the key",
    "walks through the market",
]
FRAMINGS = ["wide", "medium", "close up", "over the shoulder", "two shot", "insert", "tracking"]
# Notes that carry commas or quotes exercise the writer's escaping; the CSV form avoids them.
NOTES_PLAIN = ["", "", "", "circle take", "NG focus", "good for sound", "print", "hold", "boom in frame at end"]
NOTES_PUNCTUATED = [
    "soft focus, retake",
    'actor said "harbour" twice',
    'use "B" camera angle, cut at slate',
    "plane overhead, sound NG",
    'director: "print it", circle',
]


def timecode(frames):
    seconds, ff = divmod(frames, FPS)
    minutes, ss = divmod(seconds, 60)
    hours, mm = divmod(minutes, 60)
    return "%02d:%02d:%02d:%02d" % (hours % 24, mm, ss, ff)


def keycode(stock, footage, frames):
    """Film key code: stock prefix, an eight-digit footage number in two groups, frames."""
    feet, extra = divmod(frames, FRAMES_PER_FOOT)
    total = (footage + feet) % 100000000
    return "%s %04d %04d+%02d" % (stock, total // 10000, total % 10000, extra)


def cookie(rng):
    bits = rng.getrandbits(128)
    # A version 4 UUID: version nibble 4, variant bits 10.
    bits = (bits & ~(0xF << 76)) | (0x4 << 76)
    bits = (bits & ~(0x3 << 62)) | (0x2 << 62)
    text = "%032x" % bits
    return "%s-%s-%s-%s-%s" % (text[0:8], text[8:12], text[12:16], text[16:20], text[20:32])


def records(rng, count, csv):
    """Yields (fields, tag) for `count` takes in shooting order."""
    scene = rng.randint(1, 20)
    setup = ""
    take = 0
    reel = 1
    takes_on_reel = 0
    sound_reel = 1
    start = 1 * 3600 * FPS  # camera time code runs from 01:00:00:00 on each reel
    sound = 14 * 3600 * FPS + rng.randint(0, 3600 * FPS)  # sound rolls on time of day
    stock = "K%s %02d" % (rng.choice("JLMNT"), rng.randint(10, 99))
    footage = rng.randint(10000000, 99990000)
    for _ in range(count):
        take += 1
        if take > rng.randint(3, 8):
            take = 1
            if rng.random() < 0.4:
                setup = "ABCD"[rng.randint(0, 3)] if setup == "" else ""
                if setup == "":
                    scene += 1
            else:
                scene += 1
                setup = ""
        takes_on_reel += 1
        if takes_on_reel > 40:
            takes_on_reel = 1
            reel += 1
            start = 1 * 3600 * FPS
            stock = "K%s %02d" % (rng.choice("JLMNT"), rng.randint(10, 99))
            footage = rng.randint(10000000, 99990000)
            if reel % 2 == 1:
                sound_reel += 1
        length = rng.randint(8 * FPS, 150 * FPS)
        end = start + length
        sound_end = sound + length + 2 * FPS
        scene_text = "%d%s" % (scene, setup)
        if csv:
            notes = rng.choice(NOTES_PLAIN)
        else:
            notes = rng.choice(NOTES_PUNCTUATED) if rng.random() < 0.15 else rng.choice(NOTES_PLAIN)
        description = "%s: %s %s" % (rng.choice(FRAMINGS), rng.choice(SUBJECTS), rng.choice(ACTIONS))
        tag = 1 if rng.random() < 0.12 else 0
        fields = [
            cookie(rng),
            "Sc %s Tk %d" % (scene_text, take),
            "A%03d" % reel,
            scene_text,
            str(take),
            timecode(start),
            timecode(end),
            timecode(length),
            "S%03d" % sound_reel,
            timecode(sound),
            timecode(sound_end),
            keycode(stock, footage, 0),
            keycode(stock, footage, length),
            rng.choice(CREW),
            description,
            notes,
            str(tag),
        ]
        yield fields, tag
        gap = rng.randint(2 * FPS, 90 * FPS)
        start = end + gap
        sound = sound_end + gap
        footage += length // FRAMES_PER_FOOT + 1


def quoted_line(fields):
    return ",".join('"' + f.replace('"', '""') + '"' for f in fields)


def write_kst(out_path, rng, count, args):
    widths = [minimum for _, _, minimum in COLUMNS]
    folder = os.path.dirname(os.path.abspath(out_path))
    with tempfile.NamedTemporaryFile("w", encoding="utf-8", newline="\n", dir=folder, delete=False) as body:
        body_path = body.name
        try:
            chunk = []
            for fields, _tag in records(rng, count, csv=False):
                for i, value in enumerate(fields):
                    n = len(value.encode("utf-8"))
                    if n > widths[i]:
                        widths[i] = n
                chunk.append(quoted_line(fields))
                if len(chunk) >= 4096:
                    body.write("\n".join(chunk) + "\n")
                    chunk = []
            if chunk:
                body.write("\n".join(chunk) + "\n")
        except BaseException:
            os.unlink(body_path)
            raise
    try:
        with open(out_path, "w", encoding="utf-8", newline="\n") as out:
            out.write('"KESTA:Rev 1"\n')
            out.write('"Production:%s"\n' % args.production)
            out.write('"Editor:%s"\n' % args.editor)
            out.write('"Date:%s"\n' % args.date)
            out.write('"KESTA"\n')
            out.write(",".join('"%d"' % w for w in widths) + "\n")
            out.write(",".join('"%s"' % token for _, token, _ in COLUMNS) + "\n")
            out.write(",".join('"%s"' % name for name, _, _ in COLUMNS) + "\n")
            with open(body_path, "r", encoding="utf-8", newline="\n") as body:
                shutil.copyfileobj(body, out, 1 << 20)
    finally:
        os.unlink(body_path)


def write_csv(out_path, rng, count):
    with open(out_path, "w", encoding="utf-8", newline="\n") as out:
        out.write(",".join(name for name, _, _ in COLUMNS) + "\n")
        for fields, _tag in records(rng, count, csv=True):
            out.write(",".join(fields) + "\n")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--records", type=int, default=200, help="number of takes (default 200)")
    parser.add_argument("--seed", type=int, default=1, help="random seed (default 1)")
    parser.add_argument("--format", choices=["kst", "csv"], default="kst")
    parser.add_argument("--out", required=True, help="file to write")
    parser.add_argument("--production", default="Night Harbour")
    parser.add_argument("--editor", default="J. Marlow")
    parser.add_argument("--date", default="2024-06-11")
    args = parser.parse_args(argv)
    if args.records < 0:
        parser.error("--records must not be negative")
    for text in (args.production, args.editor, args.date):
        if '"' in text or "\n" in text or text != text.strip():
            parser.error("parameter values may not hold quotes, line ends or outer blanks")
    rng = random.Random(args.seed)
    if args.format == "kst":
        write_kst(args.out, rng, args.records, args)
    else:
        write_csv(args.out, rng, args.records)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
