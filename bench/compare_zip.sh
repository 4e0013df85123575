#!/usr/bin/env bash
# Times `zip -9` and the SDK's TVKFileHelper::zipFileAtPath (through the ZipFileAtPath driver)
# on the same generated 10 MB log text, in one run; checks that both archives hold the text;
# prints both times, their ratio and the archive sizes. Builds nothing.
#
# Usage: bench/compare_zip.sh BUILD_FOLDER
#   BUILD_FOLDER holds an optimised build with the ZipFileAtPath target built, e.g.
#   cmake -S . -B build/zipbench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
#   cmake --build build/zipbench --target ZipFileAtPath
set -euo pipefail

build=${1:?usage: $0 BUILD_FOLDER}
driver=$(realpath "$build/bench/ZipFileAtPath")
if [[ ! -x $driver ]]; then
    echo "no $driver: build the ZipFileAtPath target in $build first" >&2
    exit 1
fi
command -v zip > /dev/null || { echo "zip is not installed" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source="$work/log.txt"
"$driver" generate "$source" 10000000
zip_command="zip -q -9 -j -X '$work/zip.zip' '$source'"
sdk_command="'$driver' zip '$source' '$work/sdk.zip'"
runs=10

if command -v hyperfine > /dev/null; then
    # zip adds to an archive that exists, so each run starts without one.
    hyperfine --style basic --warmup 1 --runs "$runs" --export-csv "$work/times.csv" \
        --prepare "rm -f '$work/zip.zip'" --prepare "rm -f '$work/sdk.zip'" \
        --command-name "zip -9" "$zip_command" \
        --command-name "zipFileAtPath" "$sdk_command"
    zip_seconds=$(awk -F, 'NR == 2 { print $2 }' "$work/times.csv")
    sdk_seconds=$(awk -F, 'NR == 3 { print $2 }' "$work/times.csv")
else
    mean_seconds() {  # mean wall time of $runs runs of COMMAND writing ARCHIVE, after a warm-up
        local command=$1 archive=$2 total=0 start
        for ((i = 0; i <= runs; i++)); do
            rm -f "$archive"
            start=$(date +%s%N)
            eval "$command"
            ((i > 0)) && total=$((total + $(date +%s%N) - start))
        done
        awk -v ns="$total" -v n="$runs" 'BEGIN { printf "%.6f", ns / n / 1e9 }'
    }
    zip_seconds=$(mean_seconds "$zip_command" "$work/zip.zip")
    sdk_seconds=$(mean_seconds "$sdk_command" "$work/sdk.zip")
fi

# Both archives must hold the text itself.
unzip -p "$work/zip.zip" | cmp - "$source"
unzip -p "$work/sdk.zip" | cmp - "$source"

echo
awk -v z="$zip_seconds" -v s="$sdk_seconds" \
    -v zs="$(stat -c %s "$work/zip.zip")" -v ss="$(stat -c %s "$work/sdk.zip")" 'BEGIN {
        printf "zip -9         %8.1f ms  archive %9d bytes\n", z * 1000, zs
        printf "zipFileAtPath  %8.1f ms  archive %9d bytes\n", s * 1000, ss
        printf "ratio zipFileAtPath / zip -9: %.2f\n", s / z
    }'
