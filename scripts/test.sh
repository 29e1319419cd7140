#!/usr/bin/env bash
# Builds and runs every test: the default preset (RelWithDebInfo), then the asan preset
# (AddressSanitizer + UndefinedBehaviorSanitizer). Ends with CTest's summary of the asan run.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${KESTA_JOBS:-$(nproc)}
for preset in default asan; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
