#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# tests/windows_replay.sh PROGRAM WINDOWS_PROGRAM: prints small pages here while recording them, and
# replays each here and under Wine at every instruction level of this machine. What leaves every
# element has to be the same, byte for byte.
set -euo pipefail

program=$1
windows_program=$2
. "$(dirname "${BASH_SOURCE[0]}")/wine.sh"
table=$(dirname "$program")/../share/corvane/default.cvt
image=$(dirname "${BASH_SOURCE[0]}")/../examples/sample.jpg
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

cp "$table" "$folder/table.cvt"
cd "$(dirname "$image")" && image=$PWD/$(basename "$image")
cd "$folder"

levels=(plain)
for level in sse4:sse4_1 avx2 avx512:avx512bw avx512vbmi; do
  if grep -qw "${level#*:}" /proc/cpuinfo; then
    levels+=("${level%:*}")
  else
    echo "${level%:*}: not compared, this machine does not have it"
  fi
done

# Each kind of kernel and every filter: mode and alternate mode.
for page in 6:0 8:0 12:0 33:0 53:0 54:1 54:2 79:0 82:1 83:0 104:0 108:1 108:2 109:0 109:1 111:0; do
  mode=${page%:*} uam=${page#*:}
  "$program" print "$image" -o page.tif --quiet --paper 31x23mm --mode "$mode" --uam "$uam" \
    --color-table table.cvt --record page.jsonl
  "$program" replay page.jsonl -o here.jsonl
  for level in "${levels[@]}"; do
    CORVANE_CPU=$level under_wine "$windows_program" replay page.jsonl -o there.jsonl
    cmp here.jsonl there.jsonl || {
      echo "mode $mode, alternate mode $uam: Windows differs at level $level" >&2
      exit 1
    }
  done
  echo "mode $mode, alternate mode $uam: $(wc -l <here.jsonl) messages alike at ${levels[*]}"
done
