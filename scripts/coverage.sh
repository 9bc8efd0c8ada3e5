#!/usr/bin/env bash
# Line and branch coverage of a build made with TALVO_COVERAGE (what
# `make coverage` runs): runs every test, then prints the figures per
# top-level folder of the product (sdk, platform, each subsystem of src, tools).
# A measurement, not a target: failing tests are reported, the figures still printed.
#   scripts/coverage.sh BUILD_DIR [CTEST_ARGS...]
set -uo pipefail

build=${1:?usage: $0 BUILD_DIR [CTEST_ARGS...]}
shift
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$build" && pwd)

find "$build" -name '*.gcda' -delete
(cd "$build" && ctest --output-on-failure -j "$(nproc)" "$@")
tests=$?

summary=$build/coverage.json
gcovr --root "$root" --object-directory "$build" \
  --filter "$root/sdk/" --filter "$root/platform/" --filter "$root/src/" --filter "$root/tools/" \
  --exclude '.*/tests/.*' --exclude '.*_autogen/.*' \
  --exclude-unreachable-branches --exclude-throw-branches \
  --json-summary "$summary" >/dev/null || exit 1

python3 - "$summary" <<'PY'
import collections, json, sys

def folder(path):
    parts = path.split('/')
    return '/'.join(parts[:2]) if parts[0] == 'src' and len(parts) > 2 else parts[0]

totals = collections.defaultdict(lambda: [0, 0, 0, 0])
for entry in json.load(open(sys.argv[1]))['files']:
    row = totals[folder(entry['filename'])]
    row[0] += entry['line_covered']; row[1] += entry['line_total']
    row[2] += entry['branch_covered']; row[3] += entry['branch_total']

def percent(covered, total):
    return f"{100 * covered / total:5.1f} %" if total else "    -  "

print(f"{'folder':<16} {'lines':>18} {'branches':>20}")
for name in sorted(totals):
    lc, lt, bc, bt = totals[name]
    print(f"{name:<16} {percent(lc, lt)} of {lt:>6}   {percent(bc, bt)} of {bt:>7}")
lc, lt, bc, bt = (sum(row[i] for row in totals.values()) for i in range(4))
print(f"{'all':<16} {percent(lc, lt)} of {lt:>6}   {percent(bc, bt)} of {bt:>7}")
PY
exit $tests
