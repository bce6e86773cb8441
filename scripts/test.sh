#!/usr/bin/env bash
# Installs what is missing, builds Brimstell in the given folder (default: build) and runs every
# test. Extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir="${1:-build}"
shift || true
echo "== building in $dir (a first build takes several minutes; each line is one step)"
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
echo "== running the tests"
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
