#!/usr/bin/env bash
# Whether the memory of a batch stays flat: the resident memory of `orvexa batch` after its first ten captures and after
# its last ones, and their ratio. Exit code 1 when the end is more than 5 % above the beginning.
#
# batch_memory.sh [ORVEXA [COUNT]]     build/release/src/orvexa/orvexa and 1000 by default
#
# Resident memory goes up and down while a capture is measured, so the middle one of eleven readings stands for each end:
# after captures 10 to 20, and after the last eleven. A process whose standard error is read slowly waits for its reader
# sooner or later, but a reading may come a file late; that changes no ratio worth reporting.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
orvexa=${1:-$here/../build/release/src/orvexa/orvexa}
count=${2:-1000}
((count >= 40)) || { echo "at least 40 captures are needed to tell the two ends apart" >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$orvexa" sample "$folder" --count "$count" --quiet

exec {lines}< <(exec "$orvexa" batch "$folder/series/series.yaml" "$folder/series" -o "$folder/out" 2>&1 >/dev/null)
process=$!
begin=()
end=()
while read -r number rest <&"$lines"; do
  done_files=${number%%/*}
  resident=$(awk '/^VmRSS/ {print $2}' "/proc/$process/status" 2>/dev/null) || true
  [[ -n $resident ]] || continue # it is at its end
  if ((done_files >= 10 && done_files <= 20)); then begin+=("$resident"); fi
  if ((done_files > count - 12)); then end+=("$resident"); fi
done
wait "$process"

middle() { printf '%s\n' "$@" | sort -n | sed -n "$((($# + 1) / 2))p"; }
first=$(middle "${begin[@]}")
last=$(middle "${end[@]}")
awk -v first="$first" -v last="$last" -v count="$count" 'BEGIN {
  printf "after the first ten: %.1f MB   after %d: %.1f MB   ratio %.3f\n", first / 1024, count, last / 1024, last / first
  exit last > 1.05 * first
}'
