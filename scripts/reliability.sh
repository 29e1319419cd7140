#!/usr/bin/env bash
# The reliability checks beyond the sanitizer suites:
#  1. the fuzz preset (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer): every
#     stored input of fuzz/corpus/<target>/ and fuzz/corpus/regressions/<target>/ is replayed,
#     then each target fuzzes for a fixed time (KESTA_FUZZ_SECONDS, default 30), two at a time;
#     a crash stops the script and leaves the input under build/fuzz/fuzz-artifacts/;
#  2. the reliability preset (clang, ThreadSanitizer): the shared-reading thread test.
# The model check runs in the ordinary suites. Ends with CTest's summary of the thread test.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${KESTA_JOBS:-$(nproc)}
seconds=${KESTA_FUZZ_SECONDS:-30}

echo "== fuzz"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"
ctest --preset fuzz -j "$jobs"

build=build/fuzz
mkdir -p "$build/fuzz-work" "$build/fuzz-artifacts"

# Fuzzes one target for the fixed time; new inputs go to a scratch folder in the build tree,
# never into the stored corpus.
fuzz_one() {
  local target=$1 name
  name=$(basename "$target")
  local work=$build/fuzz-work/$name artifacts=$build/fuzz-artifacts/$name log=$build/fuzz-work/$name.log
  mkdir -p "$work" "$artifacts"
  local folders=("$work") options=()
  for folder in fuzz/corpus/"$name" fuzz/corpus/regressions/"$name"; do
    [[ -d $folder ]] && folders+=("$folder")
  done
  # A target's own libFuzzer flags, one per line.
  [[ -f fuzz/$name.options ]] && mapfile -t options <"fuzz/$name.options"
  if ! "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      "${options[@]}" -artifact_prefix="$artifacts/" "${folders[@]}" >"$log" 2>&1; then
    echo "$name: FAILED; the input is in $artifacts/" >&2
    grep -v '^#\|^INFO\|^\s*NEW_FUNC' "$log" | tail -n 40 >&2
    return 1
  fi
  local runs rate
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  printf '%-18s %9s executions in %ss (%s/s)\n' "$name" "$runs" "$seconds" "$rate"
}

targets=("$build"/fuzz/fuzz_*)
failed=0
for ((i = 0; i < ${#targets[@]}; i += 2)); do
  pids=()
  for target in "${targets[@]:i:2}"; do
    fuzz_one "$target" &
    pids+=($!)
  done
  for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
done
((failed == 0)) || exit 1

echo "== reliability"
cmake --preset reliability >/dev/null
cmake --build --preset reliability -j "$jobs"
ctest --preset reliability
