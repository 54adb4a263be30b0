#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# Prints a job on a cluster while everything that can fail there does: a node is lost, the controller
# is started again, a page runs on two nodes at once, and one image is damaged. The pages must be
# those of an undisturbed run on one core. Takes three to five minutes; installs Slurm when it is
# missing.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here/../../scripts/setup.sh"
. "$here/slurm.sh"

readonly page_count=400 node_count=3 task_count=6 damaged=200
corvane=$root/build/bin/corvane

say() { echo "$(date +%T) $*"; }

check() { # check WHAT COMMAND...
  local what=$1
  shift
  "$@" || fail "not so: $what"
  say "so it is: $what"
}

# Records of small pages that all differ, and one image that is damaged.
write_records() {
  local number
  cp "$root/examples/sample.jpg" "$work/sample.jpg"
  head -c 20000 "$work/sample.jpg" >"$work/damaged.jpg"
  echo input,scale,mode
  for number in $(seq "$page_count"); do
    if [ "$number" -eq "$damaged" ]; then
      echo "$work/damaged.jpg,,12"
    else
      echo "$work/sample.jpg,$((number % 50 + 20)).$((number / 50)),$((number % 2 ? 12 : 54))"
    fi
  done
}

make_job() { # make_job NAME [OPTION...]
  local name=$1
  shift
  "$corvane" job make "$work/$name.job" "$@" 2>>"$work/make.log"
}

# count_of NAME MEMBER: a number of `job status`.
count_of() {
  "$corvane" job status "$work/$1.job" --json | sed -n "s/^  \"$2\": \([0-9]*\),*$/\1/p"
}

pages_done() { [ "$(count_of "$1" done)" -ge "$2" ]; }

# The task of an array: its line in tasks.log tells how often it was started, and how it ended.
readonly script='#!/bin/sh
"$CORVANE" job run "$JOB" $SHARE >>"$WORK/$RUN-$SLURM_ARRAY_TASK_ID.out" 2>>"$WORK/$RUN.err"
status=$?
echo "$RUN task $SLURM_ARRAY_TASK_ID restarts ${SLURM_RESTART_COUNT:-0} status $status" >>"$WORK/tasks.log"
exit $status'

submit() { # submit RUN JOB ARRAY [SHARE]
  CORVANE=$corvane JOB=$work/$2.job WORK=$work RUN=$1 SHARE=${4:-} \
    sbatch --parsable --requeue --array="$3" --output=/dev/null <<<"$script"
}

queue_is_empty() { [ -z "$(squeue -h 2>/dev/null || echo unknown)" ]; }

# The printhead data of a job, by name and content.
digests() { (cd "$work/$1" && sha256sum ./*.tif); }

lose_a_node() {
  local job node
  read -r job node < <(squeue -h -t RUNNING -o '%A %N' | tail -1)
  say "node $node is lost, with job $job"
  lose_node "$node" "$job"
  say "the controller is started again"
  restart_controller
  wait_for 90 "the lost task to be requeued" grep -q "requeue.*due to failure of node $node" "$cluster/slurmctld.log"
  say "node $node comes back"
  start_node "$node"
}

both_run() {
  [ "$(squeue -h -t RUNNING -n twice -o %N | sort -u | wc -l)" -eq 2 ]
}

print_twice() {
  make_job twice "$work/sample.jpg" --mode 109 --quality best --paper A5
  CORVANE=$corvane JOB=$work/twice.job WORK=$work RUN=twice SHARE="--task 0 --of 1" \
    sbatch --job-name=twice --array=0-1 --output=/dev/null <<<"$script" >/dev/null
  wait_for 60 "a page to run on two nodes" both_run
  check "the page is not there while two nodes print it" test ! -e "$work/twice/000001.tif"
}

install_missing "$root/scripts/packages.txt" "$root/scripts/packages-cluster.txt"
configure default
build default corvane_program corvane_default_table
work=$(mktemp -d)
cluster=$work/cluster
mkdir "$cluster"
trap 'stop_cluster; rm -rf "$work"' EXIT

check "the Kubernetes job of docs/jobs.md fits the program" \
  python3 "$here/kubernetes.py" "$root/docs/jobs.md"
write_records >"$work/records.csv"
make_job undisturbed --csv "$work/records.csv" --paper 40x60mm
make_job day --csv "$work/records.csv" --paper 40x60mm
start_cluster "$cluster" "$node_count"
say "$node_count nodes are up"

first=$(submit first day "0-$((task_count - 1))")
wait_for 120 "the first pages" pages_done day 20
lose_a_node
wait_for 300 "the tasks to end" queue_is_empty
print_twice
wait_for 120 "the page to be printed twice" queue_is_empty
second=$(submit second day "0-$((task_count - 1))")
wait_for 120 "the tasks to end" queue_is_empty
say "jobs $first and $second are over; now the same pages undisturbed"
status=0
taskset -c 0 "$corvane" job run "$work/undisturbed.job" --tasks 1 -q 2>/dev/null || status=$?

cat "$work/tasks.log"
check "an undisturbed run ends with status 3 for the damaged page" test "$status" -eq 3
check "all other pages are done" test "$(count_of day done)" -eq "$((page_count - 1))"
check "one page failed" test "$(count_of day failed)" -eq 1
check "it was told once" test "$(grep -c "page $damaged:" "$work/first.err")" -eq 1
check "its task alone ended with status 3" \
  test "$(grep -c '^first .*status 3$' "$work/tasks.log")" -eq 1
check "all others ended with 0" \
  test "$(grep -c '^first .*status 0$' "$work/tasks.log")" -eq "$((task_count - 1))"
check "the lost task was started again" grep -q '^first .* restarts [1-9]' "$work/tasks.log"
check "the pages are those of the undisturbed run" \
  diff <(digests day) <(digests undisturbed)
"$corvane" job verify "$work/day.job" >"$work/verify.log" || true
check "nothing but the damaged page is missing, surplus or changed" \
  test "$(grep -c . "$work/verify.log")" -eq 2 -a "$(tail -1 "$work/verify.log")" = "$page_count pages, 1 problem"
check "both nodes printed the page" test "$(cat "$work"/twice-*.out | grep -c '^1 printed')" -eq 2
check "the page that was printed twice is whole" "$corvane" job verify "$work/twice.job"
check "a second submit computes nothing" \
  test "$(cat "$work"/second-*.out | grep -c '^0 printed')" -eq "$task_count"
say "all is well"
