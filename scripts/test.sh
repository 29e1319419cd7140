#!/usr/bin/env bash
# Builds and runs every test: the default preset (RelWithDebInfo), then the asan preset
# (AddressSanitizer + UndefinedBehaviorSanitizer), then the reliability checks (fuzz replay and
# timed fuzzing, the ThreadSanitizer run; scripts/reliability.sh). Ends with CTest's summary of
# the last run.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${KESTA_JOBS:-$(nproc)}
for preset in default asan; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
scripts/reliability.sh
