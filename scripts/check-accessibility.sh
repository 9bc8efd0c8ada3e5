#!/usr/bin/env bash
# What a screen reader sees of the player, through AT-SPI: a private X server
# and session bus, the player on the demo library, every screen walked.
#   scripts/check-accessibility.sh [BUILD-FOLDER]
set -euo pipefail
build=${1:-build}
displayfile=$(mktemp)
# The server picks a free display itself and says which.
Xvfb -displayfd 3 -screen 0 1024x900x24 -nolisten tcp 3>"$displayfile" >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true; rm -f "$displayfile"' EXIT
for _ in $(seq 100); do [ -s "$displayfile" ] && break; sleep 0.1; done
export DISPLAY=":$(cat "$displayfile")"
dbus-run-session -- /usr/bin/python3 "$(dirname "$0")/atspi-walk.py" "$build"
