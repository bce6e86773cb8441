#!/usr/bin/env bash
# Runs the built test binary of the given folder (default: build) again as an unprivileged user, so
# that what only passes as root shows up. Run as root; the user is made when missing (a system
# account without a home), and gets a fresh writable HOME and TMPDIR for the run. Tests that need
# root skip and say why. Arguments after the folder go to the test binary (--gtest_filter=…).
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
shift || true
user="${BRIMSTELL_TEST_USER:-brimstell-tests}"

if [[ $(id -u) -ne 0 ]]; then
  echo "Already unprivileged: the tests ran as $(id -un) once." >&2
  exit 0
fi
if ! id -u "$user" >/dev/null 2>&1; then
  useradd --system --no-create-home --shell /usr/sbin/nologin "$user"
fi
tests="$(realpath "$dir")/brimstell_tests"
# The checkout may lie in a folder others can't search (root's home, say): let them pass through
# each such folder for the run (search only, nothing listed), and take it back afterwards.
opened=()
reopen() { for d in "${opened[@]}"; do chmod o-x "$d"; done; }
if ! runuser -u "$user" -- test -x "$tests"; then
  d="$(dirname "$tests")"
  while [[ "$d" != / ]]; do
    if [[ $(( 0$(stat -c %a "$d") & 01 )) -eq 0 ]]; then chmod o+x "$d" && opened+=("$d"); fi
    d="$(dirname "$d")"
  done
fi
if ! runuser -u "$user" -- test -x "$tests"; then
  reopen
  echo "$user can't run $tests: every folder above it must be searchable by others" >&2
  exit 1
fi

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"; reopen' EXIT
chmod 0755 "$scratch"
install -d -o "$user" -g "$(id -gn "$user")" -m 0700 "$scratch/home" "$scratch/tmp"

echo "== the tests again, as $user"
# A clean environment: nothing of root's (its runtime folder, its bus, its HOME) leaks in.
runuser -u "$user" -- env -i PATH="$PATH" LANG=C.UTF-8 USER="$user" LOGNAME="$user" \
  HOME="$scratch/home" TMPDIR="$scratch/tmp" "$tests" "$@"
