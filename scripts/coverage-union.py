#!/usr/bin/env python3
"""Product-code lines and branch outcomes that whole CTest programs reach together.

usage: coverage-union.py BUILD SRC OUT.txt PROGRAM...
Runs the named programs of a --coverage build (all their cases), writes one
covered item per line to OUT.txt ("file:line" and "file:line:branch") and
prints the counts. Compare two OUT files with:  comm -23 before.txt after.txt
"""
import glob, json, os, subprocess, sys

if len(sys.argv) < 4:
    sys.exit(__doc__)
build, src, out = sys.argv[1:4]
src = os.path.abspath(src)
only = sys.argv[4:]
info = json.loads(subprocess.check_output(["ctest", "--show-only=json-v1"], cwd=build))
for f in glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True):
    os.unlink(f)
for t in info["tests"]:
    if only and t["name"] not in only:
        continue
    env = dict(os.environ)
    wd = build
    for p in t.get("properties", []):
        if p["name"] == "ENVIRONMENT":
            for kv in p["value"]:
                k, _, v = kv.partition("=")
                env[k] = v
        if p["name"] == "WORKING_DIRECTORY":
            wd = p["value"]
    r = subprocess.run(t["command"], cwd=wd, env=env, capture_output=True, text=True, timeout=900)
    print(f"{t['name']}: exit {r.returncode}")
files = [f for f in glob.glob(os.path.join(build, "**", "*.gcda"), recursive=True)
         if "/googletest/" not in f and "/tests/" not in f]
items = set()
r = subprocess.run(["gcov", "-j", "-b", "-t"] + files, cwd="/tmp", capture_output=True, text=True)
for doc in r.stdout.splitlines():
    if not doc.startswith("{"):
        continue
    for f in json.loads(doc).get("files", []):
        name = f["file"]
        if not name.startswith(src) or "/tests/" in name or "/googletest/" in name:
            continue
        rel = os.path.relpath(name, src)
        for ln in f["lines"]:
            if ln["count"] > 0:
                items.add(f"{rel}:{ln['line_number']}")
            for i, b in enumerate(ln.get("branches", [])):
                if b["count"] > 0:
                    items.add(f"{rel}:{ln['line_number']}:{i}")
with open(out, "w") as fh:
    fh.write("\n".join(sorted(items)) + "\n")
nl = sum(1 for i in items if i.count(":") == 1)
print(f"lines {nl}  branch outcomes {len(items) - nl}")
