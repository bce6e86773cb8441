#!/usr/bin/env bash
# Times one update check over many apps against the slowest single feed, in the same run.
#
#   bench/updates.sh [APPS] [DELAY]
#
# A loopback HTTPS server (its authority trusted by this run only) serves APPS (default 300) feeds,
# each answering after DELAY seconds (default 1). One feed is fetched alone, then all APPS are
# checked at once; the script prints both times, their ratio (target 1.2 or less: every request
# goes out at once) and the peak memory.
#
# Environment: BUILD_DIR (default <repo>/build; the driver is built there when missing).
set -euo pipefail

apps=${1:-300}
delay=${2:-1}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD_DIR:-$repo/build}
driver=$build/brimstell-updatebench

if ! [[ $apps =~ ^[0-9]+$ && $apps -ge 1 && $delay =~ ^[0-9]+([.][0-9]+)?$ ]]; then
    echo "usage: $0 [APPS >= 1] [DELAY seconds]" >&2
    exit 2
fi
if [[ ! -x $driver ]]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target brimstell-updatebench >/dev/null
fi

out=$("$driver" "$apps" "$delay")
get() { awk -v k="$1" '$1 == k { print $2 }' <<<"$out"; }
printf 'apps:               %s (each feed answers after %ss)\n' "$(get apps)" "$delay"
printf 'updates found:      %s, not reached: %s\n' "$(get updates)" "$(get notReached)"
printf 'slowest single feed: %ss\n' "$(get single)"
printf 'whole check:        %ss\n' "$(get whole)"
printf 'ratio:              %s (whole / single, target <= 1.2)\n' "$(get ratio)"
printf 'peak memory:        %s kB\n' "$(get peakKB)"
