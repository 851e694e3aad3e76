#!/usr/bin/env bash
# Runs the command examples of docs/guide.md, so that the guide stays true.
#
# A fenced block whose info string is "sh test" is a command example: the
# blocks run in order, in one shell (set -euo pipefail), in a fresh folder,
# with the built NorvaGuestIndexer and ngi-catalogue on PATH. A block fenced
# "text output" right after one is what that block must print (standard
# output and error together); "[...]" in it stands for any text on the line
# (dates, times, folders of this run). A block that fails, or prints other
# text, fails the suite with the block's line in the guide.
# Uses the programs of build/ (or $NGI_BUILD_DIR); skips when they are not
# there.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${NGI_BUILD_DIR:-build}
[[ $build == /* ]] || build=$root/$build
bins=("$build/src/app" "$build/catalogue")
for need in "${bins[0]}/NorvaGuestIndexer" "${bins[1]}/ngi-catalogue" iconv python3; do
  command -v "$need" >/dev/null || { echo "test-guide: skipped ($need is missing or not built)"; exit 0; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-guide.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/run" "$work/captured"
export PATH="${bins[0]}:${bins[1]}:$PATH"
export NGI_LOCK_DIR=$work  # never meets another run's single-instance lock

python3 - "$root/docs/guide.md" "$work" <<'PY'
import re, subprocess, sys

guide, work = sys.argv[1], sys.argv[2]
lines = open(guide, encoding="utf-8").read().split("\n")
blocks = []  # [line, kind, text]
i = 0
while i < len(lines):
    m = re.match(r"^```(.*)$", lines[i])
    if not m:
        i += 1
        continue
    info, start, body = m.group(1).strip(), i + 1, []
    i += 1
    while i < len(lines) and lines[i] != "```":
        body.append(lines[i])
        i += 1
    i += 1
    if info in ("sh test", "text output"):
        blocks.append([start, info, "\n".join(body)])

script = ["set -euo pipefail", 'trap \'echo "block at line $NGI_BLOCK failed (exit $?)" >&2\' ERR']
tests = []
for n, (line, kind, text) in enumerate(blocks):
    if kind == "text output":
        if n == 0 or blocks[n - 1][1] != "sh test":
            sys.exit("test-guide: output block at line %d follows no command block" % line)
        continue
    expected = blocks[n + 1][2] if n + 1 < len(blocks) and blocks[n + 1][1] == "text output" else None
    tests.append((line, expected))
    script += ["NGI_BLOCK=%d" % line, "{", text, '} >"%s/captured/%d" 2>&1' % (work, line)]
open(work + "/guide.sh", "w").write("\n".join(script) + "\n")
run = subprocess.run(["bash", work + "/guide.sh"], cwd=work + "/run", capture_output=True, text=True)

def matches(expected, actual):
    exp, act = expected.rstrip("\n").split("\n"), actual.rstrip("\n").split("\n")
    if len(exp) != len(act):
        return False
    for e, a in zip(exp, act):
        pattern = ".*".join(re.escape(part) for part in e.rstrip().split("[...]"))
        if not re.fullmatch(pattern, a.rstrip()):
            return False
    return True

failed = run.returncode != 0
if failed:
    sys.stderr.write(run.stderr)
for line, expected in tests:
    try:
        actual = open("%s/captured/%d" % (work, line), encoding="utf-8", errors="replace").read()
    except FileNotFoundError:
        break
    actual = actual.replace("\r", "").replace("\0", "")
    if run.returncode != 0 and ("line %d failed" % line) in run.stderr:
        sys.stderr.write("docs/guide.md:%d: the block failed; it printed:\n%s\n" % (line, actual))
    elif expected is not None and not matches(expected, actual):
        failed = True
        sys.stderr.write("docs/guide.md:%d: the block printed:\n%s\n--- the guide shows:\n%s\n" % (line, actual, expected))
if failed:
    sys.exit(1)
print("test-guide: %d command examples of docs/guide.md ran as shown" % len(tests))
PY
