#!/usr/bin/env bash
# Runs every benchmark; each prints its figures beside a baseline measured in the same run.
set -euo pipefail
build=${1:-build}
status=0
for b in "$build"/bench/*; do
  [ -x "$b" ] && [ -f "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" || status=1
done
exit $status
