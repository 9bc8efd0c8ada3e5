#!/usr/bin/env bash
# Fuzzes the program-file reader with libFuzzer (clang, ASan, UBSan).
#   scripts/fuzz.sh short          ~60 s   (build folder build-fuzz)
#   scripts/fuzz.sh long           ~30 min (what `make fuzz` runs)
#   scripts/fuzz.sh brief [DIR]    ~30 s, for the test suite; exits 77 without clang
# Seeds are the sample programs written by zqxsdk_make_corpus (or $ZQX_FUZZ_SEEDS);
# findings land in <build>/fuzz-findings, the growing corpus in <build>/fuzz-corpus.
set -euo pipefail

mode=${1:-short}
root=$(cd "$(dirname "$0")/.." && pwd)
case "$mode" in
  brief) seconds=30; build=${2:-$root/build-fuzz} ;;
  short) seconds=60; build=${2:-$root/build-fuzz} ;;
  long) seconds=1800; build=${2:-$root/build-fuzz} ;;
  *) echo "usage: $0 short|long|brief [BUILD_DIR]" >&2; exit 2 ;;
esac

if ! command -v clang++ >/dev/null 2>&1; then
  echo "clang++ is not installed; fuzzing skipped" >&2
  exit 77
fi

if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S "$root/fuzz/standalone" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" --target zqx_fuzz zqxsdk_make_corpus -j "$(nproc)"

seeds=${ZQX_FUZZ_SEEDS:-$build/fuzz-seeds}
if [ ! -d "$seeds" ]; then
  "$build/tests/zqxsdk_make_corpus" "$seeds"
fi
mkdir -p "$build/fuzz-corpus" "$build/fuzz-findings"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
"$build/bin/zqx_fuzz" "$build/fuzz-corpus" "$seeds" \
  -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
  -artifact_prefix="$build/fuzz-findings/" -print_final_stats=1
