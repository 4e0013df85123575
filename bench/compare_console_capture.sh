#!/usr/bin/env bash
# Megabytes per second a host writes to standard output with the SDK capturing it (into the
# system log, echoed to the real standard output, here /dev/null), against the same writes to a
# file with no capture. Both times run until the bytes are in their file.
#
# Usage: bench/compare_console_capture.sh BUILD_FOLDER [MEGABYTES]
set -euo pipefail
build=${1:?usage: $0 BUILD_FOLDER [MEGABYTES]}
megabytes=${2:-200}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME="$work" XDG_CACHE_HOME="$work/cache" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config"
driver="$build/bench/ConsoleCaptureBench"
for run in 1 2 3; do
  "$driver" file "$megabytes" "$work/plain.txt" > /dev/null
  "$driver" capture "$megabytes" > /dev/null
done 2>&1 | /usr/bin/python3 -c '
import re, sys
rates = {"file": [], "capture": []}
for line in sys.stdin:
    m = re.match(r"(\w+): .* = ([\d.]+) MB/s", line)
    if m:
        rates[m.group(1)].append(float(m.group(2)))
capture, plain = max(rates["capture"]), max(rates["file"])
print(f"captured standard output: {capture:8.1f} MB/s (best of 3)")
print(f"plain file, no capture:   {plain:8.1f} MB/s (best of 3)")
print(f"capture / file:           {capture / plain:8.2f}")
'
