#!/usr/bin/env bash
# Bounded fuzzing of every parser of outside data: builds the libFuzzer
# targets of fuzz/ with clang (their own build folder), seeds the NTFS ones
# with file records and index blocks cut from a committed fixture volume and
# the others with the small corpora of fuzz/corpus/<target>, and shares
# NGI_FUZZ_SECONDS (default 180) among the targets. Skips cleanly without
# clang or libFuzzer. A finding stops the script with its reproducer kept in
# the work folder named on standard error.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
budget=${NGI_FUZZ_SECONDS:-180}
targets=(fuzz_file_record fuzz_index_block fuzz_run_list fuzz_attribute_list fuzz_filter_text fuzz_snapshot_mapping
         fuzz_registry fuzz_metafile fuzz_ifd_reader)
seconds=$(( budget / ${#targets[@]} ))
(( seconds >= 1 )) || seconds=1
build=${NGI_FUZZ_BUILD:-$root/build-fuzz}
command -v clang++ >/dev/null || { echo "test-fuzz: no clang++, skipped"; exit 0; }
echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' >"${TMPDIR:-/tmp}/ngi-fuzz-probe.cpp"
if ! clang++ -fsanitize=fuzzer "${TMPDIR:-/tmp}/ngi-fuzz-probe.cpp" -o "${TMPDIR:-/tmp}/ngi-fuzz-probe" 2>/dev/null; then
  echo "test-fuzz: clang has no libFuzzer, skipped"; exit 0
fi
CC=clang CXX=clang++ cmake -S fuzz -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"${NGI_JOBS:-2}" --target "${targets[@]}"

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-fuzz.XXXXXX")
trap 'rc=$?; if (( rc == 0 )); then rm -rf "$work"; else echo "test-fuzz: inputs kept in $work" >&2; fi' EXIT
gzip -dc fixtures/ntfs/ntfs-4k.img.gz >"$work/img"
mkdir -p "$work/records" "$work/blocks"
python3 - "$work" <<'PY'
import struct, sys
work = sys.argv[1]
data = open(work + "/img", "rb").read()
cluster = struct.unpack_from("<H", data, 0x0B)[0] * data[0x0D]
mft = struct.unpack_from("<Q", data, 0x30)[0] * cluster
for i in range(48):
    open("%s/records/r%02d" % (work, i), "wb").write(data[mft + i * 1024: mft + (i + 1) * 1024])
found, at = 0, data.find(b"INDX")
while at >= 0 and found < 24:
    if at % 4096 == 0:
        open("%s/blocks/b%02d" % (work, found), "wb").write(data[at:at + 4096])
        found += 1
    at = data.find(b"INDX", at + 1)
PY
rm -f "$work/img"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Runs one target over its seeds (a copy: new inputs go to the work folder,
# the committed corpus stays as it is); a crash, leak or timeout fails.
run() {
  local target=$1 seeds=$2 max_len=$3
  mkdir -p "$work/$target.corpus"
  if ! (cd "$work" && "$build/$target" -max_total_time="$seconds" -max_len="$max_len" -timeout=10 \
          -rss_limit_mb=1024 "$work/$target.corpus" "$seeds") >"$work/$target.log" 2>&1; then
    tail -40 "$work/$target.log" >&2
    echo "test-fuzz: $target found a fault" >&2
    return 1
  fi
  echo "test-fuzz: $target $(grep -o 'Done [0-9]* runs' "$work/$target.log" | tail -1 || true) in ${seconds}s"
}
run fuzz_file_record "$work/records" 4096
run fuzz_index_block "$work/blocks" 8192
for target in "${targets[@]:2}"; do run "$target" "$root/fuzz/corpus/$target" 4096; done
echo "test-fuzz: ${#targets[@]} targets ran ${seconds}s each without a finding"
