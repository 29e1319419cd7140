#!/usr/bin/env python3
"""Runs two kst builds on the same random small inputs and reports where they differ.

For a change to kst that should not change what it prints: random CSV, TSV and JSON tables
converted to JSON, and random logs (odd bytes, quotes, escapes, bare lines) shown in every
format, compare exit status, standard output and standard error.

    scripts/kst-differential.py OLD_KST NEW_KST [CASES] [SEED]    # CASES defaults to 1000
"""
import os
import random
import subprocess
import sys
import tempfile

if len(sys.argv) < 3:
    sys.exit(__doc__)
OLD, NEW = sys.argv[1], sys.argv[2]
CASES = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
random.seed(int(sys.argv[4]) if len(sys.argv) > 4 else 1)
WORK = tempfile.mkdtemp(prefix="kst-diff-")

TABLE_BYTES = {
    "csv": ["a", "b", " ", ",", ",", '"', "\r", "\n", "\n", "\n", "x", "\t", "\\", "é", "\x01"],
    "tsv": ["a", "b", " ", "\t", "\t", "\\", "n", "r", "t", "\r", "\n", "\n", "x", "é", "\x01", ","],
}
JSON_VALUE_PIECES = ["a", '"', "\\", "n", "t", "u", "0", "\x01", "é", " ", '\\"', "\\\\", "\\n", "\\u00e9"]
LOG_PIECES = ["a", "b", " ", "x,y", '"', '""', "\\", "\\n", "\\\\", "\t", "\x01", "\x7f", "\xe9", "é", ",", "  ", "…"]


def table_case():
    kind = random.choice(["csv", "tsv", "json"])
    if kind == "json":
        records = []
        for _ in range(random.randint(0, 5)):
            fields = []
            for key in random.sample(["A", "B", "C", "D"], random.randint(0, 4)):
                if random.random() < 0.8:
                    value = "".join(random.choice(JSON_VALUE_PIECES) for _ in range(random.randint(0, 6)))
                    fields.append('"%s": "%s"' % (key, value))
                else:
                    fields.append('"%s": %s' % (key, random.choice(["1", "-2.5e3", "true", "null", "x", "[1]"])))
            records.append("{" + ", ".join(fields) + "}")
        text = "[" + ",\n".join(records) + "]" + random.choice(["", "\n", " x"])
    else:
        head = "A,B,C\n" if kind == "csv" else "A\tB\tC\n"
        text = head + "".join(random.choice(TABLE_BYTES[kind]) for _ in range(random.randint(0, 80)))
    path = os.path.join(WORK, "in." + kind)
    with open(path, "w", encoding="utf-8", newline="") as out:
        out.write(text)
    return [["convert", path, "-", "--to", "json"]], text.encode("utf-8")


def log_case():
    names = ["Name", "Reel", "Notes", "Tag"][: random.randint(1, 4)]
    lines = ['"KESTA:Rev 1"', '"KESTA"', ",".join('"8"' for _ in names), ",".join('"text"' for _ in names),
             ",".join('"%s"' % n for n in names)]
    for _ in range(random.randint(0, 6)):
        values = ["".join(random.choice(LOG_PIECES) for _ in range(random.randint(0, 5))) for _ in names]
        lines.append(",".join(values) if random.random() < 0.2 else ",".join('"%s"' % v for v in values))
    text = "\n".join(lines) + "\n"
    data = text.encode("latin-1", errors="ignore") if random.random() < 0.3 else text.encode("utf-8")
    path = os.path.join(WORK, "in.kst")
    with open(path, "wb") as out:
        out.write(data)
    runs = [["show", path, "--format", f] for f in ["csv", "tsv", "json"]]
    runs.append(["show", path, "--width", str(random.choice([0, 20, 40, 80]))])
    return runs, data


differing = 0
for case in range(CASES):
    runs, data = table_case() if case % 2 == 0 else log_case()
    for args in runs:
        old = subprocess.run([OLD] + args, capture_output=True)
        new = subprocess.run([NEW] + args, capture_output=True)
        if (old.returncode, old.stdout, old.stderr) != (new.returncode, new.stdout, new.stderr):
            differing += 1
            if differing <= 3:
                print("differs:", " ".join(args[:1] + args[2:]), "on", repr(data[:300]))
                print("  old:", old.returncode, old.stdout[:300], old.stderr[:300])
                print("  new:", new.returncode, new.stdout[:300], new.stderr[:300])
print("%d cases, %d runs differ" % (CASES, differing))
sys.exit(1 if differing else 0)
