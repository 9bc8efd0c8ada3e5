#!/usr/bin/env bash
# Fuzzes the parsers and every reader of outside input with libFuzzer (clang,
# ASan, UBSan), in the build folder build-fuzz unless one is given.
#   scripts/fuzz.sh short [DIR] [TARGETS]   ~60 s per target
#   scripts/fuzz.sh long [DIR] [TARGETS]    ~30 min per target (what `make fuzz` runs)
#   scripts/fuzz.sh brief [DIR] [TARGETS]   ~15 s per target, for the test suite; exits 77 without clang
#   scripts/fuzz.sh list                    every target, one a line
# TARGETS: space-separated names from the table below; short and long run
# them all, brief zqx.  Seeds are written by each target's generator into
# <build>/<target>-fuzz-seeds or kept in fuzz/<target>-seeds (or are in
# $<TARGET>_FUZZ_SEEDS, e.g. $ZQX_FUZZ_SEEDS);
# findings land in <build>/fuzz-findings/<target>-*, the growing corpora in
# <build>/<target>-fuzz-corpus.  FUZZ_RUNS=N stops each target after N
# executions instead of at the time limit.
set -euo pipefail

# One row per target: name, libFuzzer program, seed generator (a program of
# the fuzz build, given the seed folder; "-" when the seeds are the files in
# fuzz/<name>-seeds, if any, or in $<NAME>_FUZZ_SEEDS: id3's are MP3s with
# chapters, such as the books the tests make) and its further argument ("-"
# for none), the largest input worth trying.
targets_table=(
  "zqx       zqx_fuzz            zqxsdk_make_corpus  -         65536"
  "skin      skin_fuzz           skin_fuzz_seeds     -         65536"
  "book      book_metadata_fuzz  -                   -         16384"
  "id3       id3_chapters_fuzz   -                   -         65536"
  "instance  instance_fuzz       input_fuzz_seeds    instance  66000"
  "cmdline   cmdline_fuzz        input_fuzz_seeds    cmdline   4096"
  "syncdata  syncdata_fuzz       input_fuzz_seeds    syncdata  4096"
  "regfile   regfile_fuzz        input_fuzz_seeds    regfile   16384"
  "remote    remote_fuzz         input_fuzz_seeds    remote    64"
  "feed      feed_fuzz           feed_fuzz_seeds     -         65536"
)
all_targets=$(printf '%s\n' "${targets_table[@]}" | awk '{print $1}' | xargs)

mode=${1:-short}
root=$(cd "$(dirname "$0")/.." && pwd)
case "$mode" in
  list) printf '%s\n' $all_targets; exit 0 ;;
  brief) seconds=15; build=${2:-$root/build-fuzz}; targets=${3:-zqx} ;;
  short) seconds=60; build=${2:-$root/build-fuzz}; targets=${3:-$all_targets} ;;
  long) seconds=1800; build=${2:-$root/build-fuzz}; targets=${3:-$all_targets} ;;
  *) echo "usage: $0 short|long|brief [BUILD_DIR] [TARGETS] | list" >&2; exit 2 ;;
esac

row_of() {
  local row
  for row in "${targets_table[@]}"; do
    [ "$(awk '{print $1}' <<<"$row")" = "$1" ] && { echo "$row"; return 0; }
  done
  echo "unknown fuzz target: $1 (one of: $all_targets)" >&2
  return 2
}
# Every name is checked before anything is built.
for target in $targets; do row_of "$target" >/dev/null || exit 2; done

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
# Qt looks for a platform plugin only when asked; offscreen keeps it from
# needing a display if it ever is.
export QT_QPA_PLATFORM=offscreen
mkdir -p "$build/fuzz-findings"

for target in $targets; do
  read -r name program generator generator_argument max_len <<<"$(row_of "$target")"
  seeds_variable="${name^^}_FUZZ_SEEDS"
  if [ "$generator" = - ]; then
    cmake --build "$build" --target "$program" -j "$(nproc)"
    seeds=${!seeds_variable:-$root/fuzz/$name-seeds}
  else
    cmake --build "$build" --target "$program" "$generator" -j "$(nproc)"
    seeds=${!seeds_variable:-$build/$name-fuzz-seeds}
  fi
  if [ ! -d "$seeds" ] && [ "$generator" != - ]; then
    if [ "$generator_argument" = - ]; then
      "$build/tests/$generator" "$seeds"
    else
      "$build/tests/$generator" "$seeds" "$generator_argument"
    fi
  fi
  limit=(-max_total_time="$seconds")
  [ -n "${FUZZ_RUNS:-}" ] && limit=(-runs="$FUZZ_RUNS")
  seed_folders=()
  [ -d "$seeds" ] && seed_folders=("$seeds")
  mkdir -p "$build/$name-fuzz-corpus"
  "$build/bin/$program" "$build/$name-fuzz-corpus" "${seed_folders[@]}" \
    "${limit[@]}" -max_len="$max_len" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$build/fuzz-findings/$name-" -print_final_stats=1
done
