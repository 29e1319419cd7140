#!/usr/bin/env bash
# Runs every stored input of the given folders through a fuzz target once (no fuzzing); fails
# on the first input that crashes or fails a check. Usage: replay.sh TARGET FOLDER...
set -euo pipefail
target=$1
shift
inputs=()
for folder in "$@"; do
  [[ -d $folder ]] || continue
  while IFS= read -r -d '' file; do inputs+=("$file"); done < <(find "$folder" -type f -print0 | sort -z)
done
if ((${#inputs[@]} == 0)); then
  echo "no stored inputs for $(basename "$target")" >&2
  exit 1
fi
# Inputs given as files run once each; batches keep the command line short.
for ((i = 0; i < ${#inputs[@]}; i += 200)); do
  if ! output=$("$target" -rss_limit_mb=2048 "${inputs[@]:i:200}" 2>&1); then
    printf '%s\n' "$output" | grep -v '^Executed ' | tail -n 60 >&2
    exit 1
  fi
done
echo "$(basename "$target"): ${#inputs[@]} inputs replayed"
