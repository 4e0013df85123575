#!/usr/bin/env bash
# Debug records per second through the facade against a plain open/append/write/close loop of
# the same bytes, measured in one run, with their ratio.
#
# Usage: bench/compare_logger.sh BUILD_FOLDER   (an optimised build with LoggerBench built)
set -euo pipefail
build=${1:?usage: $0 BUILD_FOLDER}
"$build/bench/LoggerBench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
    --benchmark_format=json 2>/dev/null |
/usr/bin/python3 -c '
import json, sys
runs = {b["run_name"]: b for b in json.load(sys.stdin)["benchmarks"] if b["aggregate_name"] == "median"}
facade = runs["FacadeDebugRecord"]["items_per_second"]
floor = runs["OpenAppendWriteCloseFloor"]["items_per_second"]
print(f"facade debug records:        {facade:12,.0f} per second")
print(f"open/append/write/close:     {floor:12,.0f} per second")
print(f"facade / floor:              {facade / floor:12.2f}")
'
