#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# A real Slurm of one node keys a shot with examples/slurm/key.sbatch: an array of tasks, one of them
# requeued half way, gives every frame whole and with the bytes of one process.
#
#   slurm.sh ORVANITE SBATCH_SCRIPT      77: Slurm is not installed
#
# Everything of Slurm's, its daemons too, lives in a temporary folder and goes with this script.
set -euo pipefail
orvanite=$1 script=$2
export PATH=$PATH:/usr/sbin:/sbin
for program in munged slurmctld slurmd sbatch oiiotool; do
  command -v $program >/dev/null ||
    { echo "slurm: skipped, $program is not installed: scripts/bootstrap --farm"; exit 77; }
done

dir=$(mktemp -d /tmp/orvanite-slurm.XXXXXX)
chmod 755 "$dir"
pids=()
leave() {
  local code=$?
  trap - EXIT
  ((code == 0)) || tail -n 20 "$dir"/*.log 2>/dev/null || true
  scancel --signal=KILL --full --me 2>/dev/null || true
  ((${#pids[@]} == 0)) || kill "${pids[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$dir"
  exit $code
}
trap leave EXIT
trap 'exit 143' TERM INT HUP

fail() { echo "slurm: $*" >&2; exit 1; }
# until_true SECONDS WHAT COMMAND...
until_true() {
  local end=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    ((SECONDS < end)) || fail "gave up waiting for $what"
    sleep 0.05
  done
}
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# The daemons.
user=$(id -un) node=$(hostname -s)
mkdir "$dir/munge" "$dir/state" "$dir/spool"
chmod 700 "$dir/munge"
head -c 1024 /dev/urandom >"$dir/munge/key"
chmod 600 "$dir/munge/key"
socket=$dir/munge.socket
munged --foreground --force --key-file="$dir/munge/key" --socket="$socket" \
  --pid-file="$dir/munge/pid" --log-file="$dir/munge/log" --seed-file="$dir/munge/seed" \
  >"$dir/munged.log" 2>&1 &
pids+=($!)
until_true 20 munged test -S "$socket"

export SLURM_CONF=$dir/slurm.conf
cat >"$SLURM_CONF" <<CONF
ClusterName=orvanite
SlurmctldHost=$node(127.0.0.1)
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$socket,cred_expire=5
SlurmctldPort=$(free_port)
SlurmdPort=$(free_port)
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
ProctrackType=proctrack/pgid
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=sched_interval=1,sched_min_interval=0,batch_sched_delay=0
ReturnToService=2
KillWait=2
NodeName=$node NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=farm Nodes=ALL Default=YES MaxTime=INFINITE State=UP
CONF
slurmctld -D >"$dir/slurmctld.out.log" 2>&1 &
pids+=($!)
slurmd -D >"$dir/slurmd.out.log" 2>&1 &
pids+=($!)
idle() { [[ $(sinfo -h -o %T 2>/dev/null) == idle ]]; }
until_true 30 "the node" idle

# Frames 1001 to 1018 in tasks of five: the last reaches past the end. Noise takes its time to
# compress, so that a task lasts.
mkdir "$dir/plate" "$dir/farm" "$dir/alone"
for ((frame = 1001; frame <= 1018; ++frame)); do
  oiiotool --create 960x540 3 --noise:type=uniform:min=0:max=1:seed=$frame -d uint16 \
    -o "$dir/plate/p.$frame.png"
done
key=("$dir/plate/p.####.png" --colourspace video --screen 0.2,0.7,0.2)
cd "$dir"
export ORVANITE=$orvanite
job=$(sbatch --parsable --array=0-3 --cpus-per-task=1 --output="$dir/task-%a.log" "$script" \
  1001 5 "${key[@]}" -o "$dir/farm/k.####.png")

# Task 2 has frames 1011 to 1015. It is killed, without a chance to tidy up, when one is there.
until_true 60 "the first frame of task 2" test -e "$dir/farm/k.1011.png"
task=$(squeue -h -j "${job}_2" -o %A)
killed=$(scontrol listpids "$task" | awk 'NR > 1 && $1 > 0 { print $1 }')
kill -KILL $killed
stopped() { [[ $(squeue -h -j "${job}_2" -o %T) != RUNNING ]]; }
until_true 30 "task 2 to stop" stopped
there=(farm/k.101[1-5].png)
((${#there[@]} < 5)) || fail "task 2 was not killed half way: all its frames were there"
for file in "${there[@]}"; do
  oiiotool --hash "$file" >/dev/null 2>&1 || fail "$file is not whole after the kill"
done
requeued() { scontrol requeue "${job}_2" 2>/dev/null; }
until_true 30 "task 2 to be requeued" requeued

done_all() { [[ -z $(squeue -h -j "$job" 2>/dev/null) ]]; }
until_true 120 "the array" done_all
grep -q "${#there[@]} skipped" "$dir/task-2.log" ||
  fail "task 2 did not go on with ${#there[@]} frames there: $(cat "$dir/task-2.log")"

# One process, the whole shot.
"$orvanite" key "${key[@]}" -o "$dir/alone/k.####.png" --quiet
[[ $(ls farm) == $(ls alone) ]] || fail "other frames: $(ls farm)"
(($(ls alone | wc -l) == 18)) || fail "expected 18 frames"
for file in alone/*; do cmp "$file" "farm/${file##*/}"; done
echo "slurm: 18 frames in 4 tasks, one requeued with ${#there[@]} of 5 frames: the bytes of one process"
