#!/usr/bin/env python3
"""What the tests reach of the product code, from a build configured with --coverage.

usage:
  coverage.py by-test BUILD OUT [PROGRAM...]
      runs every test case of the named CTest programs (default: all) alone and writes
      OUT/cases.json  {case: {"lines": ["file:line"...], "branches": ["file:line:n"...]}}
      OUT/report.txt  per case: what it reaches, and how much of it no other case reaches
  coverage.py union BUILD OUT.txt [PROGRAM...]
      runs the named programs whole and writes what they reach together, one item a line;
      `comm -23 before.txt after.txt` then lists what a change stopped reaching.
The sources are the checkout this script lives in; tests/ and GoogleTest are not counted.
"""
import collections, glob, json, os, subprocess, sys

SRC = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def programs(build, only):
    info = json.loads(subprocess.check_output(["ctest", "--show-only=json-v1"], cwd=build))
    for t in info["tests"]:
        if only and t["name"] not in only:
            continue
        env, wd = dict(os.environ), build
        for p in t.get("properties", []):
            if p["name"] == "ENVIRONMENT":
                env.update(kv.split("=", 1) for kv in p["value"])
            elif p["name"] == "WORKING_DIRECTORY":
                wd = p["value"]
        yield t["name"], t["command"], wd, env


def clear(build):
    for f in glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True):
        os.unlink(f)


def collect(build):
    """The product lines ("file:line") and branch outcomes ("file:line:n") the counters show."""
    files = [f for f in glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True)
             if "/googletest/" not in f and "/tests/" not in f]
    lines, branches = set(), set()
    if not files:
        return lines, branches
    r = subprocess.run(["gcov", "-j", "-b", "-t"] + files, cwd="/tmp", capture_output=True, text=True)
    for doc in r.stdout.splitlines():
        if not doc.startswith("{"):
            continue
        for f in json.loads(doc).get("files", []):
            name = f["file"]
            if not name.startswith(SRC + "/") or "/tests/" in name or "/googletest/" in name:
                continue
            rel = os.path.relpath(name, SRC)
            for ln in f["lines"]:
                if ln["count"] > 0:
                    lines.add(f"{rel}:{ln['line_number']}")
                for i, b in enumerate(ln.get("branches", [])):
                    if b["count"] > 0:
                        branches.add(f"{rel}:{ln['line_number']}:{i}")
    return lines, branches


def by_test(build, out, only):
    os.makedirs(out, exist_ok=True)
    cases = {}
    for name, cmd, wd, env in programs(build, only):
        listing = subprocess.run(cmd[:1] + ["--gtest_list_tests"], capture_output=True, text=True, cwd=wd,
                                 env=env).stdout
        suite, names = None, []
        for l in listing.splitlines():
            if not l.strip():
                continue
            if not l.startswith(" "):
                suite = l.split("#")[0].strip()
            else:
                names.append(suite + l.split("#")[0].strip())
        print(f"{name}: {len(names)} cases", flush=True)
        for case in names:
            clear(build)
            subprocess.run(cmd + [f"--gtest_filter={case}"], capture_output=True, cwd=wd, env=env, timeout=300)
            l, b = collect(build)
            cases[f"{name}/{case}"] = {"lines": sorted(l), "branches": sorted(b)}
    with open(os.path.join(out, "cases.json"), "w") as fh:
        json.dump(cases, fh)
    lc, bc = collections.Counter(), collections.Counter()
    for c in cases.values():
        lc.update(c["lines"])
        bc.update(c["branches"])
    alone = 0
    with open(os.path.join(out, "report.txt"), "w") as fh:
        for k, c in sorted(cases.items()):
            ul = [x for x in c["lines"] if lc[x] == 1]
            ub = [x for x in c["branches"] if bc[x] == 1]
            alone += bool(ul or ub)
            fh.write(f"{k}\tlines={len(c['lines'])}\tbranches={len(c['branches'])}\tunique_lines={len(ul)}"
                     f"\tunique_branches={len(ub)}\t{' '.join(ul[:12])}\n")
    print(f"{len(cases)} cases, {alone} reach something no other case reaches")


def union(build, out, only):
    clear(build)
    for name, cmd, wd, env in programs(build, only):
        r = subprocess.run(cmd, cwd=wd, env=env, capture_output=True, text=True, timeout=900)
        print(f"{name}: exit {r.returncode}")
    lines, branches = collect(build)
    with open(out, "w") as fh:
        fh.write("\n".join(sorted(lines | branches)) + "\n")
    print(f"lines {len(lines)}  branch outcomes {len(branches)}")


if len(sys.argv) < 4 or sys.argv[1] not in ("by-test", "union"):
    sys.exit(__doc__)
(by_test if sys.argv[1] == "by-test" else union)(sys.argv[2], sys.argv[3], sys.argv[4:])
