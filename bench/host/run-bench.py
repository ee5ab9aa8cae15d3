#!/usr/bin/env python3
"""Measures the running host on Linux with the standard modules and the
shipped configuration, each figure as the median of several runs:

  loop      mean and 99th-percentile period of the run loop over 1000 passes
            (the host records its pass times when KESTREL_LOOP_TRACE names a
            file); limits 10.15 ms and 11 ms
  cpu       CPU time of the idle runtime as a share of one core; limit 1 %
  ready     process start to READY=1 on a notify socket (sent right after
            the "ready" log line) and to the "ready" line on the console;
            limit 50 ms
  rss       resident memory of the running runtime; limit 8 MiB

Every run uses a private copy of the executable, its modules and the
configuration, so that the host log of the build directory stays untouched.

  bench/host/run-bench.py [--bin build/linux-x64/bin] [--runs 5]
"""
import argparse
import os
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

PASSES = 1000
LIMITS = {"loop_mean_ms": 10.15, "loop_p99_ms": 11.0, "cpu_percent": 1.0, "ready_ms": 50.0, "rss_mib": 8.0}


def sandbox(bin_dir):
    work = tempfile.mkdtemp(prefix="kestrel-bench-")
    for name in os.listdir(bin_dir):
        if (name.endswith(".so") and name.startswith(("Sys", "Cmp"))) or name in ("KESTRELControl",
                                                                                "KESTRELControl.cfg"):
            shutil.copy2(os.path.join(bin_dir, name), work)
    return work


def clean_env(extra):
    env = {k: v for k, v in os.environ.items()
           if k not in ("NOTIFY_SOCKET", "INVOCATION_ID", "WATCHDOG_USEC", "WATCHDOG_PID", "KESTREL_CONSOLE")}
    env.update(extra)
    return env


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    ticks = os.sysconf("SC_CLK_TCK")
    return (int(fields[11]) + int(fields[12])) / ticks  # utime, stime


def rss_mib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024.0
    return float("nan")


def stop(proc):
    proc.send_signal(signal.SIGTERM)
    try:
        proc.wait(timeout=30)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


def run_loop(bin_dir, prefix=()):
    """One run of 1000 passes: loop periods, idle CPU share, resident memory.
    prefix runs the host under another command (chrt for a real-time run)."""
    work = sandbox(bin_dir)
    trace = os.path.join(work, "trace.txt")
    env = clean_env({"KESTREL_LOOP_TRACE": trace, "KESTREL_LOOP_TRACE_PASSES": str(PASSES + 1),
                     "KESTREL_CONSOLE": "0"})
    proc = subprocess.Popen(list(prefix) + [os.path.join(work, "KESTRELControl"), "-r"], cwd=work, env=env,
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        time.sleep(1.0)  # start-up done, loop running
        cpu_start, wall_start = cpu_seconds(proc.pid), time.monotonic()
        rss = rss_mib(proc.pid)
        time.sleep(PASSES * 0.010 - 1.0 + 0.5)
        cpu_end, wall_end = cpu_seconds(proc.pid), time.monotonic()
    finally:
        stop(proc)
    with open(trace) as f:
        times = [int(line) for line in f if line.strip()]
    shutil.rmtree(work, ignore_errors=True)
    periods = sorted((b - a) / 1e6 for a, b in zip(times, times[1:]))[:PASSES]
    if len(periods) < PASSES:
        raise RuntimeError(f"only {len(periods)} passes recorded")
    return {
        "loop_mean_ms": statistics.fmean(periods),
        "loop_p99_ms": periods[int(0.99 * len(periods)) - 1],
        "loop_max_ms": periods[-1],
        "cpu_percent": 100.0 * (cpu_end - cpu_start) / (wall_end - wall_start),
        "rss_mib": rss,
    }


def run_ready_notify(bin_dir):
    """Process start to READY=1 on an abstract notify socket (service mode)."""
    work = sandbox(bin_dir)
    name = f"@kestrel-bench-{os.getpid()}-{time.monotonic_ns()}"
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    sock.bind("\0" + name[1:])
    sock.settimeout(10)
    env = clean_env({"NOTIFY_SOCKET": name})
    start = time.monotonic()
    proc = subprocess.Popen([os.path.join(work, "KESTRELControl")], cwd=work, env=env,
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        while True:
            message = sock.recv(512).decode()
            if "READY=1" in message:
                elapsed = time.monotonic() - start
                break
    finally:
        stop(proc)
        sock.close()
        shutil.rmtree(work, ignore_errors=True)
    return elapsed * 1000.0


def run_ready_console(bin_dir):
    """Process start to the "ready" line that the logger echoes on the console."""
    work = sandbox(bin_dir)
    env = clean_env({"KESTREL_CONSOLE": "1"})
    start = time.monotonic()
    proc = subprocess.Popen([os.path.join(work, "KESTRELControl"), "-r"], cwd=work, env=env,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    elapsed = None
    try:
        for raw in proc.stdout:
            if b"KESTREL Control ready" in raw:
                elapsed = time.monotonic() - start
                break
    finally:
        stop(proc)
        shutil.rmtree(work, ignore_errors=True)
    if elapsed is None:
        raise RuntimeError("no ready line")
    return elapsed * 1000.0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    parser.add_argument("--bin", default=os.path.join(root, "build", "linux-x64", "bin"))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--fifo", action="store_true",
                        help="also measure the loop under SCHED_FIFO (chrt -f 10), as a unit with "
                             "CPUSchedulingPolicy=fifo would run it; needs the right to use it")
    args = parser.parse_args()
    if not os.path.exists(os.path.join(args.bin, "KESTRELControl")):
        sys.exit(f"no KESTRELControl in {args.bin}: build the linux-x64 preset first")

    loops = [run_loop(args.bin) for _ in range(args.runs)]
    ready_notify = [run_ready_notify(args.bin) for _ in range(max(args.runs, 10))]
    ready_console = [run_ready_console(args.bin) for _ in range(max(args.runs, 10))]

    results = {key: statistics.median(run[key] for run in loops) for key in loops[0]}
    results["ready_ms"] = statistics.median(ready_notify)
    results["ready_console_ms"] = statistics.median(ready_console)

    print(f"host benchmark, medians of {args.runs} loop runs ({PASSES} passes each) and "
          f"{len(ready_notify)} start-ups")
    rows = [("loop mean period", "loop_mean_ms", "ms"), ("loop p99 period", "loop_p99_ms", "ms"),
            ("loop max period", "loop_max_ms", "ms"), ("idle CPU of one core", "cpu_percent", "%"),
            ("start to READY=1", "ready_ms", "ms"), ("start to ready line", "ready_console_ms", "ms"),
            ("resident memory", "rss_mib", "MiB")]
    failed = False
    for label, key, unit in rows:
        limit = LIMITS.get(key)
        verdict = ""
        if limit is not None:
            ok = results[key] <= limit
            failed |= not ok
            verdict = f"(limit {limit} {unit}: {'ok' if ok else 'OVER'})"
        print(f"  {label:22s} {results[key]:9.3f} {unit:4s} {verdict}")
    if args.fifo:
        fifo = [run_loop(args.bin, ("chrt", "-f", "10")) for _ in range(args.runs)]
        print("  under SCHED_FIFO (chrt -f 10):")
        for label, key, unit in rows[:3]:
            print(f"  {label:22s} {statistics.median(run[key] for run in fifo):9.3f} {unit}")
    with open("/proc/loadavg") as f:
        print(f"  load average at the end: {' '.join(f.read().split()[:3])} on {os.cpu_count()} processors")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
