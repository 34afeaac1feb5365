#!/usr/bin/env bash
# Retimes an image sequence on a SLURM cluster as one array job: one task per chunk of CHUNK
# output frames, each running `quelmor retime --frames A-B --resume` on its own node.
#
#   scripts/slurm-retime.sh INPUT OUTPUT CHUNK [quelmor retime options...]
#   scripts/slurm-retime.sh shot/in.%04d.exr slow/out.%04d.exr 20 --speed 0.25 --quality best
#
# INPUT and OUTPUT must lie on a file system that every node sees. The script checks the command
# line and the output folder with the command itself (`--print-frames`), submits the array and
# prints the job id. Frames are renamed into place only once complete, and every task resumes, so
# a job submitted again (after a node died, a task ran out of time or was cancelled) renders only
# the frames still missing.
#
# The job fails when any chunk fails: its array tasks end with the command's exit status, and
# with QUELMOR_SLURM_WAIT=1 this script waits for the whole array and exits with the highest
# status of its tasks (sbatch --wait), so it can gate a pipeline.
#
# Environment:
#   QUELMOR              the quelmor executable (default: build/cli/quelmor beside this script)
#   QUELMOR_CPUS         cores per task (default 1); each task runs that many workers
#   QUELMOR_SLURM_LOGS   folder for the task logs (default: the current folder)
#   QUELMOR_SLURM_WAIT   1: wait for the job and exit with its status
#   QUELMOR_SBATCH_ARGS  further sbatch options, such as "--partition=render --time=1:00:00"
#   (sbatch's own SBATCH_* variables work as well)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"

usage() {
    sed -n '2,24p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//' >&2
    exit 2
}

# One array task: the chunk of this task's index, rendered with whatever is there kept.
if [[ "${1:-}" == --task ]]; then
    shift
    quelmor="$1" input="$2" output="$3" chunk="$4" first="$5" last="$6"
    shift 6
    index="${SLURM_ARRAY_TASK_ID:?this is run by sbatch as an array task}"
    from=$((first + index * chunk))
    to=$((from + chunk - 1))
    ((to > last)) && to=$last
    threads=()
    [[ -n "${SLURM_CPUS_PER_TASK:-}" ]] && threads=(--threads "$SLURM_CPUS_PER_TASK")
    echo "chunk $index: output frames $from-$to on $(hostname)"
    exec "$quelmor" retime "$input" "$output" "$@" --frames "$from-$to" --resume "${threads[@]}"
fi

(($# >= 3)) || usage
input="$1" output="$2" chunk="$3"
shift 3
[[ "$chunk" =~ ^[1-9][0-9]{0,6}$ ]] || { echo "slurm-retime: CHUNK must be a whole number of frames, 1 or more, got \"$chunk\"" >&2; exit 2; }
for option in "$@"; do
    case "$option" in
    --frames | --frames=* | --overwrite | --resume | --print-frames)
        echo "slurm-retime: $option is set per chunk by the script; leave it out" >&2
        exit 2
        ;;
    --threads | --threads=*)
        echo "slurm-retime: each task runs as many workers as it has cores; set QUELMOR_CPUS" >&2
        exit 2
        ;;
    esac
done
quelmor="$(realpath -m "${QUELMOR:-$here/../build/cli/quelmor}")"
[[ -x "$quelmor" ]] || { echo "slurm-retime: no quelmor executable at $quelmor (build it, or set QUELMOR)" >&2; exit 1; }
# Absolute names: the tasks may start in another folder.
input="$(realpath -m "$input")"
output="$(realpath -m "$output")"

# The output frames of the whole run, checked as the tasks will run it.
range="$("$quelmor" retime "$input" "$output" "$@" --resume --print-frames)"
first="${range%-*}" last="${range#*-}"
count=$((last - first + 1))
chunks=$(((count + chunk - 1) / chunk))

logs="${QUELMOR_SLURM_LOGS:-.}"
mkdir -p "$logs"
wait=()
[[ "${QUELMOR_SLURM_WAIT:-0}" == 1 ]] && wait=(--wait)
# shellcheck disable=SC2086 # QUELMOR_SBATCH_ARGS is a list of options
submitted="$(sbatch --parsable "${wait[@]}" --job-name=quelmor-retime --array="0-$((chunks - 1))" \
    --cpus-per-task="${QUELMOR_CPUS:-1}" --output="$logs/quelmor-retime-%A_%a.log" \
    ${QUELMOR_SBATCH_ARGS:-} \
    "${BASH_SOURCE[0]}" --task "$quelmor" "$input" "$output" "$chunk" "$first" "$last" "$@")" ||
    status=$?
echo "output frames $first-$last in $chunks chunks of $chunk: job ${submitted%%;*}"
exit "${status:-0}"
