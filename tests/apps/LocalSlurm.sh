# A single-node Slurm cluster of its own, for tests and benchmarks: munged,
# slurmctld and slurmd started in the foreground under a folder of their own,
# with their own key, sockets, free ports, state and logs, and no cgroups
# (processes are tracked through /proc). Nothing outside that folder is
# touched, so several such clusters may run side by side on one machine.
#
#   source tests/apps/LocalSlurm.sh
#   start_local_slurm DIR || { echo "$LOCAL_SLURM_PROBLEM"; ...; }   # exports SLURM_CONF
#   ... sbatch, squeue ...
#   stop_local_slurm
#
# start_local_slurm returns non-zero, with LOCAL_SLURM_PROBLEM set, where
# Slurm is not installed or cannot start; stop_local_slurm ends what it
# started, also after a failed start.

LOCAL_SLURM_PIDS=()
LOCAL_SLURM_PROBLEM=""

local_slurm_fail() {
  LOCAL_SLURM_PROBLEM="$1"
  local log
  for log in "$LOCAL_SLURM_DIR"/log/*; do
    [[ -s "$log" ]] && LOCAL_SLURM_PROBLEM+=$'\n'"--- $log"$'\n'"$(tail -n 8 "$log")"
  done
  return 1
}

# Waits up to $1 seconds for the command that follows to succeed.
local_slurm_wait() {
  local seconds=$1
  shift
  local i
  for ((i = 0; i < seconds * 5; i++)); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.2
  done
  return 1
}

local_slurm_free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

start_local_slurm() {
  LOCAL_SLURM_DIR=$1
  local tool
  for tool in munged mungekey slurmctld slurmd sbatch squeue scontrol sinfo python3; do
    command -v "$tool" >/dev/null 2>&1 || { LOCAL_SLURM_PROBLEM="$tool is not installed (scripts/deps.sh installs Slurm and munge)"; return 1; }
  done
  mkdir -p "$LOCAL_SLURM_DIR"/{munge,state,spool,log}
  chmod 700 "$LOCAL_SLURM_DIR" "$LOCAL_SLURM_DIR/munge"
  local d=$LOCAL_SLURM_DIR
  mungekey --create --keyfile="$d/munge/munge.key" >/dev/null 2>&1 || { local_slurm_fail "mungekey cannot create a key"; return 1; }
  munged --foreground --force --key-file="$d/munge/munge.key" --socket="$d/munge/munge.sock" \
    --pid-file="$d/munge/munged.pid" --log-file="$d/log/munged.log" --seed-file="$d/munge/seed" \
    >"$d/log/munged.out" 2>&1 &
  LOCAL_SLURM_PIDS+=($!)
  local_slurm_wait 10 test -S "$d/munge/munge.sock" || { local_slurm_fail "munged did not start"; return 1; }

  local node user ctld_port slurmd_port cpus
  node=$(hostname -s)
  user=$(id -un)
  ctld_port=$(local_slurm_free_port)
  slurmd_port=$(local_slurm_free_port)
  [[ "$slurmd_port" == "$ctld_port" ]] && slurmd_port=$(local_slurm_free_port)
  cpus=$(nproc)
  cat >"$d/slurm.conf" <<CONF
ClusterName=tarnvel
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
AuthInfo=socket=$d/munge/munge.sock
CredType=cred/munge
StateSaveLocation=$d/state
SlurmdSpoolDir=$d/spool
SlurmctldPidFile=$d/slurmctld.pid
SlurmdPidFile=$d/slurmd.pid
SlurmctldLogFile=$d/log/slurmctld.log
SlurmdLogFile=$d/log/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
MpiDefault=none
MailProg=/bin/true
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerType=sched/backfill
ReturnToService=2
SlurmctldTimeout=30
SlurmdTimeout=30
InactiveLimit=0
MinJobAge=300
KillWait=10
NodeName=$node NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=1000 State=UNKNOWN
PartitionName=local Nodes=$node Default=YES MaxTime=INFINITE State=UP
CONF
  export SLURM_CONF=$d/slurm.conf
  slurmctld -D -i -f "$SLURM_CONF" >"$d/log/slurmctld.out" 2>&1 &
  LOCAL_SLURM_PIDS+=($!)
  local_slurm_wait 20 scontrol ping || { local_slurm_fail "slurmctld did not start"; return 1; }
  slurmd -D -N "$node" -f "$SLURM_CONF" >"$d/log/slurmd.out" 2>&1 &
  LOCAL_SLURM_PIDS+=($!)
  local_slurm_idle() { [[ "$(sinfo -h -o %T 2>/dev/null)" == idle ]]; }
  local_slurm_wait 30 local_slurm_idle || { local_slurm_fail "slurmd did not bring its node up"; return 1; }
}

# Waits up to $2 seconds until job $1 has left the queue.
wait_local_slurm_job() {
  local_slurm_job_gone() { [[ -z "$(squeue -h -j "$1" 2>/dev/null)" ]]; }
  local_slurm_wait "$2" local_slurm_job_gone "$1"
}

stop_local_slurm() {
  local pid
  # Newest first: slurmd, slurmctld, munged.
  for ((i = ${#LOCAL_SLURM_PIDS[@]} - 1; i >= 0; i--)); do
    pid=${LOCAL_SLURM_PIDS[i]}
    kill -TERM "$pid" 2>/dev/null
    local_slurm_wait 10 bash -c "! kill -0 $pid" || kill -KILL "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
  done
  LOCAL_SLURM_PIDS=()
}
