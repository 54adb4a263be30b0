# SPDX-License-Identifier: MIT
#
# Sourced: a Slurm cluster of several nodes that are all this machine, for tests alone. It has its
# own keys, ports and folders, and touches nothing of an installed one. A folder and node count are
# given to start_cluster; SLURM_CONF leads the Slurm commands to it.

readonly controller_port=27817

# write_configuration FOLDER NODES
write_configuration() {
  local folder=$1 nodes=$2 host user
  host=$(hostname -s) user=$(id -un)
  cat >"$SLURM_CONF" <<CONF
ClusterName=pages
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$controller_port
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
CryptoType=crypto/munge
AuthInfo=socket=$folder/munge.socket
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool-%n
SlurmctldPidFile=$folder/slurmctld.pid
SlurmdPidFile=$folder/slurmd-%n.pid
SlurmctldLogFile=$folder/slurmctld.log
SlurmdLogFile=$folder/slurmd-%n.log
# Neither control groups nor accounting: any machine and any container will do.
ProctrackType=proctrack/pgid
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
# A lost node is to show within seconds, and a requeued task to start as soon.
SlurmdTimeout=10
SchedulerParameters=sched_interval=2,bf_interval=2
ReturnToService=2
NodeName=n[1-$nodes] NodeHostname=$host NodeAddr=127.0.0.1 Port=[$((controller_port + 1))-$((controller_port + nodes))] CPUs=1 State=UNKNOWN
PartitionName=main Nodes=ALL Default=YES MaxTime=INFINITE State=UP
CONF
}

# start_cluster FOLDER NODES: returns when all nodes are idle.
start_cluster() {
  local folder=$1 nodes=$2 node
  cluster_folder=$folder
  export SLURM_CONF=$folder/slurm.conf
  mkdir -p "$folder/state"
  write_configuration "$folder" "$nodes"
  (umask 077 && head -c 1024 /dev/urandom >"$folder/munge.key")
  munged --force --key-file="$folder/munge.key" --socket="$folder/munge.socket" \
    --pid-file="$folder/munged.pid" --log-file="$folder/munged.log" \
    --seed-file="$folder/munged.seed" 2>>"$folder/start.log"
  slurmctld 2>>"$folder/start.log"
  for node in $(seq "$nodes"); do start_node "n$node"; done
  wait_for 60 "the nodes to be idle" nodes_are_idle "$nodes"
}

start_node() {
  slurmd -N "$1" 2>>"$cluster_folder/start.log"
}

nodes_are_idle() {
  [ "$(sinfo -h -t idle -o %D 2>/dev/null)" = "$1" ]
}

# process_of PID_FILE NAME: the process of a pid file, if it is still the program of that name.
process_of() {
  local pid
  pid=$(cat "$1" 2>/dev/null) || return 1
  grep -q "$2" "/proc/$pid/cmdline" 2>/dev/null || return 1
  echo "$pid"
}

# kill_process_of PID_FILE NAME [SIGNAL]
kill_process_of() {
  local pid
  ! pid=$(process_of "$1" "$2") || kill "-${3:-KILL}" "$pid"
}

# processes_of_job JOB: what runs for a job on this machine, the step's daemon included.
processes_of_job() {
  local folder
  for folder in /proc/[0-9]*; do
    if grep -qzx "SLURM_JOB_ID=$1" "$folder/environ" 2>/dev/null ||
      grep -qa "^slurmstepd: \[$1\." "$folder/cmdline" 2>/dev/null; then
      echo "${folder#/proc/}"
    fi
  done
}

# lose_node NODE JOB: as if the machine had lost its power.
lose_node() {
  kill_process_of "$cluster_folder/slurmd-$1.pid" slurmd
  local pid
  for pid in $(processes_of_job "$2"); do kill -KILL "$pid" 2>/dev/null || true; done
}

controller_is_gone() {
  ! process_of "$cluster_folder/slurmctld.pid" slurmctld >/dev/null
}

# As an update would do it, between two states that it saves.
restart_controller() {
  kill_process_of "$cluster_folder/slurmctld.pid" slurmctld TERM
  wait_for 30 "the controller to stop" controller_is_gone
  slurmctld 2>>"$cluster_folder/start.log"
}

stop_cluster() {
  local file pid job
  [ -n "${cluster_folder:-}" ] || return 0
  for job in $(squeue -h -o %A 2>/dev/null); do
    for pid in $(processes_of_job "$job"); do kill -KILL "$pid" 2>/dev/null || true; done
  done
  for file in "$cluster_folder"/slurmd-*.pid; do kill_process_of "$file" slurmd TERM; done
  kill_process_of "$cluster_folder/slurmctld.pid" slurmctld TERM
  kill_process_of "$cluster_folder/munged.pid" munged TERM
}

# wait_for SECONDS WHAT COMMAND...: tries the command until it succeeds.
wait_for() {
  local end=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || fail "waited in vain for $what"
    sleep 0.5
  done
}
