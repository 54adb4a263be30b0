#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# job_kills.sh CORVANE [COUNT]: kills a run of a job COUNT times (200) at random moments. After every
# kill each file under a final name must be whole: its bytes are those of an undisturbed run. The
# last run is not killed and must leave the pages of the job and nothing else.
set -euo pipefail
corvane=$(realpath "$1") count=${2:-200}
sample=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../examples/sample.jpg")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Enough pages that runs are killed before they have printed them all.
readonly pages=60
{
  echo input,scale
  for number in $(seq "$pages"); do echo "$sample,$((number + 20))"; done
} >records.csv
for job in whole killed; do
  "$corvane" job make "$job.job" --csv records.csv --paper 30x40mm --contone >/dev/null
done
began=$(date +%s%N)
"$corvane" job run whole.job -q
# A run lives for up to a sixth of what all pages take: for some pages on a machine of any speed.
most=$((($(date +%s%N) - began) / 6000000))

whole=0
for kill in $(seq "$count"); do
  # When nearly all is there the pages go, so that there is something to kill.
  if [ "$("$corvane" job status killed.job --json | sed -n 's/^  "missing": \([0-9]*\),*$/\1/p')" -lt 10 ]; then
    find killed -type f -name '0*' -delete
  fi
  "$corvane" job run killed.job -q &
  pid=$!
  moment=$((RANDOM * most / 32768))
  sleep "$((moment / 1000)).$(printf %03d $((moment % 1000)))"
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  for file in killed/*.tif; do
    [ -e "$file" ] || continue
    cmp -s "$file" "whole/${file#killed/}" || { echo "$file is not whole" >&2; exit 1; }
    whole=$((whole + 1))
  done
done
left=$(find killed -name '.corvane-*' | wc -l)
"$corvane" job run killed.job -q
"$corvane" job verify killed.job
diff -rq --exclude='*.record.json' killed whole
[ "$whole" -ge "$count" ] || { echo "only $whole files were there to look at" >&2; exit 1; }
echo "$count kills: $whole files looked at, all whole; $left work folders left before the last run, none after it"
