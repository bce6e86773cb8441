#!/usr/bin/env bash
# Installs what is missing, builds Brimstell, lays out a sample sandbox Mac and runs the background
# agent against it twice: the first run takes stock, the second finds a program that has since
# been set to start with the Mac and alerts. Last it lists the junk a clean would move.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j"$(nproc)" >/dev/null

mac="${1:-${TMPDIR:-/tmp}/brimstell-demo-mac}"
rm -rf "$mac/Users" "$mac/Library" "$mac/notifications.jsonl" 2>/dev/null || true
eval "$(build/brimstell demo "$mac")"

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
