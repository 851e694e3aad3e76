#!/usr/bin/env python3
"""Counts C++ lines of tests against lines of code, per folder.

Tests: every *_test.cpp, everything under testing/ and fuzz/, and every header
that only test files include (directly or through other test-only headers).
Code: every other .cpp and .h file git tracks. Prints one row a folder (the
first two path parts below src/ or tools/, else the first part) and the total.
"""
import os, re, subprocess, sys
from collections import defaultdict

root = subprocess.check_output(["git", "rev-parse", "--show-toplevel"], text=True).strip()
os.chdir(root)
files = [f for f in subprocess.check_output(["git", "ls-files"], text=True).split()
         if f.endswith((".cpp", ".h", ".cc", ".hpp"))]

def lines(f):
    with open(f, "rb") as h:
        return h.read().count(b"\n")

def is_test_file(f):
    return (f.endswith("_test.cpp") or f.startswith(("testing/", "fuzz/")))

include_re = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)
by_base = defaultdict(list)
for f in files:
    by_base[os.path.basename(f)].append(f)

includers = defaultdict(set)   # header -> files that include it
for f in files:
    with open(f, encoding="utf-8", errors="replace") as h:
        for inc in include_re.findall(h.read()):
            cand = os.path.normpath(os.path.join(os.path.dirname(f), inc))
            targets = [cand] if cand in files else [g for g in files if g.endswith("/" + inc) or g == inc]
            for t in targets:
                includers[t].add(f)

tests = {f for f in files if is_test_file(f)}
changed = True
while changed:      # a header all of whose includers are tests is a test header
    changed = False
    for f in files:
        if f in tests or not f.endswith((".h", ".hpp")):
            continue
        inc = includers.get(f)
        if inc and inc <= tests:
            tests.add(f)
            changed = True

def folder(f):
    parts = f.split("/")
    if parts[0] in ("src", "tools") and len(parts) > 2:
        return parts[1]
    return parts[0]

t, c = defaultdict(int), defaultdict(int)
for f in files:
    (t if f in tests else c)[folder(f)] += lines(f)
print(f"{'folder':<14}{'tests':>8}{'code':>8}{'ratio':>8}")
for k in sorted(set(t) | set(c)):
    r = f"{t[k] / c[k]:.2f}" if c[k] else "-"
    print(f"{k:<14}{t[k]:>8}{c[k]:>8}{r:>8}")
T, C = sum(t.values()), sum(c.values())
print(f"{'total':<14}{T:>8}{C:>8}{T / C:>8.2f}")
