#!/usr/bin/env bash
# What gathering a submission's files costs, against plainly copying the same 14 files (three
# 100 kB logs, the host's defaults as user_defaults.json, ten 50 kB attachments), measured two
# ways, and how the scan for pending submissions grows with the number of queued folders:
#
#  1. In one process (SubmissionBench, one run): TVKEventSubmission::create() plus
#     copyAllFilesWithCompletionHandler until its completion ran, against std::filesystem
#     copy_file of the same files into a fresh folder; then the scan of 100, 1000 and 10000
#     queued event folders, with the growth Google Benchmark fits to it.
#  2. As whole processes (hyperfine): the GatherDriver starting the SDK and gathering one
#     submission, against one `cp` of the same files into a folder. Both times include a
#     process start and exit (no shell in between); the driver's also includes starting the
#     SDK, which is timed on its own as well so that the gathering's share shows.
#
# Every folder is made under $TMPDIR (default /tmp). Creating files is most of the work on both
# sides, so the file system shows through: ext4 without a journal, for one, passes over inodes
# deleted in the last minutes when it allocates, so loops that create and delete files slow
# down with the disk's recent history. TMPDIR=/dev/shm times the same work on a RAM file system.
#
# Usage: bench/compare_gather.sh BUILD_FOLDER
#   BUILD_FOLDER holds an optimised build with the SubmissionBench and GatherDriver targets, e.g.
#   cmake -S . -B build/subbench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
#   cmake --build build/subbench --target SubmissionBench GatherDriver
set -euo pipefail

build=${1:?usage: $0 BUILD_FOLDER}
bench=$(realpath "$build/bench/SubmissionBench")
driver=$(realpath "$build/bench/GatherDriver")
for binary in "$bench" "$driver"; do
    if [[ ! -x $binary ]]; then
        echo "no $binary: build the SubmissionBench and GatherDriver targets in $build first" >&2
        exit 1
    fi
done
command -v hyperfine > /dev/null || { echo "hyperfine is not installed" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== in one process (SubmissionBench) =="
"$bench" --benchmark_format=json > "$work/bench.json" 2> "$work/bench.err" ||
    { cat "$work/bench.err" >&2; exit 1; }
/usr/bin/python3 - "$work/bench.json" <<'EOF'
import json, sys
runs = {b["name"]: b for b in json.load(open(sys.argv[1]))["benchmarks"]}
for run in runs.values():
    if run.get("error_occurred"):
        sys.exit(f"{run['name']}: {run['error_message']}")
def microseconds(run, key="real_time", unit=None):
    scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[unit or run["time_unit"]]
    return run[key] * scale
gather = runs["GatherEventFiles/process_time/real_time"]
floor = runs["CopyFilesFloor/process_time/real_time"]
print("                                  wall time    process CPU time")
for label, run in (("gathering one submission:", gather),
                   ("copy_file of the same 14 files:", floor)):
    print(f"{label:32} {microseconds(run):9.1f} us  {microseconds(run, 'cpu_time'):9.1f} us")
print(f"{'gathering / copy floor:':32} {microseconds(gather) / microseconds(floor):9.2f}     "
      f"{microseconds(gather, 'cpu_time') / microseconds(floor, 'cpu_time'):9.2f}")
print()
for count in (100, 1000, 10000):
    scan = runs[f"ScanQueuedEvents/{count}"]
    wall, cpu = microseconds(scan) / 1000, microseconds(scan, "cpu_time") / 1000
    print(f"scan of {count:>5} queued folders:  {wall:9.2f} ms wall, {cpu:9.2f} ms CPU  "
          f"({wall * 1000 / count:6.1f} / {cpu * 1000 / count:6.1f} us a folder)")
fit = runs["ScanQueuedEvents_BigO"]
rms = runs["ScanQueuedEvents_RMS"]
term = {"N": "N", "NlgN": "N lg N", "N^2": "N^2", "N^3": "N^3", "lgN": "lg N", "(1)": "1"}
growth = term.get(fit["big_o"], fit["big_o"])
print(f"fitted growth: O({growth}), {microseconds(fit, 'real_coefficient', fit['time_unit']):.3g} us"
      f" x {growth} wall ({microseconds(fit, 'cpu_coefficient', fit['time_unit']):.3g} us CPU),"
      f" RMS {rms['rms'] * 100:.1f}%")
EOF

echo
echo "== as processes (hyperfine) =="
export HOME="$work/home" XDG_CACHE_HOME="$work/cache" XDG_DATA_HOME="$work/data" \
    XDG_CONFIG_HOME="$work/config"
mkdir -p "$HOME" "$work/staged" "$work/copy"
source="$work/source"
"$driver" prepare "$source"
files=("$source"/logs/*.txt "$source/user_defaults.json" "$source"/attachments/*)
if [[ ${#files[@]} -ne 14 ]]; then
    echo "expected 14 source files, found ${#files[@]}" >&2
    exit 1
fi
processing="$XDG_CACHE_HOME/com.tarvikhq.cache/events/Processing"
stage_logs="rm -rf '$processing'; cp '$source'/logs/*.txt '$work/staged/'"
fresh_copy="rm -rf '$work/copy'; mkdir '$work/copy'"
cp_command="cp ${files[*]} $work/copy/"
driver_command="$driver gather $work/staged $source/attachments"

# Both must leave the same bytes before their times mean anything.
eval "$stage_logs"
gathered=$($driver_command)
eval "$fresh_copy"
$cp_command
for file in "${files[@]}"; do
    name=$(basename "$file")
    case $file in
        */attachments/*) in_submission="$gathered/user_attachments/$name" ;;
        *) in_submission="$gathered/tarvik_attachments/$name" ;;
    esac
    cmp "$file" "$in_submission"
    cmp "$file" "$work/copy/$name"
done

hyperfine --style basic --shell=none --warmup 3 --runs 30 --export-csv "$work/times.csv" \
    --prepare "bash -c \"$fresh_copy\"" --prepare true --prepare "bash -c \"$stage_logs\"" \
    --command-name "cp" "$cp_command" \
    --command-name "GatherDriver start" "$driver start" \
    --command-name "GatherDriver gather" "$driver_command"

echo
awk -F, 'NR > 1 { mean[NR - 1] = $2; cpu[NR - 1] = $5 + $6; user[NR - 1] = $5; sys[NR - 1] = $6 }
    END {
        row = "%-38s %7.2f ms  (user %5.2f ms, system %5.2f ms)\n"
        printf row, "cp of the 14 files:", mean[1] * 1000, user[1] * 1000, sys[1] * 1000
        printf row, "GatherDriver, starting the SDK only:", mean[2] * 1000, user[2] * 1000,
               sys[2] * 1000
        printf row, "GatherDriver, start and gathering:", mean[3] * 1000, user[3] * 1000,
               sys[3] * 1000
        printf "%-38s %7.2f    (by user + system time: %.2f)\n", "ratio GatherDriver gather / cp:",
               mean[3] / mean[1], cpu[3] / cpu[1]
        printf "%-38s %7.2f ms\n", "gathering beyond the start:", (mean[3] - mean[2]) * 1000
    }' "$work/times.csv"
