#!/usr/bin/env bash
# Wall time of one batch converted three ways on this machine, side by side
# in rounds: a local run one job after another, a local run with two jobs at
# once, and a Slurm job array (one task per entry) on a single-node cluster
# that the script starts and stops itself. Prints each way's median and its
# ratio to the sequential run.
#
# Usage: bench/bench_cluster.sh [RECORDINGS (12)] [FRAMES (200)] [ROUNDS (3)] [WIDTHxHEIGHT (640x480)]
# Needs build/release (scripts/build.sh release) and Slurm (scripts/deps.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
recordings=${1:-12}
frames=${2:-200}
rounds=${3:-3}
size=${4:-640x480}
cli=$root/build/release/apps/tarnvel-cli
recgen=$root/build/release/apps/recgen/tarnvel-recgen
source "$root/tests/apps/LocalSlurm.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnvel-bench-cluster.XXXXXX")
trap 'stop_local_slurm; rm -rf "$work"' EXIT
start_local_slurm "$work/slurm" || { echo "Slurm cannot start here: $LOCAL_SLURM_PROBLEM" >&2; exit 1; }

for ((i = 0; i < recordings; i++)); do
  "$recgen" --out "$work/rec/test$i/cam" --width "${size%x*}" --height "${size#*x}" --frames "$frames" --pretrigger 10 --file-type 1 >/dev/null
done
write_batch() {  # name destination
  local text="[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=$2\r\nFileType=-1\r\nCount=$recordings\r\n"
  for ((i = 0; i < recordings; i++)); do text+="File_$(printf %03d "$i")=$work/rec/test$i/cam/args.ini\r\n"; done
  printf "$text" >"$work/$1.bat"
}

now() { date +%s.%N; }
declare -A times
run() {  # way
  rm -rf "$work/out-$1" "$work/$1-logs"
  write_batch "$1" "$work/out-$1"
  local start end job
  start=$(now)
  case $1 in
    sequential) "$cli" --parallel 1 "$work/$1.bat" >/dev/null ;;
    parallel2) "$cli" --parallel 2 "$work/$1.bat" >/dev/null ;;
    array)
      job=$("$cli" --slurm "$work/$1.bat" 2>/dev/null)
      wait_local_slurm_job "$job" 3600
      "$cli" --slurm-report "$job" "$work/$1.bat" >/dev/null ;;
  esac
  end=$(now)
  rm -rf "$work/out-$1"
  times[$1]+="$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }') "
}

ways=(sequential parallel2 array)
for ((r = 0; r < rounds; r++)); do
  for way in "${ways[@]}"; do run "$way"; done
done
median() { tr ' ' '\n' | grep -v '^$' | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
base=$(echo "${times[sequential]}" | median)
printf "batch of %d recordings, %s, %d frames each, TIFF sequences; %d rounds, %d CPUs\n" \
  "$recordings" "$size" "$frames" "$rounds" "$(nproc)"
for way in "${ways[@]}"; do
  m=$(echo "${times[$way]}" | median)
  printf "%-12s median %7.2f s   sequential / this %5.2f   (runs: %s)\n" "$way" "$m" "$(awk -v a="$base" -v b="$m" 'BEGIN { print a / b }')" "${times[$way]}"
done
