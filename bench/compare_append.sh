#!/usr/bin/env bash
# Times appending a 50 MB file with `cat SOURCE >> TARGET` and with the SDK's
# TVKFileHelper::appendFileAtPath (through the AppendBench driver) in one hyperfine run, after
# checking that both reproduce the source's bytes, and prints both times and their ratio.
#
# Usage: bench/compare_append.sh BUILD_FOLDER
#   BUILD_FOLDER holds an optimised build with the AppendBench target built, e.g.
#   cmake -S . -B build/appendbench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
#   cmake --build build/appendbench --target AppendBench
set -euo pipefail

build=${1:?usage: $0 BUILD_FOLDER}
driver=$(realpath "$build/bench/AppendBench")
if [[ ! -x $driver ]]; then
    echo "no $driver: build the AppendBench target in $build first" >&2
    exit 1
fi
command -v hyperfine > /dev/null || { echo "hyperfine is not installed" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source="$work/source.log"
head -c $((50 * 1024 * 1024)) /dev/urandom > "$source"

# Both must reproduce the source exactly before their times mean anything.
: > "$work/cat.out"
: > "$work/sdk.out"
cat "$source" >> "$work/cat.out"
"$driver" --append "$source" "$work/sdk.out"
cmp "$source" "$work/cat.out"
cmp "$source" "$work/sdk.out"

# Every timed run starts from empty targets.
hyperfine --style basic --warmup 2 --runs 15 --export-csv "$work/times.csv" \
    --prepare ": > '$work/cat.out'; : > '$work/sdk.out'" \
    --command-name "cat >>" "cat '$source' >> '$work/cat.out'" \
    --command-name "appendFileAtPath" "'$driver' --append '$source' '$work/sdk.out'"

echo
awk -F, 'NR > 1 { mean[NR - 1] = $2; user[NR - 1] = $5; sys[NR - 1] = $6 }
    END {
        printf "cat >>            %8.1f ms  (user %6.1f ms, system %6.1f ms)\n",
               mean[1] * 1000, user[1] * 1000, sys[1] * 1000
        printf "appendFileAtPath  %8.1f ms  (user %6.1f ms, system %6.1f ms)\n",
               mean[2] * 1000, user[2] * 1000, sys[2] * 1000
        printf "ratio appendFileAtPath / cat: %.2f\n", mean[2] / mean[1]
    }' "$work/times.csv"
