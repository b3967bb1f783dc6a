#!/usr/bin/env python3
"""Runs the codec benchmarks and prints each figure as a ratio to its
reference in the same run (throughput ours / throughput reference, so higher
is better). Uses the fastest of the repetitions of each benchmark, which is
the least disturbed by other work on the machine.

Usage: bench/codec/ratios.py BUILD_DIR [REPETITIONS]
"""
import json
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
            [f"{build}/bench/codec/{exe}", "--benchmark_format=json", "--benchmark_min_time=0.2",
             f"--benchmark_repetitions={repetitions}"],
            check=True, capture_output=True, text=True).stdout
        best = {}
        for b in json.loads(out)["benchmarks"]:
            if b.get("run_type") != "iteration":
                continue
            name = b["run_name"].replace("/real_time", "")
            best[name] = min(best.get(name, float("inf")), b["real_time"])
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
