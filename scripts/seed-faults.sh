#!/usr/bin/env bash
# Measures what the tests catch: applies the small faults listed in
# scripts/seed-faults.tsv one at a time, rebuilds incrementally and runs the
# tests until the first one fails. Not part of the test command (a whole run
# takes tens of minutes).
#
#   scripts/seed-faults.sh [--check] [NAME...]
#
# With NAMEs, only those faults run; --check only verifies that every
# pattern still occurs exactly once (no build). For each fault:
#   1. the pattern must occur exactly once in its file, else the fault is
#      reported "stale" (the code moved; fix the row);
#   2. the file is patched, the folder's own test program is rebuilt and
#      run (--gtest_fail_fast): a failure there is "caught";
#   3. else everything is rebuilt and ctest runs (--stop-on-failure), then
#      the fast suites (scripts/test-catalogue.sh, test-guide.sh,
#      test-store.sh); a failure is "caught", none is "missed";
#   4. the file is put back as it was, also on error or Ctrl-C.
# A fault that does not compile is "nobuild". Before the first fault the
# untouched tree is built and must pass ctest and the fast suites (skip with
# NGI_SEED_NO_BASELINE=1 right after a run that showed it). The score is
# caught / (caught + missed).
#
# Refuses to run on a work tree with changes to tracked files. Builds in
# $NGI_SEED_BUILD (default build-seeds), under nice, with $NGI_JOBS jobs
# (default 2); logs of each fault go to $NGI_SEED_LOGS (default
# build-seeds/seed-logs).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
list=$root/scripts/seed-faults.tsv
build=${NGI_SEED_BUILD:-$root/build-seeds}
[[ $build == /* ]] || build=$root/$build
jobs=${NGI_JOBS:-2}
logs=${NGI_SEED_LOGS:-$build/seed-logs}
suites=(scripts/test-catalogue.sh scripts/test-guide.sh scripts/test-store.sh)
run() { nice -n 19 "$@"; }

check_only=0
if [[ ${1:-} == --check ]]; then check_only=1; shift; fi
wanted=("$@")

names=() files=() patterns=() replacements=() whats=()
while IFS=$'\t' read -r name file pattern replacement what; do
  [[ -z $name || $name == \#* ]] && continue
  if ((${#wanted[@]})); then
    keep=0
    for w in "${wanted[@]}"; do [[ $w == "$name" ]] && keep=1; done
    ((keep)) || continue
  fi
  names+=("$name") files+=("$file") patterns+=("$pattern") replacements+=("$replacement") whats+=("$what")
done <"$list"
if ((${#wanted[@]})) && ((${#names[@]} != ${#wanted[@]})); then
  echo "seed-faults: unknown fault name among: ${wanted[*]}" >&2
  exit 2
fi

# count FILE PATTERN: how often the literal pattern occurs in the file.
count() { python3 -c 'import sys; print(open(sys.argv[1], encoding="utf-8").read().count(sys.argv[2]))' "$1" "$2"; }
# patch FILE PATTERN REPLACEMENT: replaces the single occurrence.
patch_file() {
  python3 -c 'import sys
p = sys.argv[1]; t = open(p, encoding="utf-8").read()
open(p, "w", encoding="utf-8").write(t.replace(sys.argv[2], sys.argv[3], 1))' "$1" "$2" "$3"
}

if ((check_only)); then
  bad=0
  for i in "${!names[@]}"; do
    n=0
    [[ -f ${files[$i]} ]] && n=$(count "${files[$i]}" "${patterns[$i]}")
    if [[ $n != 1 ]]; then echo "stale  ${names[$i]}: pattern occurs $n times in ${files[$i]}"; bad=1; fi
  done
  echo "seed-faults: ${#names[@]} faults checked"
  exit $bad
fi

if [[ -n $(git status --porcelain --untracked-files=no) ]]; then
  echo "seed-faults: the work tree has uncommitted changes; commit or stash them first" >&2
  exit 2
fi

saved=$(mktemp -d "${TMPDIR:-/tmp}/ngi-seed.XXXXXX")
touched=""
restore() {
  if [[ -n $touched ]]; then
    cp "$saved/original" "$root/$touched"
    touched=""
  fi
}
trap 'restore; rm -rf "$saved"' EXIT
trap 'echo "seed-faults: interrupted; $touched restored" >&2; exit 130' INT TERM

mkdir -p "$logs"
export NGI_SOURCE_DIR=$root NGI_BINARY_DIR=$build NGI_BUILD_DIR=$build NGI_BUILD=$build
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$root")}
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
run cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" >/dev/null

# The test program of the folder a file lies in (src/ntfs/x.cpp: ntfs_tests).
program_of() {
  local f=$1
  case $f in
    src/*/*) f=${f#src/}; echo "${f%%/*}_tests" ;;
    catalogue/*) echo catalogue_tests ;;
    *) echo "" ;;
  esac
}

# run_tests LOG PROGRAM: prints what failed first ("" when all passed).
run_tests() {
  local log=$1 program=$2 path
  if [[ -n $program ]]; then
    path=$(find "$build" -name "$program" -type f -perm -u+x | head -1)
    if [[ -n $path ]] && ! (cd "$root" && run timeout 900 "$path" --gtest_fail_fast --gtest_brief=1) >>"$log" 2>&1; then
      local first
      first=$(grep -m1 -oE '\[  FAILED  \] [A-Za-z0-9_/.]+' "$log" | sed 's/.*\] //')
      echo "$program:${first:-crashed or timed out}"
      return
    fi
  fi
  echo "=== full build" >>"$log"
  if ! run cmake --build "$build" -j"$jobs" >>"$log" 2>&1; then echo "build:all"; return; fi
  echo "=== ctest" >>"$log"
  if ! (cd "$build" && run ctest -j"$jobs" --timeout 300 --stop-on-failure --output-on-failure) >>"$log" 2>&1; then
    local first
    # A disabled test is "Not Run (Disabled)" without having failed.
    first=$(grep -E 'Test +#[0-9]+: [^ ]+ \.+\**(Failed|Timeout|Exception|Subprocess|Not Run)' "$log" |
            grep -v 'Not Run (Disabled)' | head -1 | sed -E 's/.*Test +#[0-9]+: ([^ ]+).*/\1/' || true)
    echo "ctest:${first:-failed}"
    return
  fi
  local suite
  for suite in "${suites[@]}"; do
    echo "=== $suite" >>"$log"
    if ! run timeout 900 bash "$suite" >>"$log" 2>&1; then echo "$(basename "$suite")"; return; fi
  done
  echo ""
}

if [[ -z ${NGI_SEED_NO_BASELINE:-} ]]; then
  echo "seed-faults: baseline build and tests of the untouched tree"
  log=$logs/baseline.log
  : >"$log"
  if ! run cmake --build "$build" -j"$jobs" >>"$log" 2>&1; then
    echo "seed-faults: the untouched tree does not build (see $log)" >&2
    exit 1
  fi
  failed=$(run_tests "$log" "")
  if [[ -n $failed ]]; then
    echo "seed-faults: the untouched tree fails ($failed; see $log)" >&2
    exit 1
  fi
fi

results=() caught=0 missed=0 stale=0 nobuild=0
for i in "${!names[@]}"; do
  name=${names[$i]} file=${files[$i]}
  log=$logs/$name.log
  : >"$log"
  start=$SECONDS
  n=0
  [[ -f $file ]] && n=$(count "$file" "${patterns[$i]}")
  if [[ $n != 1 ]]; then
    result=stale by="pattern occurs $n times"
    stale=$((stale + 1))
  else
    cp "$file" "$saved/original"
    touched=$file
    patch_file "$file" "${patterns[$i]}" "${replacements[$i]}"
    program=$(program_of "$file")
    echo "=== $name: ${whats[$i]}" >>"$log"
    git diff -- "$file" >>"$log"
    built=1
    if [[ -n $program ]]; then
      run cmake --build "$build" -j"$jobs" --target "$program" >>"$log" 2>&1 || built=0
    else
      run cmake --build "$build" -j"$jobs" >>"$log" 2>&1 || built=0
    fi
    if ((built)); then
      by=$(run_tests "$log" "$program")
      if [[ $by == build:all ]]; then
        result=nobuild nobuild=$((nobuild + 1))
      elif [[ -n $by ]]; then
        result=caught caught=$((caught + 1))
      else
        result=missed by="-" missed=$((missed + 1))
      fi
    else
      result=nobuild by="see $log" nobuild=$((nobuild + 1))
    fi
    restore
  fi
  line=$(printf '%-30s %-8s %5ss  %s' "$name" "$result" "$((SECONDS - start))" "$by")
  echo "$line"
  results+=("$line")
done

echo
printf '%-30s %-8s %6s  %s\n' fault result time "first failure"
printf '%s\n' "${results[@]}"
total=$((caught + missed))
if ((total)); then
  echo "score: $caught of $total caught ($((100 * caught / total))%); $missed missed, $stale stale, $nobuild not built"
else
  echo "score: no fault ran ($stale stale, $nobuild not built)"
fi
