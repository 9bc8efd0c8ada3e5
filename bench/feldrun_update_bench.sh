#!/usr/bin/env bash
# feldrun update against a local feed server (the tests' feed_server.py on
# 127.0.0.1), two figures, each beside a baseline measured in the same run:
#  1. 100 subscriptions whose feeds have not changed: the requests the server
#     saw per subscription (goal: 1) and the time (goal: under 2 s), beside the
#     same 100 conditional requests made by python and beside `feldrun list`.
#  2. One new 1-hour episode (speech, AAC): download plus packing, beside
#     `feldrun import` of the same file alone (goal: at most 1.3x).
# The audio is made here from espeak-ng speech, never committed.
#   FELDRUN_BENCH_SUBSCRIPTIONS=100  how many unchanged subscriptions
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
feldrun=$here/../bin/feldrun
server_script=$here/../bench-support/feed_server.py
work=$here/../feldrun-update-bench
subscriptions=${FELDRUN_BENCH_SUBSCRIPTIONS:-100}
rm -rf "$work/root" "$work/music" "$work/music-import" "$work/store" "$work/cache"
mkdir -p "$work/root" "$work/music" "$work/music-import" "$work/store" "$work/cache"
mkdir -p -m 700 "$work/run"
cd "$work"
ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }

# A store, Music folder, cache and runtime folder of its own: no listener's
# player is told and no listener's subscriptions are touched.
export TALVOPLAYER_MUSIC=$work/music TALVOPLAYER_REGISTRY=$work/store/registry.db
export XDG_RUNTIME_DIR=$work/run XDG_CACHE_HOME=$work/cache

if [ ! -f hour.m4b ]; then
  espeak-ng -w clip.wav "The morning news. The garden was quiet in the early morning, and the gardener \
walked slowly between the rows, counting the new leaves on each plant."
  ff -i clip.wav -t 1 -ac 1 -ar 44100 -c:a aac -b:a 48k second.m4b
  ff -stream_loop -1 -i clip.wav -t 3600 -ac 1 -ar 44100 -c:a aac -b:a 48k hour.m4b
fi
cp second.m4b hour.m4b root/

python3 "$server_script" root requests.log > port.txt &
server=$!
trap 'kill $server' EXIT
for _ in $(seq 50); do [ -s port.txt ] && break; sleep 0.1; done
port=$(head -n1 port.txt)
base=http://127.0.0.1:$port

feed() { # path title enclosure
  printf '<?xml version="1.0"?><rss version="2.0"><channel><title>%s</title><item><title>%s one</title>\
<guid>%s-1</guid><pubDate>Tue, 24 Nov 2026 06:00:00 GMT</pubDate><enclosure url="%s" type="audio/mp4"/>\
</item></channel></rss>\n' "$2" "$2" "$2" "$3" > "root/$1"
}

# Wall seconds of one command.
seconds() {
  python3 - "$@" <<'PY'
import subprocess, sys, time
start = time.monotonic()
subprocess.run(sys.argv[1:], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
print(f"{time.monotonic() - start:.3f}")
PY
}

# 1. Unchanged feeds.
for i in $(seq "$subscriptions"); do
  feed "feed$i.xml" "Programme $i" "$base/second.m4b"
  "$feldrun" subscribe --no-update "$base/feed$i.xml" > /dev/null
done
first=$(seconds "$feldrun" update -q)
: > requests.log
ours=$(seconds "$feldrun" update -q)
requests=$(wc -l < requests.log)
conditional=$(grep -c 'status=304' requests.log || true)
plain=$(python3 - "$base" "$subscriptions" <<'PY'
import sys, time, urllib.request
base, count = sys.argv[1], int(sys.argv[2])
tags = [urllib.request.urlopen(f"{base}/feed{i}.xml").headers["ETag"] for i in range(1, count + 1)]
start = time.monotonic()
for i, tag in enumerate(tags, 1):
    try:
        urllib.request.urlopen(urllib.request.Request(f"{base}/feed{i}.xml", headers={"If-None-Match": tag}))
    except urllib.error.HTTPError as e:
        assert e.code == 304
print(f"{time.monotonic() - start:.3f}")
PY
)
list=$(seconds "$feldrun" list)
echo "feldrun update, $subscriptions subscriptions unchanged (the first update, downloading and packing $subscriptions 1 s episodes: $first s)"
printf '%-34s %10s %12s\n' measure seconds ratio
printf '%-34s %10s %12s\n' "feldrun update" "$ours" ""
printf '%-34s %10s %12.2f\n' "python conditional GETs" "$plain" "$(awk -v a="$ours" -v b="$plain" 'BEGIN { print a / b }')"
printf '%-34s %10s %12.2f\n' "feldrun list" "$list" "$(awk -v a="$ours" -v b="$list" 'BEGIN { print a / b }')"
printf 'requests per subscription: %s (%s of %s answered 304); goal: 1, under 2 s in all\n' \
  "$(awk -v r="$requests" -v n="$subscriptions" 'BEGIN { printf "%.2f", r / n }')" "$conditional" "$requests"

# 2. One new 1-hour episode, beside importing the same file.
rm -rf music store
mkdir music store
feed hour.xml "Long Programme" "$base/hour.m4b"
"$feldrun" subscribe --no-update "$base/hour.xml" > /dev/null
update=$(seconds "$feldrun" update -q)
import=$(TALVOPLAYER_MUSIC=$work/music-import seconds "$feldrun" import -q hour.m4b)
echo
echo "one new 1-hour episode ($(du -k hour.m4b | cut -f1) KiB): download and packing beside importing the file"
printf '%-34s %10s\n' "feldrun update" "$update"
printf '%-34s %10s\n' "feldrun import" "$import"
printf 'ratio %.2f (goal: at most 1.3)\n' "$(awk -v a="$update" -v b="$import" 'BEGIN { print a / b }')"
