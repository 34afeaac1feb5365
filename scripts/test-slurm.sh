#!/usr/bin/env bash
# Runs scripts/slurm-retime.sh for real: starts a one-node SLURM cluster (munged, slurmctld and
# slurmd, all from a configuration in a temporary folder), submits the array job on a
# real clip, and compares every frame with a single-machine run of the same command, bit for bit.
# Then it checks the two promises of the script: a job where one chunk fails fails as a whole,
# and a job submitted again renders only the frames still missing.
#
#   scripts/test-slurm.sh
#
# Needs root (it installs Debian's slurm-wlm and munge with apt-get where they are missing) and
# takes a few minutes on two cores. The daemons live only as long as the script. Environment:
#   BUILD_DIR        build folder holding cli/quelmor (default: build; built here if missing)
#   QUELMOR_CLIP     folder of the clip's frames, NNN.png (default: ../shared/data/clip)
#   QUELMOR_FRAMES   source frames taken from its start (default: all)
#   QUELMOR_CHUNK    output frames per array task (default 16)
#   QUELMOR_RETIME   retime options (default "--speed 0.5 --quality best")
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$(realpath -m "${BUILD_DIR:-$repo/build}")"
clip="$(realpath -m "${QUELMOR_CLIP:-$repo/../shared/data/clip}")"
frames="${QUELMOR_FRAMES:-$(find "$clip" -maxdepth 1 -name "[0-9][0-9][0-9].png" | wc -l)}"
chunk="${QUELMOR_CHUNK:-16}"
read -r -a retime <<<"${QUELMOR_RETIME:---speed 0.5 --quality best}"
quelmor="$build/cli/quelmor"
node=quelmortest

say() { echo "test-slurm: $*"; }
fail() {
    echo "test-slurm: FAILED: $*" >&2
    exit 1
}

[[ $(id -u) == 0 ]] || fail "run as root: the cluster's daemons and apt-get need it"
[[ -f "$clip/000.png" ]] || fail "no clip at $clip (NNN.png frames); set QUELMOR_CLIP"

if ! command -v slurmctld >/dev/null || ! command -v slurmd >/dev/null ||
    ! command -v sbatch >/dev/null || ! command -v munged >/dev/null; then
    say "installing slurm-wlm and munge"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends slurm-wlm munge
fi
if [[ ! -x "$quelmor" ]]; then
    say "building quelmor in $build"
    [[ -f "$build/CMakeCache.txt" ]] || cmake -S "$repo" -B "$build" -DCMAKE_BUILD_TYPE=Release
    cmake --build "$build" --target quelmor -j2
fi

tmp="$(mktemp -d /tmp/quelmor-slurm.XXXXXX)"
pids=()
cleanup() {
    local status=$?
    if [[ -n "${SLURM_CONF:-}" ]] && ((${#pids[@]} > 1)); then
        scancel --quiet --full "--name=quelmor-retime" 2>/dev/null || true
        for _ in $(seq 30); do
            [[ -z "$(squeue -h 2>/dev/null)" ]] && break
            sleep 1
        done
    fi
    # Our daemons only, newest first, by the ids they were started with.
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null || true
    done
    for pid in "${pids[@]}"; do
        for _ in $(seq 20); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.5
        done
        kill -9 "$pid" 2>/dev/null || true
    done
    rm -rf "$tmp"
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Ports nobody listens on, for the controller and the node daemon.
free_port() {
    local port
    while :; do
        port=$((20000 + RANDOM % 30000))
        ss -Hltn "sport = :$port" | grep -q . || { echo "$port"; return; }
    done
}
ctld_port="$(free_port)"
slurmd_port="$(free_port)"
while [[ "$slurmd_port" == "$ctld_port" ]]; do slurmd_port="$(free_port)"; done

# munge: a key and a socket of this test's own.
mkdir -p "$tmp/munge" "$tmp/ctld" "$tmp/spool" "$tmp/logs"
chmod 700 "$tmp/munge"
mungekey --create --keyfile="$tmp/munge/munge.key"
munged --foreground --force --socket="$tmp/munge/socket" --key-file="$tmp/munge/munge.key" \
    --log-file="$tmp/munge/munged.log" --pid-file="$tmp/munge/munged.pid" \
    --seed-file="$tmp/munge/munged.seed" >"$tmp/munge/stdout.log" 2>&1 &
pids+=($!)
for _ in $(seq 50); do
    [[ -S "$tmp/munge/socket" ]] && break
    sleep 0.2
done
[[ -S "$tmp/munge/socket" ]] || fail "munged did not start: $(cat "$tmp/munge/munged.log")"

host="$(hostname -s)"
cat >"$tmp/slurm.conf" <<EOF
ClusterName=quelmortest
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$tmp/munge/socket
StateSaveLocation=$tmp/ctld
SlurmdSpoolDir=$tmp/spool
SlurmctldPidFile=$tmp/slurmctld.pid
SlurmdPidFile=$tmp/slurmd.pid
SlurmctldLogFile=$tmp/logs/slurmctld.log
SlurmdLogFile=$tmp/logs/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/backfill
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
MpiDefault=none
ReturnToService=2
MailProg=/bin/true
NodeName=$node NodeAddr=127.0.0.1 NodeHostname=$host CPUs=$(nproc) State=UNKNOWN
PartitionName=test Nodes=$node Default=YES MaxTime=INFINITE State=UP
EOF
export SLURM_CONF="$tmp/slurm.conf"
slurmctld -D -f "$SLURM_CONF" >"$tmp/logs/slurmctld.out" 2>&1 &
pids+=($!)
slurmd -D -f "$SLURM_CONF" -N "$node" >"$tmp/logs/slurmd.out" 2>&1 &
pids+=($!)
for _ in $(seq 60); do
    state="$(sinfo -h -n "$node" -o %T 2>/dev/null || true)"
    [[ "$state" == idle ]] && break
    sleep 1
done
[[ "${state:-}" == idle ]] ||
    fail "the node is not idle (${state:-no answer}): $(tail -5 "$tmp/logs/slurmctld.log" "$tmp/logs/slurmd.log" 2>&1)"
say "cluster up: node $node, $(nproc) cores, controller port $ctld_port"

# The first frames of the clip, in a sequence of their own.
mkdir -p "$tmp/clip" "$tmp/farm" "$tmp/single"
for ((i = 0; i < frames; i++)); do
    name="$(printf %03d.png "$i")"
    ln -s "$clip/$name" "$tmp/clip/$name"
done
input="$tmp/clip/%03d.png"
say "input: $frames frames of $clip, retime ${retime[*]}, $chunk output frames per chunk"

submit() {
    QUELMOR="$quelmor" QUELMOR_SLURM_WAIT=1 QUELMOR_SLURM_LOGS="$tmp/logs" \
        "$repo/scripts/slurm-retime.sh" "$input" "$tmp/farm/out.%04d.png" "$chunk" "${retime[@]}"
}

started=$SECONDS
submit || fail "the array job failed: $(cat "$tmp"/logs/quelmor-retime-*.log)"
farm_seconds=$((SECONDS - started))
started=$SECONDS
"$quelmor" retime "$input" "$tmp/single/out.%04d.png" "${retime[@]}" --quiet
single_seconds=$((SECONDS - started))

compare() {
    local differ=0 count=0 frame
    for frame in "$tmp"/single/out.*.png; do
        count=$((count + 1))
        if cmp -s "$frame" "$tmp/farm/${frame##*/}"; then
            echo "${frame##*/}: identical"
        else
            echo "${frame##*/}: DIFFERS"
            differ=$((differ + 1))
        fi
    done
    local farmed
    farmed="$(find "$tmp/farm" -maxdepth 1 -name 'out.*.png' | wc -l)"
    ((count > 0 && farmed == count)) || fail "$farmed frames from the farm, $count from one machine"
    ((differ == 0)) || fail "$differ of $count frames differ"
    say "all $count frames identical"
}
compare
chunks="$(find "$tmp/logs" -name 'quelmor-retime-*.log' | wc -l)"
say "$chunks chunks of $chunk frames: farm ${farm_seconds}s, one machine ${single_seconds}s"

# A chunk that fails fails the job: a folder where one frame is first written blocks that frame
# (not empty, so that the writer's clean-up of its hidden file cannot remove it).
count="$(find "$tmp/farm" -maxdepth 1 -name 'out.*.png' | wc -l)"
blocked="$(printf out.%04d.png 1)"
other="$(printf out.%04d.png $((count - 1)))"
rm "$tmp/farm/$blocked" "$tmp/farm/$other"
mkdir "$tmp/farm/.$blocked.part"
touch "$tmp/farm/.$blocked.part/keep"
rm -f "$tmp"/logs/quelmor-retime-*.log
if submit >"$tmp/logs/failed-submit.txt" 2>&1; then
    fail "the job succeeded although the chunk of $blocked could not write it"
fi
[[ -f "$tmp/farm/$other" ]] || fail "the chunks that could work did not render $other"
[[ ! -e "$tmp/farm/$blocked" ]] || fail "$blocked was written through the blocker"
say "a failing chunk fails the job: $(grep -h 'cannot write' "$tmp"/logs/quelmor-retime-*.log | head -1)"

# Submitted again, it renders only what is missing.
rm -r "$tmp/farm/.$blocked.part"
rm -f "$tmp"/logs/quelmor-retime-*.log
submit >/dev/null || fail "the job submitted again failed: $(cat "$tmp"/logs/quelmor-retime-*.log)"
rendered="$(grep -h ' to render' "$tmp"/logs/quelmor-retime-*.log | awk '{s += $(NF - 2)} END {print s}')"
((rendered == 1)) || fail "the job submitted again rendered $rendered frames, not 1"
say "submitted again: 1 frame rendered, $((count - 1)) kept"
compare | tail -1
