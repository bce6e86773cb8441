#!/usr/bin/env bash
# Times one start of the background agent against /bin/true, in the same run.
#
#   bench/agent.sh [ROUNDS]
#
# A sandbox Mac is laid out in a temporary folder (the sample one, its home emptied) and the agent
# run there once, so that the runs timed after it find nothing expensive due: the junk was just
# measured and the login items recorded, leaving the cheap checks, the widget and the settings.
# Then each round (default 20) times, alternately, /bin/true, a quiet run under the agent's own
# service name, and a start under another service name (which exits at once). The script prints
# the median of each, the ratios to /bin/true (lower is better), each one's peak memory, and the
# shared libraries the agent needs at load time.
#
# Environment: BUILD_DIR (default <repo>/build; built here when the agent is missing), BENCH_TMP
# (where the temporary folder goes, default TMPDIR or /tmp).
set -euo pipefail

rounds=${1:-20}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD_DIR:-$repo/build}
agent=$build/brimstell-agent
brimstell=$build/brimstell

if ! [[ $rounds =~ ^[0-9]+$ && $rounds -ge 1 ]]; then
    echo "usage: $0 [ROUNDS >= 1]" >&2
    exit 2
fi
command -v perl >/dev/null || { echo "perl is needed to read the sandbox's variables" >&2; exit 1; }
[[ -x /usr/bin/time ]] || { echo "GNU time (/usr/bin/time) is needed to measure peak memory" >&2; exit 1; }
[[ -n ${EPOCHREALTIME:-} ]] || { echo "bash 5 (EPOCHREALTIME) is needed to time without a fork" >&2; exit 1; }

if [[ ! -x $agent || ! -x $brimstell ]]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target brimstell-agent brimstell >/dev/null
fi

work=$(mktemp -d "${BENCH_TMP:-${TMPDIR:-/tmp}}/brimstell-agent.XXXXXX")
cleanup() { rm -rf -- "$work"; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# The sandbox's variables (root, home, platform, outbox), with a home that holds nothing.
eval "$("$brimstell" demo "$work/mac" --json | perl -MJSON::PP -e '
    my $j = decode_json(join "", <STDIN>)->{variables};
    print "export $_=\x27$j->{$_}\x27\n" for sort keys %$j;')"
find "$HOME" -mindepth 1 -delete
# One fixed moment, so no run finds anything falling due after the first.
export BRIMSTELL_NOW=1790000000
unset DBUS_SESSION_BUS_ADDRESS

own=com.quorv.brimstell.agent
XPC_SERVICE_NAME=$own "$agent" >/dev/null
settings=$HOME/Library/Preferences/com.quorv.brimstell.plist
[[ -f $settings ]] || { echo "the first run wrote no settings ($settings)" >&2; exit 1; }

# run_us NAME COMMAND...: one run, its wall time in microseconds appended to the array NAME.
run_us() {
    local -n into=$1; shift
    local t0=$EPOCHREALTIME
    "$@" >/dev/null
    local t1=$EPOCHREALTIME
    into+=($(( (${t1/./} - ${t0/./}) )))
}
quiet() { XPC_SERVICE_NAME=$own "$agent"; }
other() { XPC_SERVICE_NAME=other "$agent"; }

true_us=(); quiet_us=(); other_us=()
for _ in 1 2 3; do /bin/true; quiet; other; done  # the page cache holds every file
echo "load average before timing: $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"
for ((round = 1; round <= rounds; round++)); do
    run_us true_us /bin/true
    run_us quiet_us quiet
    run_us true_us /bin/true
    run_us other_us other
done

# Peak memory, measured apart so that the timings above carry no /usr/bin/time.
peak() { /usr/bin/time -f %M -o "$work/peak" "$@" >/dev/null && cat "$work/peak"; }
true_kib=$(peak /bin/true)
quiet_kib=$(XPC_SERVICE_NAME=$own peak "$agent")
other_kib=$(XPC_SERVICE_NAME=other peak "$agent")

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
ms() { awk -v u="$1" 'BEGIN { printf "%.2f", u / 1000 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }'; }
true_med=$(median "${true_us[@]}")
quiet_med=$(median "${quiet_us[@]}")
other_med=$(median "${other_us[@]}")

echo
echo "libraries the agent needs at load time: $(readelf -d "$agent" 2>/dev/null | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' | tr '\n' ' ')"
echo "median of $rounds: /bin/true $(ms "$true_med") ms, quiet run $(ms "$quiet_med") ms, another service name $(ms "$other_med") ms"
echo "ratio to /bin/true: quiet run $(ratio "$quiet_med" "$true_med"), another service name $(ratio "$other_med" "$true_med")"
echo "peak memory: /bin/true $true_kib KiB, quiet run $quiet_kib KiB, another service name $other_kib KiB"
