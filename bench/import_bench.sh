#!/usr/bin/env bash
# Importing a long speech M4B (feldrun import, Opus) beside ffmpeg's own Opus
# encode of the same file at 24 kbit/s, both on one core, in the same run.
# Prints the time ratio (goal: at most 1.2) and each one's peak memory for a
# 1-hour and a 10-hour book (goal: flat in length). FFmpeg's MP4 demuxer holds
# an index entry for every AAC frame of the file (about 75 MB for 10 hours),
# in ffmpeg as in feldrun, so the figure that must stay flat is feldrun's peak
# above ffmpeg's on the same book; the last line prints how much each grew.
# The books are made here by looping a short espeak-ng clip, never committed.
#   IMPORT_BENCH_HOURS="1 10"  the lengths to measure
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
feldrun=$here/../bin/feldrun
work=$here/../import-bench
hours=${IMPORT_BENCH_HOURS:-1 10}
mkdir -p "$work"
cd "$work"
ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }

# CPU seconds (user + system) and peak resident KiB of one command on core 0.
measure() {
  python3 - "$@" <<'PY'
import resource, subprocess, sys
subprocess.run(["taskset", "-c", "0"] + sys.argv[1:], check=True,
               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
u = resource.getrusage(resource.RUSAGE_CHILDREN)
print(f"{u.ru_utime + u.ru_stime:.2f} {u.ru_maxrss}")
PY
}

if [ ! -f hour.m4b ]; then
  espeak-ng -w clip.wav "Chapter one. The garden was quiet in the early morning, and the gardener \
walked slowly between the rows, counting the new leaves on each plant."
  ff -stream_loop -1 -i clip.wav -t 3600 -ac 1 -ar 44100 -c:a aac -b:a 48k hour.m4b
fi

printf '%-8s %10s %10s %8s %14s %14s %14s\n' book feldrun_s ffmpeg_s ratio feldrun_peak ffmpeg_peak difference
first_ours= first_base=
for h in $hours; do
  book=book-${h}h.m4b
  if [ ! -f "$book" ]; then
    : > list.txt
    for _ in $(seq "$h"); do echo "file 'hour.m4b'" >> list.txt; done
    ff -f concat -safe 0 -i list.txt -c copy "$book"
  fi
  rm -rf music
  mkdir music
  # A store and runtime folder of its own: the import tells no listener's player.
  mkdir -p -m 700 run
  read -r ours ours_kb < <(TALVOPLAYER_MUSIC=$work/music TALVOPLAYER_REGISTRY=$work/registry.db \
    XDG_RUNTIME_DIR=$work/run measure "$feldrun" import -q "$book")
  read -r base base_kb < <(measure ffmpeg -nostdin -y -i "$book" -c:a libopus -b:a 24k out.opus)
  printf '%-8s %10s %10s %8.2f %11d KiB %11d KiB %11d KiB\n' "${h}h" "$ours" "$base" \
    "$(awk -v a="$ours" -v b="$base" 'BEGIN { print a / b }')" "$ours_kb" "$base_kb" $((ours_kb - base_kb))
  : "${first_ours:=$ours_kb}" "${first_base:=$base_kb}" "${first_h:=$h}"
  last_ours=$ours_kb last_base=$base_kb last_h=$h
done
if [ "$first_h" != "$last_h" ]; then
  printf 'peak growth from %sh to %sh: feldrun %d KiB, ffmpeg %d KiB, feldrun beyond ffmpeg %d KiB\n' \
    "$first_h" "$last_h" $((last_ours - first_ours)) $((last_base - first_base)) \
    $(((last_ours - first_ours) - (last_base - first_base)))
fi
