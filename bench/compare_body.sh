#!/usr/bin/env bash
# What building a submission's request body costs, against the same work done by standard
# tools, and how much memory the build takes as the SDK's files grow.
#
#  1. Time. The submission is an issue with three 100000-byte text logs, a 1 MB screenshot
#     (a JPEG of noise, made by cjpeg) and five 100000-byte random .bin attachments.
#     - SDK side (BodyBuildDriver, in one process, median of the runs): only
#       TVKSubmissionRequestBuilder::buildPOSTSubmissionRequest() from an empty "httpBody.txt":
#       the fields, level-9 zips of the three logs and every part appended file to file.
#       Starting the SDK and gathering the files happen before, untimed.
#     - Floor (hyperfine, median of as many runs): `zip -9` of each log into its own archive,
#       then one `cat` of the three archives, the screenshot and the five attachments into
#       one file; four process starts, the shell's own start subtracted by hyperfine.
#     Both sides are checked to produce the same parts before their times mean anything. Each
#     side is also timed in its two halves (zipping the logs; appending or concatenating the
#     parts), and CPU time is shown beside wall time, as it suffers less from a busy machine.
#  2. Peak memory. The maximum resident set size (/usr/bin/time -v) of a whole driver process
#     that starts the SDK, gathers and builds one body, with 1 MB and with 50 MB of SDK files
#     (logs and screenshot; the host's five attachments stay the same).
#
# Usage: bench/compare_body.sh BUILD_FOLDER [RUNS]
#   BUILD_FOLDER holds an optimised build with the BodyBuildDriver target, e.g.
#   cmake -S . -B build/bodybench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
#   cmake --build build/bodybench --target BodyBuildDriver
set -euo pipefail

build=${1:?usage: $0 BUILD_FOLDER [RUNS]}
runs=${2:-30}
driver=$(realpath "$build/bench/BodyBuildDriver")
if [[ ! -x $driver ]]; then
    echo "no $driver: build the BodyBuildDriver target in $build first" >&2
    exit 1
fi
for tool in hyperfine zip cjpeg /usr/bin/time; do
    command -v "$tool" > /dev/null || { echo "$tool is not installed" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
logs=(user_tracking_logs.txt system_logs.txt debug_logs.txt)

# make_source FOLDER LOG_BYTES SCREENSHOT_SIDE SCREENSHOT_QUALITY
make_source() {
    local folder=$1 side=$3
    mkdir -p "$folder/logs" "$folder/attachments"
    for name in "${logs[@]}"; do
        "$driver" log "$folder/logs/$name" "$2"
    done
    { printf 'P6\n%d %d\n255\n' "$side" "$side"; head -c $((side * side * 3)) /dev/urandom; } |
        cjpeg -quality "$4" > "$folder/screenshot.jpg"
    for i in 1 2 3 4 5; do
        head -c 100000 /dev/urandom > "$folder/attachments/attachment-$i.bin"
    done
}

# A fresh SDK tree for every driver process, like a host's first start.
run_driver() {
    local root
    root=$(mktemp -d "$work/sdk-XXXXXX")
    mkdir -p "$root/home"
    HOME="$root/home" XDG_CACHE_HOME="$root/cache" XDG_DATA_HOME="$root/data" \
        XDG_CONFIG_HOME="$root/config" "$@"
}

# check_body SUBMISSION_FOLDER SOURCE: the body must hold the source's parts, each log zipped
# whole and the other files byte for byte.
check_body() {
    /usr/bin/python3 - "$1/httpBody.txt" "$2" <<'EOF'
import io, os, sys, zipfile
body, source = open(sys.argv[1], "rb").read(), sys.argv[2]
parts = body.split(b"--" + b"----TarvikBoundaryText")
assert parts[-1] == b"--\r\n", "the body does not end with the closing boundary"
files = {}
for part in parts[1:-1]:
    head, _, content = part.partition(b"\r\n\r\n")
    if b'filename="' in head:
        name = head.split(b'filename="')[1].split(b'"')[0].decode()
        files[name] = content[:-2]  # the part's closing CR LF
expected = {"screenshot.jpg": os.path.join(source, "screenshot.jpg")}
for name in os.listdir(os.path.join(source, "attachments")):
    expected[name] = os.path.join(source, "attachments", name)
for name, path in expected.items():
    assert files.get(name) == open(path, "rb").read(), f"{name} differs in the body"
for log in ("user_tracking_logs", "system_logs", "debug_logs"):
    archive = zipfile.ZipFile(io.BytesIO(files[log + ".zip"]))
    text = open(os.path.join(source, "logs", log + ".txt"), "rb").read()
    assert archive.read(log + ".txt") == text, f"{log}.zip does not hold the log"
assert len(files) == 9, f"expected 9 file parts, found {sorted(files)}"
EOF
}

value() { awk -v key="$1" '$1 == key { print $2 }' "$2"; }

echo "== time: 3 x 100000-byte logs, ~1 MB screenshot, 5 x 100000-byte attachments =="
source="$work/source"
make_source "$source" 100000 1350 70
run_driver "$driver" build "$source" "$runs" > "$work/sdk.txt"
folder=$(value folder "$work/sdk.txt")

floor="$work/floor"
mkdir -p "$floor"
zips=""
for name in "${logs[@]}"; do
    zips+="zip -q -9 -j '$floor/${name%.txt}.zip' '$source/logs/$name' && "
done
floor_command="${zips}cat '$floor'/*.zip '$source/screenshot.jpg' '$source'/attachments/*.bin \
> '$floor/body'"
eval "$floor_command"
check_body "$folder" "$source"


# The floor whole, then its two halves (the cat finds the archives the zips left).
zip_only="${zips%&& }"
cat_only="${floor_command#"$zips"}"
hyperfine --style basic --warmup 3 --runs "$runs" --export-csv "$work/floor.csv" \
    --prepare "rm -f '$floor'/*.zip '$floor/body'" --prepare "rm -f '$floor'/*.zip" \
    --prepare true \
    --command-name "zip -9 + cat" "$floor_command" \
    --command-name "zip -9" "$zip_only" \
    --command-name "cat" "$cat_only" > "$work/hyperfine.txt"

awk -F, -v runs="$runs" -v floorbytes="$(stat -c %s "$floor/body")" '
    FNR == NR { split($0, field, " "); sdk[field[1]] = field[2]; next }
    FNR > 1 { wall[FNR - 1] = $4 * 1000; cpu[FNR - 1] = ($5 + $6) * 1000 }
    END {
        row = "%-36s %8.2f ms  (CPU %7.2f ms)\n"
        printf "wall: median of %d runs; CPU: user + system, mean of the runs\n", runs
        printf row, "body build, SDK:", sdk["build_ms"], sdk["build_cpu_ms"]
        printf row, "zip -9 + cat:", wall[1], cpu[1]
        printf "ratio SDK / standard tools:           %8.2f     (CPU %7.2f)\n",
               sdk["build_ms"] / wall[1], sdk["build_cpu_ms"] / cpu[1]
        printf "bytes: body %d, zip -9 + cat %d\n", sdk["body_bytes"], floorbytes
        print ""
        print "the halves of each side:"
        printf row, "  zip the three logs, SDK:", sdk["zip_logs_ms"], sdk["zip_logs_cpu_ms"]
        printf row, "  zip -9 the three logs:", wall[2], cpu[2]
        printf "  ratio:                             %8.2f     (CPU %7.2f)\n",
               sdk["zip_logs_ms"] / wall[2], sdk["zip_logs_cpu_ms"] / cpu[2]
        printf row, "  append the six other parts, SDK:", sdk["append_plain_parts_ms"],
               sdk["append_plain_parts_cpu_ms"]
        printf row, "  cat of all nine parts:", wall[3], cpu[3]
    }' "$work/sdk.txt" "$work/floor.csv"

echo
echo "== peak memory: gathering and building one body =="
small="$work/small" large="$work/large"
make_source "$small" 100000 1130 70
make_source "$large" 10700000 3900 95
sdk_bytes() { du -cb "$1/logs" "$1/screenshot.jpg" | awk 'END { print $1 }'; }
declare -A peak
for size in small large; do
    run_driver /usr/bin/time -v "$driver" build "${!size}" 1 > "$work/$size.txt" \
        2> "$work/$size.time"
    peak[$size]=$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$work/$size.time")
    check_body "$(value folder "$work/$size.txt")" "${!size}"
done
awk -v sb="$(sdk_bytes "$small")" -v lb="$(sdk_bytes "$large")" \
    -v sp="${peak[small]}" -v lp="${peak[large]}" \
    -v sbody="$(value body_bytes "$work/small.txt")" \
    -v lbody="$(value body_bytes "$work/large.txt")" \
    -v sbuild="$(value build_ms "$work/small.txt")" -v lbuild="$(value build_ms "$work/large.txt")" \
    'BEGIN {
        printf "%-22s %14s %14s\n", "", "1 MB case", "50 MB case"
        printf "%-22s %11.2f MB %11.2f MB\n", "SDK files", sb / 1e6, lb / 1e6
        printf "%-22s %11.2f MB %11.2f MB\n", "body", sbody / 1e6, lbody / 1e6
        printf "%-22s %11.2f ms %11.2f ms\n", "body build (one run)", sbuild, lbuild
        printf "%-22s %10.2f MiB %10.2f MiB\n", "peak resident size", sp / 1024, lp / 1024
        printf "peak growth: %+.2f MiB for %+.2f MB more SDK files\n", (lp - sp) / 1024,
               (lb - sb) / 1e6
    }'

