#!/usr/bin/env bash
# Times the cleaning history at its cap of 20,000 entries against a plain copy-and-parse of the
# same file, in the same run.
#
#   bench/history.sh [ENTRIES] [ROUNDS]
#
# A sandbox Mac is laid out in a temporary folder and given a history of ENTRIES (default 20000)
# entries over the last 80 days: several sessions, most items long gone from the Trash, some put
# back, some moved by the helper, a few paths that are not UTF-8 (about 7 MB at 20,000). Each round
# runs, one after the other, `brimstell trash` of one small file (the history is read, added to
# and written whole), `brimstell history --json`, and the yardstick: the file copied with cp and
# parsed by python3's json module. The script prints the median time of each, the ratios (ours /
# yardstick, lower is better) and each one's peak memory. Targets: trash <= 30 ms and <= 20 MB,
# history --json <= 150 ms.
#
# Environment: BUILD_DIR (default <repo>/build; built here when brimstell is missing), BENCH_TMP
# (where the temporary folder goes, default TMPDIR or /tmp).
set -euo pipefail

entries=${1:-20000}
rounds=${2:-7}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD_DIR:-$repo/build}
brimstell=$build/brimstell

if ! [[ $entries =~ ^[0-9]+$ && $entries -ge 100 && $entries -le 20000 && $rounds =~ ^[0-9]+$ && $rounds -ge 1 ]]; then
    echo "usage: $0 [100 <= ENTRIES <= 20000] [ROUNDS >= 1]" >&2
    exit 2
fi
command -v python3 >/dev/null || { echo "python3 is needed (the yardstick, and to write the history)" >&2; exit 1; }
[[ -x /usr/bin/time ]] || { echo "GNU time (/usr/bin/time) is needed to measure peak memory" >&2; exit 1; }

if [[ ! -x $brimstell ]]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target brimstell >/dev/null
fi

work=$(mktemp -d "${BENCH_TMP:-${TMPDIR:-/tmp}}/brimstell-history.XXXXXX")
cleanup() { rm -rf -- "$work"; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# The sandbox's variables, without its sample content.
mac=$work/mac
eval "$("$brimstell" demo "$mac" --json | python3 -c '
import json, sys
for k, v in sorted(json.load(sys.stdin)["variables"].items()):
    print("export %s=%s" % (k, "\x27" + v.replace("\x27", "\x27\\\x27\x27") + "\x27"))')"
home=$HOME
history_dir="$home/Library/Application Support/Brimstell/history"
mkdir -p "$history_dir"
history="$history_dir/history.json"

# The history as Brimstell writes it: keys in its order, optional keys left out, paths that are
# not UTF-8 written readable and as base64 bytes.
ENTRIES=$entries HOME_DIR=$home python3 - "$history" <<'PY'
import base64, json, random, sys, time, uuid
random.seed(20261123)
home, want, now = __import__("os").environ["HOME_DIR"], int(__import__("os").environ["ENTRIES"]), time.time()
out, n = [], 0
while n < want:
    session, date = str(uuid.UUID(int=random.getrandbits(128))), now - random.uniform(60, 80 * 86400)
    source = random.choice(["Command line", "Junk", "Large & Old Files", "Auto Clean", None])
    for _ in range(min(want - n, random.randint(1, 400))):
        n += 1
        name = "file %d – report.pdf" % n
        e = {"id": str(uuid.UUID(int=random.getrandbits(128))),
             "original": "%s/Documents/Projects/%d/%s" % (home, n % 97, name),
             "trashed": "%s/.Trash/%s" % (home, name),
             "size": random.randint(0, 5 << 30), "date": round(date, 3), "session": session}
        if source: e["source"] = source
        if n % 50 == 0: e["restored"] = e["original"]
        if n % 3: e["fileID"] = {"volume": 16777220, "file": random.randint(1, 1 << 40)}
        if n % 40 == 0:
            e["root"] = True
            e["original"] = "/Library/Caches/com.example.%d/%s" % (n, name)
        if n % 500 == 0:
            # A name that is not UTF-8: readable with U+FFFD, exact as base64.
            e["original"] = "%s/Documents/bad\ufffd%d" % (home, n)
            e["originalBytes"] = base64.b64encode(b"%s/Documents/bad\xff%d" % (home.encode(), n)).decode()
        out.append(e)
with open(sys.argv[1], "w") as f:
    f.write(json.dumps(out, indent=2, ensure_ascii=False) + "\n")
PY
echo "history: $entries entries, $(($(stat -c %s "$history") / 1024)) KiB"

measure() {  # measure OUT COMMAND...: runs it, leaving "SECONDS MAX_RSS_KIB" in OUT
    local out=$1; shift
    /usr/bin/time -f '%e %M' -o "$out" "$@"
}
now_ns() { date +%s%N; }
yardstick() { cp "$history" "$work/copy.json" && python3 -c 'import json, sys; json.load(open(sys.argv[1]))' "$work/copy.json"; }

# Once each, so the cache holds the binary, python and the file before anything is timed.
echo small >"$home/small.txt"
"$brimstell" trash "$home/small.txt" >/dev/null
"$brimstell" history --json >"$work/history.out"
yardstick

trash_ms=(); json_ms=(); yard_ms=(); trash_rss=0; json_rss=0; yard_rss=0
peak() { local rss; read -r _ rss <"$1"; echo "$rss"; }
echo "load average before timing: $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"
for ((round = 1; round <= rounds; round++)); do
    echo small >"$home/small-$round.txt"
    t0=$(now_ns); measure "$work/trash.m" "$brimstell" trash "$home/small-$round.txt" >/dev/null; t1=$(now_ns)
    measure "$work/json.m" "$brimstell" history --json >"$work/history.out"; t2=$(now_ns)
    measure "$work/yard.m" bash -c "$(declare -f yardstick); history='$history' work='$work' yardstick"; t3=$(now_ns)
    trash_ms+=($(( (t1 - t0) / 1000000 ))); json_ms+=($(( (t2 - t1) / 1000000 ))); yard_ms+=($(( (t3 - t2) / 1000000 )))
    rss=$(peak "$work/trash.m"); (( rss > trash_rss )) && trash_rss=$rss
    rss=$(peak "$work/json.m"); (( rss > json_rss )) && json_rss=$rss
    rss=$(peak "$work/yard.m"); (( rss > yard_rss )) && yard_rss=$rss
    echo "round $round: trash ${trash_ms[-1]} ms, history --json ${json_ms[-1]} ms, cp + python3 json ${yard_ms[-1]} ms"
done

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }'; }
trash_med=$(median "${trash_ms[@]}"); json_med=$(median "${json_ms[@]}"); yard_med=$(median "${yard_ms[@]}")
kept=$(python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))))' "$history")

echo
echo "history now: $kept entries (capped at 20000)"
echo "median: brimstell trash $trash_med ms (target <= 30), brimstell history --json $json_med ms (target <= 150), cp + python3 json $yard_med ms"
echo "ratio to the yardstick: trash $(ratio "$trash_med" "$yard_med"), history --json $(ratio "$json_med" "$yard_med")"
echo "peak memory: trash $((trash_rss / 1024)) MB (target <= 20), history --json $((json_rss / 1024)) MB, cp + python3 json $((yard_rss / 1024)) MB"
