#!/usr/bin/env bash
# Bounded fuzzing of the raw NTFS reader: builds the libFuzzer targets of
# fuzz/ with clang (their own build folder), seeds them with file records and
# index blocks cut from a committed fixture volume, and runs each for
# NGI_FUZZ_SECONDS (default 30). Skips cleanly without clang or libFuzzer.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${NGI_FUZZ_SECONDS:-30}
build=${NGI_FUZZ_BUILD:-$root/build-fuzz}
command -v clang++ >/dev/null || { echo "test-fuzz: no clang++, skipped"; exit 0; }
echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' >"${TMPDIR:-/tmp}/ngi-fuzz-probe.cpp"
if ! clang++ -fsanitize=fuzzer "${TMPDIR:-/tmp}/ngi-fuzz-probe.cpp" -o "${TMPDIR:-/tmp}/ngi-fuzz-probe" 2>/dev/null; then
  echo "test-fuzz: clang has no libFuzzer, skipped"; exit 0
fi
CC=clang CXX=clang++ cmake -S fuzz -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"${NGI_JOBS:-2}" --target fuzz_file_record fuzz_index_block

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
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
"$build/fuzz_file_record" -max_total_time="$seconds" -max_len=4096 -rss_limit_mb=1024 "$work/records" 2>&1 | tail -3
"$build/fuzz_index_block" -max_total_time="$seconds" -max_len=8192 -rss_limit_mb=1024 "$work/blocks" 2>&1 | tail -3
echo "test-fuzz: both targets ran ${seconds}s without a finding"
