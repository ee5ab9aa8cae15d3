#!/usr/bin/env python3
"""Runs a benchmark program of bench/ several times, each a fresh process, and prints the median
of every ratio it reports. Each run places its data elsewhere in memory (address-space layout
randomisation), and on some processors that alone moves single figures by a quarter; the median
over processes is the figure to quote.

    bench/run-medians.py --runs 7 build/linux-x64/bin/cmutl_bench -- --benchmark_repetitions=5
"""
import argparse
import re
import statistics
import subprocess
import sys

# A line of a ratio table: the ratio is the number followed by "x" (mempool, modules, cm) or the
# number after the word "ratio" (cmutl).
RATIO = re.compile(r"(?:ratio\s+(?P<a>\d+(?:\.\d+)?))|(?:\s(?P<b>\d+(?:\.\d+)?)x(?:\s|$))")
NUMBER = re.compile(r"\d+(?:\.\d+)?")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--runs", type=int, default=5, help="processes to run (default 5)")
    parser.add_argument("program", help="the benchmark program")
    parser.add_argument("args", nargs="*", help="arguments for the program (after --)")
    options = parser.parse_args()
    ratios = {}
    order = []
    for run in range(options.runs):
        print(f"run {run + 1} of {options.runs} ...", file=sys.stderr, flush=True)
        done = subprocess.run([options.program, *options.args], capture_output=True, text=True)
        if done.returncode not in (0, 2):  # 2: a goal was missed, the figures still count
            sys.exit(f"{options.program} failed with {done.returncode}:\n{done.stderr}")
        for line in done.stdout.splitlines():
            match = RATIO.search(line)
            if not match:
                continue
            # The label is the words in front of the first figure.
            words = []
            for word in line.split():
                if NUMBER.fullmatch(word.rstrip("x")):
                    break
                words.append(word)
            label = " ".join(word for word in words if word not in ("CMUtl", "C", "library"))
            if label not in ratios:
                ratios[label] = []
                order.append(label)
            ratios[label].append(float(match.group("a") or match.group("b")))
    width = max((len(label) for label in order), default=0)
    print(f"median ratio over {options.runs} processes (min .. max)")
    for label in order:
        values = ratios[label]
        print(f"  {label:<{width}}  {statistics.median(values):5.2f}  ({min(values):.2f} .. {max(values):.2f})")


if __name__ == "__main__":
    main()
