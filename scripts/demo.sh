#!/usr/bin/env bash
# Installs what is missing, builds Brimstell, lays out a sample sandbox Mac and runs the background
# agent against it twice: the first run takes stock, the second finds a program that has since
# been set to start with the Mac and alerts. Last it lists the junk a clean would move.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
echo "== building (a first build takes several minutes; each line is one step)"
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j"$(nproc)"

mac="${1:-${TMPDIR:-/tmp}/brimstell-demo-mac}"
# A folder the demo laid out before starts afresh (its home, settings and notifications);
# brimstell demo refuses any other folder that isn't empty, and then this script stops.
if [[ -f "$mac/.brimstell-sandbox-mac" ]]; then
    rm -rf -- "$mac/Users" "$mac/Library" "$mac/notifications.jsonl"
fi
variables=$(build/brimstell demo "$mac")
eval "$variables"
# Never let the agent loose on the real home: everything below runs inside the sandbox or not at all.
if [[ -z ${BRIMSTELL_ROOT:-} || ${HOME:-} != "$BRIMSTELL_ROOT"/* ]]; then
    echo "demo.sh: the sandbox Mac's variables are missing; stopping before the agent runs" >&2
    exit 1
fi

echo; echo "== first agent run"
build/brimstell agent run
echo; echo "== a new launch agent appears"
cat > "$HOME/Library/LaunchAgents/com.example.sneaky.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>Label</key><string>com.example.sneaky</string></dict></plist>
PLIST
echo; echo "== second agent run"
build/brimstell agent run
echo; echo "== notifications sent ($BRIMSTELL_OUTBOX)"
cat "$BRIMSTELL_OUTBOX"
echo; echo "== agent status"
build/brimstell agent status
echo; echo "== junk on that Mac (brimstell clean would move what is ticked; brimstell history puts it back)"
build/brimstell junk
echo; echo "== battery and disk health (the first agent run kept today's reading)"
build/brimstell health
