#!/usr/bin/env bash
# Prints the lines of the tests against the lines of the code they test (blank lines and lines
# that are only a comment left out), and the ratio.
#
#   scripts/test-ratio.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

count() {
    git ls-files -- "$@" | grep -E '\.(cpp|hpp|mm)$' | xargs cat -- |
        grep -vE '^\s*$|^\s*//' | wc -l
}

code=$(count agent cli helper kit shared support)
tests=$(count tests)
awk -v c="$code" -v t="$tests" 'BEGIN {
    printf "code  %6d lines\ntests %6d lines\nratio %6.2f (tests / code)\n", c, t, t / c
}'
