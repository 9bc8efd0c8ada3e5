#!/usr/bin/env bash
# Fails when a tracked C or C++ source is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
files=$(git ls-files '*.cpp' '*.h' '*.c' 2>/dev/null || true)
[ -z "$files" ] && exit 0
# shellcheck disable=SC2086
clang-format --dry-run --Werror $files
