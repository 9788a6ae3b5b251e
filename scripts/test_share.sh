#!/usr/bin/env bash
# Prints the weight of the tests against the code they test: non-blank lines of
# *.h and *.cpp under tests/ against those under sources/ and examples/.
set -euo pipefail
cd "$(dirname "$0")/.."

count() { find "$@" -type f \( -name '*.h' -o -name '*.cpp' \) -exec cat {} + | grep -cv '^[[:space:]]*$' || true; }

tests=$(count tests)
code=$(count sources examples)
awk -v t="$tests" -v c="$code" 'BEGIN { printf "Test share: %d test lines / %d source and example lines = %.1f %%\n", t, c, 100 * t / c }'
