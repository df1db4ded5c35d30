"""The inner loops, each for itself: what Google Benchmark says of build/bench/inner."""

import json
import statistics
import subprocess

from frame.report import Table

REPETITIONS = 5
UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def shown(seconds):
    for unit, name in ((1e-3, "ms"), (1e-6, "µs"), (1e-9, "ns")):
        if seconds >= unit:
            return f"{seconds / unit:.1f} {name}"
    return f"{seconds / 1e-9:.2f} ns"


def rate(run):
    if "items_per_second" in run:
        return f"{1e9 / run['items_per_second']:.0f} ns a line"
    if "bytes_per_second" in run:
        return f"{run['bytes_per_second'] / 2**20:.0f} MiB/s"
    return ""


def measure(bench):
    command = [bench.floor("inner"), "--benchmark_format=json", f"--benchmark_repetitions={bench.rounds(REPETITIONS)}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.1"]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
    runs = {}
    for run in json.loads(done.stdout)["benchmarks"]:
        if run["run_type"] == "iteration":
            runs.setdefault(run["run_name"], []).append(run)
    rows = [[name, shown(statistics.median(run["cpu_time"] for run in repeated) * UNITS[repeated[0]["time_unit"]]),
             rate(sorted(repeated, key=lambda run: run["cpu_time"])[len(repeated) // 2])]
            for name, repeated in sorted(runs.items())]
    return [Table("inner", "The inner loops, processor time", ["loop / size", "a pass", "rate"], rows)]
