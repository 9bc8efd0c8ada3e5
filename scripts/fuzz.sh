#!/usr/bin/env bash
# Fuzzes the parsers with libFuzzer (clang, ASan, UBSan).
#   scripts/fuzz.sh short [DIR] [TARGETS]   ~60 s per target   (build folder build-fuzz)
#   scripts/fuzz.sh long [DIR] [TARGETS]    ~30 min per target (what `make fuzz` runs)
#   scripts/fuzz.sh brief [DIR] [TARGETS]   ~30 s per target, for the test suite; exits 77 without clang
# TARGETS: "zqx" (the program-file reader), "skin" (the INI reader and skin
# layout load), "book" (a book's tag and chapter mapping), "id3" (an ID3v2
# tag's chapter reader), space-separated; short and long run all, brief zqx.
# Seeds are the sample programs written by zqxsdk_make_corpus (or
# $ZQX_FUZZ_SEEDS) and the skins written by skin_fuzz_seeds (or
# $SKIN_FUZZ_SEEDS); findings land in <build>/fuzz-findings, the growing
# corpora in <build>/fuzz-corpus (zqx) and <build>/skin-fuzz-corpus.
set -euo pipefail

mode=${1:-short}
root=$(cd "$(dirname "$0")/.." && pwd)
case "$mode" in
  brief) seconds=30; build=${2:-$root/build-fuzz}; targets=${3:-zqx} ;;
  short) seconds=60; build=${2:-$root/build-fuzz}; targets=${3:-zqx skin book id3} ;;
  long) seconds=1800; build=${2:-$root/build-fuzz}; targets=${3:-zqx skin book id3} ;;
  *) echo "usage: $0 short|long|brief [BUILD_DIR] [TARGETS]" >&2; exit 2 ;;
esac

if ! command -v clang++ >/dev/null 2>&1; then
  echo "clang++ is not installed; fuzzing skipped" >&2
  exit 77
fi

if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S "$root/fuzz/standalone" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
mkdir -p "$build/fuzz-findings"

for target in $targets; do
  case "$target" in
    zqx)
      cmake --build "$build" --target zqx_fuzz zqxsdk_make_corpus -j "$(nproc)"
      seeds=${ZQX_FUZZ_SEEDS:-$build/fuzz-seeds}
      if [ ! -d "$seeds" ]; then
        "$build/tests/zqxsdk_make_corpus" "$seeds"
      fi
      mkdir -p "$build/fuzz-corpus"
      "$build/bin/zqx_fuzz" "$build/fuzz-corpus" "$seeds" \
        -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/fuzz-findings/" -print_final_stats=1
      ;;
    skin)
      cmake --build "$build" --target skin_fuzz skin_fuzz_seeds -j "$(nproc)"
      seeds=${SKIN_FUZZ_SEEDS:-$build/skin-fuzz-seeds}
      if [ ! -d "$seeds" ]; then
        "$build/tests/skin_fuzz_seeds" "$seeds"
      fi
      mkdir -p "$build/skin-fuzz-corpus"
      # Qt looks for a platform plugin only when asked; offscreen keeps it
      # from needing a display if it ever is.
      QT_QPA_PLATFORM=offscreen "$build/bin/skin_fuzz" "$build/skin-fuzz-corpus" "$seeds" \
        -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/fuzz-findings/skin-" -print_final_stats=1
      ;;
    book)
      cmake --build "$build" --target book_metadata_fuzz -j "$(nproc)"
      mkdir -p "$build/book-fuzz-corpus"
      "$build/bin/book_metadata_fuzz" "$build/book-fuzz-corpus" "$root/fuzz/book-seeds" \
        -max_total_time="$seconds" -max_len=16384 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/fuzz-findings/book-" -print_final_stats=1
      ;;
    id3)
      cmake --build "$build" --target id3_chapters_fuzz -j "$(nproc)"
      mkdir -p "$build/id3-fuzz-corpus"
      # Seeds: MP3s with chapters, such as the books the tests make ($ID3_FUZZ_SEEDS).
      seeds=()
      if [ -n "${ID3_FUZZ_SEEDS:-}" ] && [ -d "$ID3_FUZZ_SEEDS" ]; then
        seeds=("$ID3_FUZZ_SEEDS")
      fi
      "$build/bin/id3_chapters_fuzz" "$build/id3-fuzz-corpus" "${seeds[@]}" \
        -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/fuzz-findings/id3-" -print_final_stats=1
      ;;
    *) echo "unknown fuzz target: $target (zqx, skin, book or id3)" >&2; exit 2 ;;
  esac
done
