#!/usr/bin/env python3
"""Runs the codec benchmarks and prints each figure as a ratio to its
reference in the same run (throughput ours / throughput reference, so higher
is better). Repetitions are interleaved at random and the median of each
benchmark is used, so that load from other work on the machine falls on both
sides alike.

Usage: bench/codec/ratios.py BUILD_DIR [REPETITIONS]
"""
import json
import statistics
import subprocess
import sys

# benchmark executable -> (ours, [references...]) by the last name segment
PAIRS = {
    "JsonReadBench": ("ReadJson", ["RapidJsonDocument", "RapidJsonReaderFloor"]),
    "JsonWriteBench": ("WriteJson", ["RapidJsonWriter"]),
    "MsgPackBench": ("DecodeMsgPack", ["MsgPackCUnpack"]),
    "YamlBench": ("ReadYaml", ["LibYamlEventLoop"]),
}


def main():
    build = sys.argv[1]
    repetitions = sys.argv[2] if len(sys.argv) > 2 else "7"
    for exe, (ours, refs) in PAIRS.items():
        out = subprocess.run(
            [f"{build}/bench/codec/{exe}", "--benchmark_format=json", "--benchmark_min_time=0.1",
             f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true"],
            check=True, capture_output=True, text=True).stdout
        times = {}
        for b in json.loads(out)["benchmarks"]:
            if b.get("run_type") != "iteration":
                continue
            name = b["run_name"].replace("/real_time", "")
            times.setdefault(name, []).append(b["real_time"])
        best = {name: statistics.median(values) for name, values in times.items()}
        prefixes = list(dict.fromkeys(name.rsplit("/", 1)[0] for name in best))
        for prefix in prefixes:
            mine = best[f"{prefix}/{ours}"]
            line = f"{prefix:28s} {ours} {mine / 1000:10.1f} us"
            for ref in refs:
                theirs = best[f"{prefix}/{ref}"]
                line += f" | {ref} {theirs / 1000:10.1f} us ratio {theirs / mine:5.2f}"
            print(line)


if __name__ == "__main__":
    main()
