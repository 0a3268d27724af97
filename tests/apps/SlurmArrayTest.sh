#!/usr/bin/env bash
# A batch of six generated recordings, one of them damaged, converted through
# a Slurm job array on a single-node cluster of its own, and the same batch
# converted by a local run: the outputs must be byte-identical, the report
# must name the damaged entry with the message number of the local run, and
# the damaged recording must keep its raw files while the others lose theirs
# (the recordings ask for their raw files to be deleted). Then a task
# cancelled with scancel while it converts: its entry ends as "Abort" and
# its recording keeps its raw files.
#
# Usage: SlurmArrayTest.sh TARNVEL_CLI TARNVEL_RECGEN
# Exits 77 (skipped, with the reason on standard output) where Slurm is not
# installed or cannot start.
set -uo pipefail
cli=$1
recgen=$2
here=$(cd "$(dirname "$0")" && pwd)
source "$here/LocalSlurm.sh"

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnvel-slurm.XXXXXX")
cleanup() {
  stop_local_slurm
  [[ -n "${KEEP_WORK:-}" ]] || rm -rf "$work"
}
trap cleanup EXIT

failures=0
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

if ! start_local_slurm "$work/slurm"; then
  echo "SKIPPED: a local Slurm cluster cannot start here: $LOCAL_SLURM_PROBLEM"
  exit 77
fi

# Six recordings, copied for the second run. Several kinds of output at
# once: image sequences, a multipage file, a container with channel data, a
# movie, colour and mono, a time sidecar. (Chapter 10 files and GEV blocks
# carry the time of the conversion itself, so no two runs give the same
# bytes; they stay out of a byte comparison.)
kinds=(
  "--file-type 1 --bits 12"
  "--file-type 11 --sensor colour"
  "--file-type 4 --time-receiver"
  "--file-type 1"
  "--file-type 6 --sensor colour --channels csv"
  "--file-type 18"
)
for i in "${!kinds[@]}"; do
  # shellcheck disable=SC2086
  "$recgen" --out "$work/local/test$i/cam$i" --width 96 --height 64 --frames 12 --pretrigger 2 --delete-raw 1 ${kinds[i]} \
    >/dev/null || { echo "FAILED: tarnvel-recgen ${kinds[i]}"; exit 1; }
done
truncate -s 3000 "$work/local/test3/cam3/rawdata.00.raw"  # the damaged one: a few frames left
cp -a "$work/local" "$work/cluster"
for copy in local cluster; do
  batch="[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=$work/$copy-out\r\nFileType=-1\r\nCount=6\r\n"
  for i in "${!kinds[@]}"; do batch+="File_00$i=$work/$copy/test$i/cam$i/args.ini\r\n"; done
  printf "$batch" >"$work/$copy.bat"
done

"$cli" "$work/local.bat" >"$work/local.log" 2>&1
[[ $? == 1 ]] || fail "the local run should fail for the damaged recording"
local_message=$(sed -n 's/^tarnvel-cli: error \([0-9]*\):.*/\1/p' "$work/local.log" | head -n 1)
[[ -n "$local_message" ]] || fail "the local run names no message number"

job=$("$cli" --slurm "$work/cluster.bat" --max-tasks 2 2>"$work/submit.err")
[[ $? == 0 && "$job" =~ ^[0-9]+$ ]] || { cat "$work/submit.err"; fail "the array was not submitted: '$job'"; exit 1; }
wait_local_slurm_job "$job" 240 || fail "job array $job did not end within 4 minutes"

"$cli" --slurm-report "$job" "$work/cluster.bat" >"$work/report.txt"
[[ $? == 1 ]] || fail "the report should end with status 1 while an entry failed"
[[ $(grep -c ': Done$' "$work/report.txt") == 5 ]] || fail "five entries should be Done"
grep -q "^entry 3 (.*cam3/args.ini): Error, message $local_message: " "$work/report.txt" ||
  fail "the damaged entry should be reported with message $local_message"
grep -q "^5 of 6 entries Done$" "$work/report.txt" || fail "the report's count"

for i in "${!kinds[@]}"; do
  diff -r "$work/local-out/cam$i" "$work/cluster-out/cam$i" >"$work/diff$i.txt" ||
    fail "cam$i differs between the local run and the array: $(head -n 3 "$work/diff$i.txt")"
  raw=$work/cluster/test$i/cam$i/rawdata.00.raw
  if [[ $i == 3 ]]; then
    [[ -f "$raw" ]] || fail "the damaged recording lost its raw files"
  else
    [[ ! -e "$raw" ]] || fail "cam$i converted without error but kept its raw files"
  fi
done
[[ -z "$(ls "$work/cluster-out" | grep -v '^cam[0-5]$')" ]] || fail "unexpected folders: $(ls "$work/cluster-out")"

# Cancelled: so many frames that scancel comes long before the end.
"$recgen" --out "$work/long/cam" --width 16 --height 8 --frames 20000 --pretrigger 0 --delete-raw 1 >/dev/null
printf "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=$work/long-out\r\nCount=1\r\nFile_000=$work/long/cam/args.ini\r\n" >"$work/long.bat"
long=$("$cli" --slurm "$work/long.bat" 2>>"$work/submit.err")
for ((i = 0; i < 600; i++)); do
  grep -q Converting "$work/long-logs/${long}_0.log" 2>/dev/null && break
  sleep 0.1
done
scancel "$long"
wait_local_slurm_job "$long" 120 || fail "cancelled job $long did not end"
"$cli" --slurm-report "$long" "$work/long.bat" >>"$work/report.txt"
[[ $? == 1 ]] || fail "a cancelled entry is not Done"
grep -q "^entry 0 (.*long/cam/args.ini): Abort, message 107: " "$work/report.txt" || fail "the cancelled entry should end as Abort"
[[ -f "$work/long/cam/rawdata.00.raw" ]] || fail "the cancelled recording lost its raw files"

if ((failures > 0)); then
  echo "--- local run"; cat "$work/local.log"
  echo "--- report"; cat "$work/report.txt"
  for log in "$work"/cluster-logs/*.log "$work"/long-logs/*.log; do echo "--- $log"; tail -n 5 "$log"; done
  exit 1
fi
echo "job array $job: $(sed -n 7p "$work/report.txt"), outputs identical to the local run; cancelled job $long ended as Abort"
