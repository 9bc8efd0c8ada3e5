#!/usr/bin/env bash
# Starts the player on the demo library in BUILD/demo.  Without a display the
# player runs under Xvfb, a screenshot of what it shows is saved, and it keeps
# playing until interrupted.
set -euo pipefail
build=${1:-build}
top=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$top" && cd "$build" && pwd)
demo=$build/demo

# The demo device: its own registry, home and music folder, unless the caller set them.
mkdir -p "$demo/home"
export TALVOPLAYER_REGISTRY=${TALVOPLAYER_REGISTRY:-$demo/registry.db}
export TALVOPLAYER_HOME=${TALVOPLAYER_HOME:-$demo/home}
export TALVOPLAYER_MUSIC=${TALVOPLAYER_MUSIC:-$demo/music}
export TALVOPLAYER_CARDS=${TALVOPLAYER_CARDS:-}

# Without a sound card or sound server, play on the simulated device rather
# than have the player report the missing device first.
if [ -z "${TALVOPLAYER_AUDIO:-}" ] && [ ! -e /dev/snd/controlC0 ] && [ -z "${PULSE_SERVER:-}" ] \
   && [ ! -S "${XDG_RUNTIME_DIR:-/nonexistent}/pulse/native" ]; then
  echo "No sound device found: playing on the simulated output (TALVOPLAYER_AUDIO=null)."
  export TALVOPLAYER_AUDIO=null
fi

# Start playing the first demo program at once; the player then goes on through the library.
first=$(find "$TALVOPLAYER_MUSIC" -mindepth 3 -maxdepth 3 -name '*.zq*' 2>/dev/null | LC_ALL=C sort | head -n 1)
player=("$build/bin/talvoplayer")
[ -n "$first" ] && player+=("-File:$first")

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  exec "${player[@]}"
fi

echo "No display found (DISPLAY and WAYLAND_DISPLAY are unset): starting the player under Xvfb."
screen=${TALVOPLAYER_SCREEN:-480x640}
for n in $(seq 90 140); do
  [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ] || break
done
Xvfb ":$n" -screen 0 "${screen}x24" -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
player_pid=
cleanup() {
  [ -n "$player_pid" ] && kill "$player_pid" 2>/dev/null && wait "$player_pid" 2>/dev/null
  kill "$xvfb" 2>/dev/null || true
}
trap cleanup EXIT
trap 'exit 130' INT TERM
export DISPLAY=":$n"
for _ in $(seq 50); do
  xdpyinfo >/dev/null 2>&1 && break
  sleep 0.1
done

"${player[@]}" &
player_pid=$!
sleep 3
shot=$build/screenshot.png
if import -window root "$shot" 2>/dev/null; then
  echo "Screenshot of the player saved to $shot"
else
  echo "Could not take a screenshot (is imagemagick installed?)"
fi
echo "The player keeps running on display :$n; press Ctrl-C to stop it."
wait "$player_pid"
