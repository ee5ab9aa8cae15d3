#!/usr/bin/env python3
"""Per-test-case coverage of the product code, and what each test covers alone.

Runs every test case of every CTest program of a --coverage build by itself,
collects the lines and branch outcomes of product sources it reached, and
writes:
  OUT/cases.json   {case: {"lines": [...], "branches": [...]}}
  OUT/report.txt   per case: lines/branches covered, unique lines/branches

usage: coverage-by-test.py BUILD SRC OUT [PROGRAM...]   (SRC: absolute path of the sources)
"""
import glob, json, os, subprocess, sys, collections

if len(sys.argv) < 4:
    sys.exit(__doc__)
build = sys.argv[1]
src = os.path.abspath(sys.argv[2])
out = sys.argv[3]
only = sys.argv[4:]  # optional program names
os.makedirs(out, exist_ok=True)

info = json.loads(subprocess.check_output(["ctest", "--show-only=json-v1"], cwd=build))
programs = []
for t in info["tests"]:
    if only and t["name"] not in only:
        continue
    cmd = t["command"]
    wd = build
    for p in t.get("properties", []):
        if p["name"] == "WORKING_DIRECTORY":
            wd = p["value"]
    env = {}
    for p in t.get("properties", []):
        if p["name"] == "ENVIRONMENT":
            for kv in p["value"]:
                k, _, v = kv.partition("=")
                env[k] = v
    programs.append((t["name"], cmd, wd, env))


def clear():
    for f in glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True):
        os.unlink(f)


def collect():
    files = glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True)
    files = [f for f in files if "/googletest/" not in f and "/tests/" not in f]
    lines, branches = set(), set()
    if not files:
        return lines, branches
    # gcov wants to run where it can find the notes files next to the data.
    r = subprocess.run(["gcov", "-j", "-b", "-t"] + files, cwd="/tmp", capture_output=True, text=True)
    for doc in r.stdout.splitlines():
        doc = doc.strip()
        if not doc.startswith("{"):
            continue
        d = json.loads(doc)
        for f in d.get("files", []):
            name = f["file"]
            if not name.startswith(src) or "/tests/" in name or "/googletest/" in name:
                continue
            rel = os.path.relpath(name, src)
            for ln in f["lines"]:
                if ln["count"] > 0:
                    lines.add(f"{rel}:{ln['line_number']}")
                for i, b in enumerate(ln.get("branches", [])):
                    if b["count"] > 0:
                        branches.add(f"{rel}:{ln['line_number']}:{i}")
    return lines, branches


cases = {}
for name, cmd, wd, env in programs:
    listing = subprocess.run(cmd[:1] + ["--gtest_list_tests"], capture_output=True, text=True, cwd=wd,
                             env={**os.environ, **env}).stdout
    suite = None
    names = []
    for l in listing.splitlines():
        if not l.strip():
            continue
        if not l.startswith(" "):
            suite = l.split("#")[0].strip()
        else:
            names.append(suite + l.split("#")[0].strip())
    print(f"{name}: {len(names)} cases", flush=True)
    for case in names:
        clear()
        subprocess.run(cmd + [f"--gtest_filter={case}"], capture_output=True, cwd=wd, env={**os.environ, **env},
                       timeout=300)
        l, b = collect()
        cases[f"{name}/{case}"] = {"lines": sorted(l), "branches": sorted(b)}
    with open(os.path.join(out, "cases.json"), "w") as fh:
        json.dump(cases, fh)

lc = collections.Counter()
bc = collections.Counter()
for c in cases.values():
    lc.update(c["lines"])
    bc.update(c["branches"])
with open(os.path.join(out, "report.txt"), "w") as fh:
    for k, c in sorted(cases.items()):
        ul = [x for x in c["lines"] if lc[x] == 1]
        ub = [x for x in c["branches"] if bc[x] == 1]
        fh.write(f"{k}\tlines={len(c['lines'])}\tbranches={len(c['branches'])}\tunique_lines={len(ul)}"
                 f"\tunique_branches={len(ub)}\t{' '.join(ul[:12])}\n")
print("done", len(cases))
