#!/usr/bin/env bash
# Times kst next to the tools people would otherwise use on a big log (miller, sqlite3, DuckDB,
# GNU sort) on the same generated data, and the raw limits: cat, a memchr line counter, that
# counter making a heap record of each line, and a copy of the log renamed over the last one,
# as is and made durable first (as kst makes every write).
# Prints one table: median seconds, peak resident memory, and each time as a ratio to kst's.
#
#   bench/peers.sh                 # 1,000,000 records, 3 runs per job
#   RECORDS=100000 RUNS=5 bench/peers.sh
#
#   TOOLS='^kst$|memchr' bench/peers.sh   # only the tools whose names match (an extended regex)
#   PAUSE=3 bench/peers.sh         # rest 3 s before every run: each meets the machine as a
#                                  # single command would (see bench/kst-ab.sh)
#
# Environment: RECORDS, RUNS, TOOLS, PAUSE, WORK (data and results folder, default /tmp/kesta-peers),
# KST (a kst binary; default: a Release build made in build/peers-release), SCENE (the text
# looked for in Scene), TC (the time-code prefix the start..end range must cover), RECORD_BYTES
# (the record size of the "line records" floor, default 120).
# Installs what is missing: miller, sqlite3, hyperfine and GNU time from Debian's packages,
# DuckDB through npm (@duckdb/node-api, into $WORK/node). A tool for people, not for CI.
set -euo pipefail

ROOT="$(cd "$(dirname "$0")/.." && pwd)"
RECORDS="${RECORDS:-1000000}"
RUNS="${RUNS:-3}"
TOOLS="${TOOLS:-.}"
PAUSE="${PAUSE:-0}"
WORK="${WORK:-/tmp/kesta-peers}"
SCENE="${SCENE:-12}"
TC="${TC:-01:00:1}"
mkdir -p "$WORK/out"

# ---------------------------------------------------------------------------- tools
need_apt=()
command -v mlr >/dev/null || need_apt+=(miller)
command -v sqlite3 >/dev/null || need_apt+=(sqlite3)
command -v hyperfine >/dev/null || need_apt+=(hyperfine)
[ -x /usr/bin/time ] || need_apt+=(time)
command -v cc >/dev/null || need_apt+=(gcc)
if [ ${#need_apt[@]} -gt 0 ]; then
  echo "installing ${need_apt[*]}" >&2
  apt-get update -qq && apt-get install -y -qq "${need_apt[@]}" >/dev/null
fi
if [ ! -d "$WORK/node/node_modules/@duckdb/node-api" ]; then
  echo "installing @duckdb/node-api" >&2
  mkdir -p "$WORK/node"
  (cd "$WORK/node" && npm init -y >/dev/null && npm install --silent @duckdb/node-api >/dev/null)
fi

if [ -z "${KST:-}" ]; then
  cmake -S "$ROOT" -B "$ROOT/build/peers-release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DKESTA_BUILD_TESTS=OFF >/dev/null
  cmake --build "$ROOT/build/peers-release" --target kst >/dev/null
  KST="$ROOT/build/peers-release/tools/kst/kst"
  [ -x "$KST" ] || KST="$(find "$ROOT/build/peers-release" -name kst -type f -perm -u+x | head -1)"
fi

# The raw read limit: read the file in large blocks and count lines with memchr.
cat >"$WORK/linecount.c" <<'EOF'
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
int main(int argc, char** argv) {
  static char buffer[1 << 20];
  int fd = open(argv[1], O_RDONLY);
  if (fd < 0) return 1;
  long lines = 0;
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) {
    const char* p = buffer;
    const char* end = buffer + n;
    while ((p = memchr(p, '\n', (size_t)(end - p))) != NULL) { ++lines; ++p; }
  }
  printf("%ld\n", lines);
  return 0;
}
EOF
cc -O2 -o "$WORK/linecount" "$WORK/linecount.c"

# The floor of a load that makes a heap record of each line, as the library does: map the file,
# find each line with memchr, and allocate and fill RECORD_BYTES for it (the size of a loaded
# record on x86-64). Whatever else a load does comes on top of this.
cat >"$WORK/linerecords.c" <<'EOF'
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
int main(int argc, char** argv) {
  if (argc < 3) return 2;
  size_t size = (size_t)atol(argv[2]);
  int fd = open(argv[1], O_RDONLY);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) return 1;
  const char* p = mmap(NULL, (size_t)st.st_size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  if (p == MAP_FAILED) return 1;
  const char* end = p + st.st_size;
  size_t count = 0, room = 1024;
  void** records = malloc(room * sizeof *records);
  while ((p = memchr(p, '\n', (size_t)(end - p))) != NULL) {
    if (count == room) records = realloc(records, (room *= 2) * sizeof *records);
    if (records == NULL || (records[count] = malloc(size)) == NULL) return 1;
    memset(records[count], (int)(count & 0xff), size);
    ++count;
    ++p;
  }
  printf("%zu\n", count);
  return 0;
}
EOF
cc -O2 -o "$WORK/linerecords" "$WORK/linerecords.c"

# DuckDB on one thread or on all, driven from Node: node duck.mjs THREADS SQL...
cat >"$WORK/node/duck.mjs" <<'EOF'
import { DuckDBInstance } from '@duckdb/node-api';
const [threads, ...statements] = process.argv.slice(2);
const db = await DuckDBInstance.create(':memory:', { threads });
const connection = await db.connect();
for (const sql of statements) await connection.run(sql);
EOF

# ----------------------------------------------------------------------------- data
LOG="$WORK/dailies-$RECORDS.kst"
CSV="$WORK/dailies-$RECORDS.csv"
[ -s "$LOG" ] || python3 "$ROOT/examples/gen_dailies.py" --records "$RECORDS" --seed 1 --format kst --out "$LOG"
[ -s "$CSV" ] || python3 "$ROOT/examples/gen_dailies.py" --records "$RECORDS" --seed 1 --format csv --out "$CSV"
O="$WORK/out"

# ----------------------------------------------------------------------------- jobs
# Each job line: JOB|TOOL|shell command. Every command writes its result to a file.
TCHI="${TC}~"  # just above every time code beginning with $TC
jobs=()
add() { jobs+=("$1|$2|$3"); }

add raw "cat" "cat '$LOG' >/dev/null"
add raw "memchr lines" "'$WORK/linecount' '$LOG' >/dev/null"
add raw "line records" "'$WORK/linerecords' '$LOG' ${RECORD_BYTES:-120} >/dev/null"
# The floor of writing a log back: the file copied to a new one renamed over the last copy.
add raw "copy, rename" "cp '$LOG' '$O/copy.tmp' && mv '$O/copy.tmp' '$O/copy.kst'"
# The same, durable: the copy and then its folder flushed to the disk around the rename.
add raw "copy, sync, rename" "cp '$LOG' '$O/sync.tmp' && sync '$O/sync.tmp' && mv '$O/sync.tmp' '$O/sync.kst' && sync '$O'"

add load "kst" "'$KST' convert '$LOG' '$O/kst-load.kst'"
add load "miller" "mlr --csv cat '$CSV' >'$O/mlr-load.csv'"
add load "sqlite3" "sqlite3 :memory: -cmd '.mode csv' -cmd \".import '$CSV' t\" -cmd \".once '$O/sqlite-load.csv'\" -cmd '.headers on' 'select * from t'"
for th in 1 2; do
  add load "duckdb ${th}t" "node '$WORK/node/duck.mjs' $th \"COPY (SELECT * FROM read_csv('$CSV', all_varchar=true)) TO '$O/duck-load.csv'\""
done

add sort "kst" "'$KST' sort '$LOG' --by 'Reel,Start time' -o '$O/kst-sort.kst'"
add sort "miller" "mlr --csv sort -f Reel -f 'Start time' '$CSV' >'$O/mlr-sort.csv'"
add sort "sqlite3" "sqlite3 :memory: -cmd '.mode csv' -cmd \".import '$CSV' t\" -cmd \".once '$O/sqlite-sort.csv'\" -cmd '.headers on' 'select * from t order by Reel, \"Start time\"'"
for th in 1 2; do
  add sort "duckdb ${th}t" "node '$WORK/node/duck.mjs' $th \"COPY (SELECT * FROM read_csv('$CSV', all_varchar=true) ORDER BY Reel, \\\"Start time\\\") TO '$O/duck-sort.csv'\""
  add sort "GNU sort ${th}t" "LC_ALL=C sort --parallel=$th -S 40% -t, -k3,3 -k6,6 '$CSV' >'$O/gnusort.csv'"
done

add filter "kst" "'$KST' find '$LOG' 'Scene=$SCENE' 'Start time=$TC' >'$O/kst-find.txt'"
add filter "miller" "mlr --csv filter 'strlen(sub(tolower(\$Scene), \"$SCENE\", \"\")) < strlen(\$Scene) && \$[[6]] < \"$TCHI\" && \$[[7]] >= \"$TC\"' '$CSV' >'$O/mlr-find.csv'"
add filter "sqlite3" "sqlite3 :memory: -cmd '.mode csv' -cmd \".import '$CSV' t\" -cmd \".once '$O/sqlite-find.csv'\" \"select * from t where instr(lower(Scene), '$SCENE') > 0 and \\\"Start time\\\" < '$TCHI' and \\\"End time\\\" >= '$TC'\""
for th in 1 2; do
  add filter "duckdb ${th}t" "node '$WORK/node/duck.mjs' $th \"COPY (SELECT * FROM read_csv('$CSV', all_varchar=true) WHERE contains(lower(Scene), '$SCENE') AND \\\"Start time\\\" < '$TCHI' AND \\\"End time\\\" >= '$TC') TO '$O/duck-find.csv'\""
done

add distinct "kst" "'$KST' distinct '$LOG' --field Reel >'$O/kst-distinct.txt'"
add distinct "miller" "mlr --csv put -q 'k = tolower(\$Reel); if (!is_present(@seen[k])) { @seen[k] = 1; emit \$* }' '$CSV' >'$O/mlr-distinct.csv'"
add distinct "sqlite3" "sqlite3 :memory: -cmd '.mode csv' -cmd \".import '$CSV' t\" -cmd \".once '$O/sqlite-distinct.csv'\" 'select * from t where rowid in (select min(rowid) from t group by lower(Reel))'"
for th in 1 2; do
  add distinct "duckdb ${th}t" "node '$WORK/node/duck.mjs' $th \"COPY (SELECT * EXCLUDE (n) FROM (SELECT *, row_number() OVER () AS n FROM read_csv('$CSV', all_varchar=true)) QUALIFY n = min(n) OVER (PARTITION BY lower(Reel))) TO '$O/duck-distinct.csv'\""
done

# ---------------------------------------------------------------------------- timing
RESULTS="$WORK/results.tsv"
: >"$RESULTS"
for entry in "${jobs[@]}"; do
  IFS='|' read -r job tool command <<<"$entry"
  [[ "$tool" =~ $TOOLS ]] || continue
  echo "== $job: $tool" >&2
  json="$WORK/hf.json"
  if ! hyperfine --style none --warmup 1 --runs "$RUNS" --prepare "sleep $PAUSE" --export-json "$json" "$command" >/dev/null 2>"$WORK/hf.err"; then
    echo "   failed: $(tail -3 "$WORK/hf.err")" >&2
    printf '%s\t%s\tnan\tnan\n' "$job" "$tool" >>"$RESULTS"
    continue
  fi
  median=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["results"][0]["median"])' "$json")
  /usr/bin/time -f '%M' -o "$WORK/peak" bash -c "$command" >/dev/null 2>&1 || true
  peak_kb=$(tail -1 "$WORK/peak")
  printf '%s\t%s\t%s\t%s\n' "$job" "$tool" "$median" "$peak_kb" >>"$RESULTS"
done

python3 - "$RESULTS" "$LOG" "$RECORDS" <<'EOF'
import math, os, sys
rows = [line.rstrip("\n").split("\t") for line in open(sys.argv[1]) if line.strip()]
size = os.path.getsize(sys.argv[2])
print(f"{int(sys.argv[3]):,} records, log {size / 1e6:.0f} MB; median of the runs; ratio = tool time / kst time")
print(f"{'job':<9}{'tool':<20}{'seconds':>9}{'peak MB':>9}{'x file':>8}{'ratio':>8}")
kst = {job: float(t) for job, tool, t, _ in rows if tool == "kst"}
for job, tool, t, peak in rows:
    t = float(t)
    peak_mb = float(peak) / 1024 if peak not in ("", "nan") else math.nan
    ratio = t / kst[job] if job in kst and not math.isnan(t) else math.nan
    print(f"{job:<9}{tool:<20}{t:>9.3f}{peak_mb:>9.0f}{peak_mb * 1048576 / size:>8.2f}{ratio:>8.2f}")
EOF
