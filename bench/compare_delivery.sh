#!/usr/bin/env bash
# Event delivery end to end, to the reference collector (tools/collector) on loopback, against
# the `curl` command-line tool posting the very same bodies: the transport's floor.
#
#  1. SDK, burst (DeliveryDriver --mode burst): EVENTS recordEvent calls back to back, then the
#     main loop until the collector has stored them all. Events per second from the first call
#     to the last event stored, and each event's latency from its recordEvent call until the
#     collector's index got its line (queueing behind the earlier events included).
#     The driver runs the SDK in debug mode, which keeps each sent submission in events/Sent (a
#     copy and a delete per file); "burst, release" is the same run with debug off, where a
#     sent submission is deleted.
#  2. SDK, serial (--mode serial, debug on): one event at a time, the next recorded once the
#     previous is stored: the latency of an event that finds the queue empty.
#  3. curl: the bodies the SDK sent in run 1 (kept in events/Sent, as the driver runs in debug
#     mode) posted again by one curl process, one request after the other, each with the
#     headers the collector saw from the SDK, on a connection of its own ("Connection: close",
#     no TLS session reuse), verifying the chain against the collector's CA and pinning its key
#     as the SDK does. Requests per second over the curl process's whole run, and curl's own
#     time per request (time_total).
# Every run gets a fresh collector and fresh SDK folders. The tables show the median over the
# repetitions of each figure. CPU times: the SDK's main thread (recordEvent calls and main-loop
# work), the whole client process (SDK: gathering, zipping, sending threads, TLS; curl: all of
# it), and the collector process, whose CPU time over the run's wall time says how busy it was:
# the collector is one Python process, so near 1.0 means it is what limits the rate.
#
# Usage: bench/compare_delivery.sh BUILD_FOLDER [EVENTS] [REPETITIONS]
#   BUILD_FOLDER holds an optimised build with the DeliveryDriver target, e.g.
#   cmake -S . -B build/deliverybench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
#   cmake --build build/deliverybench --target DeliveryDriver
set -euo pipefail

build=${1:?usage: $0 BUILD_FOLDER [EVENTS] [REPETITIONS]}
events=${2:-200}
repetitions=${3:-3}
driver=$(realpath "$build/bench/DeliveryDriver")
if [[ ! -x $driver ]]; then
    echo "no $driver: build the DeliveryDriver target in $build first" >&2
    exit 1
fi
command -v curl > /dev/null || { echo "curl is not installed" >&2; exit 1; }
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

/usr/bin/python3 - "$driver" "$events" "$repetitions" "$work" <<'EOF'
import atexit, json, os, pathlib, resource, signal, statistics, subprocess, sys, time

driver, events, repetitions, work = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), \
    pathlib.Path(sys.argv[4])
collector_script = pathlib.Path("tools/collector/collector.py").resolve()
ticks = os.sysconf("SC_CLK_TCK")


running = []


@atexit.register
def stop_running_collectors():
    for process in running:
        if process.poll() is None:
            process.kill()
            process.wait()


class Collector:
    """A fresh collector; stopped by `stop`, or killed when this script ends early."""

    def __init__(self, name):
        self.data = work / name
        self.data.mkdir()
        self.process = subprocess.Popen(
            ["/usr/bin/python3", str(collector_script), "--port", "0", "--data-dir",
             str(self.data), "--quiet"], stdout=subprocess.PIPE)
        running.append(self.process)
        self.ready = json.loads(self.process.stdout.readline())
        self.host = f"localhost:{self.ready['port']}"

    def cpu_seconds(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1]
        utime, stime = fields.split()[11:13]
        return (int(utime) + int(stime)) / ticks

    def index(self):
        lines = (self.data / "index.jsonl").read_text().splitlines()
        return [json.loads(line) for line in lines]

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        if self.process.wait(timeout=30) != 0:
            sys.exit("the collector did not stop cleanly")


def sdk_environment(folder):
    folder.mkdir()
    (folder / "home").mkdir()
    return dict(os.environ, HOME=str(folder / "home"), XDG_CACHE_HOME=str(folder / "cache"),
                XDG_DATA_HOME=str(folder / "data"), XDG_CONFIG_HOME=str(folder / "config"))


def run_driver(mode, run, debug="on"):
    collector = Collector(f"collector-{mode}-{debug}-{run}")
    env = sdk_environment(work / f"sdk-{mode}-{debug}-{run}")
    cpu_before = collector.cpu_seconds()
    finished = subprocess.run(
        [driver, "--host", collector.host, "--pin", collector.ready["leaf_key_pin_rsa2048_prefix"],
         "--ca", collector.ready["ca"], "--collector-data", str(collector.data),
         "--events", str(events), "--mode", mode, "--debug", debug],
        env=env, capture_output=True, text=True, timeout=900)
    collector_cpu = collector.cpu_seconds() - cpu_before
    if finished.returncode != 0:
        sys.exit(f"DeliveryDriver {mode} failed:\n{finished.stderr[-3000:]}")
    errors = [line for line in finished.stderr.splitlines() if "Tarvik Error" in line]
    if errors:
        sys.exit(f"DeliveryDriver {mode} reported errors:\n" + "\n".join(errors[:10]))
    result = json.loads(finished.stdout)
    result["collector_cpu_ms_per_event"] = collector_cpu / events * 1e3
    result["collector_busy"] = collector_cpu / result["loop_seconds"]
    stored = collector.index()
    collector.stop()
    sent = pathlib.Path(env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache" / "events" / "Sent"
    return result, stored, sent


def curl_config(stored, sent, collector):
    """One block per request, in the SDK's order, with the headers the SDK's request had."""
    blocks = []
    for entry in stored:
        headers = json.loads((pathlib.Path(entry["path"]) / "headers.json").read_text())
        lines = [f'url = "https://{collector.host}/v1/event/save.json"',
                 f'cacert = "{collector.ready["ca"]}"',
                 f'pinnedpubkey = "sha256//{collector.ready["leaf_pin"]}"',
                 "no-sessionid", "silent", "show-error", 'output = "/dev/null"',
                 'write-out = "%{http_code} %{time_total}\\n"',
                 f'data-binary = "@{sent / entry["uuid"] / "httpBody.txt"}"',
                 'header = "Connection: close"', 'header = "Expect:"', 'header = "User-Agent:"']
        lines += [f'header = "{name}: {value}"' for name, value in headers.items()
                  if name not in ("Host", "Content-Length")]
        blocks.append("\n".join(lines))
    return "\nnext\n".join(blocks) + "\n"


def run_curl(stored, sent, run):
    collector = Collector(f"collector-curl-{run}")
    config = work / f"curl-{run}.conf"
    config.write_text(curl_config(stored, sent, collector))
    cpu_before = collector.cpu_seconds()
    children_before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    finished = subprocess.run(["curl", "--config", str(config)], capture_output=True, text=True,
                              timeout=900)
    wall = time.monotonic() - start
    children = resource.getrusage(resource.RUSAGE_CHILDREN)
    collector_cpu = collector.cpu_seconds() - cpu_before
    answers = [line.split() for line in finished.stdout.splitlines()]
    if finished.returncode != 0 or len(answers) != len(stored) or \
            any(status != "200" for status, _ in answers):
        sys.exit(f"curl failed ({finished.returncode}): {finished.stdout[-500:]} {finished.stderr[-2000:]}")
    again = collector.index()
    collector.stop()
    # The same submissions, byte for byte the same bodies, each stored once.
    if [(e["uuid"], e["body_size"]) for e in again] != \
            [(e["uuid"], e["body_size"]) for e in stored] or any(e["duplicate"] for e in again):
        sys.exit("the collector did not store what the SDK had sent")
    times = sorted(float(seconds) * 1e3 for _, seconds in answers)
    cpu = (children.ru_utime - children_before.ru_utime) + \
        (children.ru_stime - children_before.ru_stime)
    return {"events_per_second": len(stored) / wall,
            "latency_ms_median": statistics.median(times),
            "latency_ms_p99": times[max(0, -(-99 * len(times) // 100) - 1)],
            "process_cpu_us_per_event": cpu / len(stored) * 1e6,
            "collector_cpu_ms_per_event": collector_cpu / len(stored) * 1e3,
            "collector_busy": collector_cpu / wall}


burst, release, serial, curl = [], [], [], []
for run in range(repetitions):
    result, stored, sent = run_driver("burst", run)
    burst.append(result)
    curl.append(run_curl(stored, sent, run))
    release.append(run_driver("burst", run, debug="off")[0])
    serial.append(run_driver("serial", run)[0])
    print(f"run {run + 1}/{repetitions}: SDK burst {burst[-1]['events_per_second']:.1f}/s, "
          f"release {release[-1]['events_per_second']:.1f}/s, "
          f"serial {serial[-1]['events_per_second']:.1f}/s, "
          f"curl {curl[-1]['events_per_second']:.1f}/s", file=sys.stderr)


def median(runs, key):
    return statistics.median(run[key] for run in runs)


print(f"{events} events a run, {repetitions} runs, median of the runs\n")
columns = (burst, release, serial, curl)
sdk = columns[:3]
row = "{:<36}" + "{:>16}" * 4


def line(label, key, form, runs=columns):
    cells = [form.format(median(r, key)) for r in runs] + ["-"] * (len(columns) - len(runs))
    print(row.format(label, *cells))


print(row.format("", "SDK burst", "burst, release", "SDK serial", "curl"))
line("events per second", "events_per_second", "{:.1f}")
line("latency median, ms", "latency_ms_median", "{:.1f}")
line("latency p99, ms", "latency_ms_p99", "{:.1f}")
line("main-thread CPU per event, us", "main_thread_cpu_us_per_event", "{:.0f}", sdk)
line("  of it in recordEvent, us", "record_call_cpu_us_per_event", "{:.0f}", sdk)
line("client process CPU per event, us", "process_cpu_us_per_event", "{:.0f}")
line("collector CPU per event, ms", "collector_cpu_ms_per_event", "{:.2f}")
line("collector busy (CPU / wall)", "collector_busy", "{:.2f}")
for label, runs in (("SDK burst", burst), ("burst, release", release)):
    ratios = [b["events_per_second"] / c["events_per_second"] for b, c in zip(runs, curl)]
    print(f"{'' if runs is release else chr(10)}{label} / curl, events per second: "
          f"{statistics.median(ratios):.2f} (per run: {', '.join(f'{r:.2f}' for r in ratios)})")
print("latency: SDK from the recordEvent call to the collector's index line; curl its "
      "time_total per request (sending only)")
EOF
