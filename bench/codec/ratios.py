#!/usr/bin/env python3
"""Runs the codec benchmarks and prints each figure as a ratio to its
reference in the same run (throughput ours / throughput reference, so higher
is better). Repetitions are interleaved at random and the median of each
benchmark is used, so that load from other work on the machine falls on both
sides alike; beside each ratio, in parentheses, the range it takes between
the quartiles of both sides, which says how far one figure can be trusted.

Times are the CPU time of the benchmark's thread unless --real is given:
the machine is shared, and time spent waiting for a core is not the code's.
A FILTER (a Google Benchmark regular expression) limits the run.

Usage: bench/codec/ratios.py [--real] BUILD_DIR [REPETITIONS] [FILTER]
"""
import json
import statistics
import subprocess
import sys

# A YAML read of the 2 MB inputs takes tens of milliseconds, so its
# repetitions run longer to hold more than a couple of iterations each.
MIN_TIME = {"YamlBench": "0.5"}

# benchmark executable -> (ours, [references...]) by the last name segment
PAIRS = {
    "JsonReadBench": ("ReadJson", ["RapidJsonDocument", "RapidJsonReaderFloor"]),
    "JsonWriteBench": ("WriteJson", ["RapidJsonWriter"]),
    "MsgPackBench": ("DecodeMsgPack", ["MsgPackCUnpack"]),
    "YamlBench": ("ReadYaml", ["LibYamlEventLoop"]),
}


def Quartiles(values):
    """The first and third quartiles (both the median for fewer than four)."""
    if len(values) < 4:
        middle = statistics.median(values)
        return middle, middle
    q = statistics.quantiles(values, n=4)
    return q[0], q[2]


def main():
    args = sys.argv[1:]
    clock = "cpu_time"
    if args and args[0] == "--real":
        clock = "real_time"
        args = args[1:]
    build = args[0]
    repetitions = args[1] if len(args) > 1 else "7"
    extra = [f"--benchmark_filter={args[2]}"] if len(args) > 2 else []
    for exe, (ours, refs) in PAIRS.items():
        out = subprocess.run(
            [f"{build}/bench/codec/{exe}", "--benchmark_format=json",
             f"--benchmark_min_time={MIN_TIME.get(exe, '0.1')}",
             f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true"]
            + extra,
            capture_output=True, text=True).stdout
        if not out.strip():
            continue  # the filter matched nothing in this executable
        times = {}
        allocated = {}
        for b in json.loads(out)["benchmarks"]:
            if b.get("run_type") != "iteration":
                continue
            name = b["run_name"].replace("/real_time", "")
            times.setdefault(name, []).append(b[clock])
            if "allocated" in b:
                allocated[name] = b["allocated"]
        if not times:
            continue
        best = {name: statistics.median(values) for name, values in times.items()}
        # The quartiles of each side bound how far the ratio moves between
        # repetitions; the spread printed is that range around the median.
        quartiles = {name: Quartiles(values) for name, values in times.items()}
        prefixes = list(dict.fromkeys(name.rsplit("/", 1)[0] for name in best))
        for prefix in prefixes:
            mine = best[f"{prefix}/{ours}"]
            line = f"{prefix:28s} {ours} {mine / 1000:10.1f} us"
            for ref in refs:
                theirs = best[f"{prefix}/{ref}"]
                line += f" | {ref} {theirs / 1000:10.1f} us ratio {theirs / mine:5.2f}"
                low = quartiles[f"{prefix}/{ref}"][0] / quartiles[f"{prefix}/{ours}"][1]
                high = quartiles[f"{prefix}/{ref}"][1] / quartiles[f"{prefix}/{ours}"][0]
                line += f" ({low:4.2f}-{high:4.2f})"
            reference = f"{prefix}/{refs[0]}"
            if f"{prefix}/{ours}" in allocated and allocated.get(reference):
                line += (f" | allocated {allocated[f'{prefix}/{ours}'] / 1024:8.0f} KiB,"
                         f" {allocated[f'{prefix}/{ours}'] / allocated[reference]:4.2f} x the reference")
            print(line)


if __name__ == "__main__":
    main()
