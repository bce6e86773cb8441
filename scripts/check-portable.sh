#!/usr/bin/env bash
# Fails when portable code names a call, flag or field that only Linux (or only macOS) has.
#
#   scripts/check-portable.sh
#
# Such differences live in support/posix/Compat.{hpp,cpp}. The files listed in linux_only below
# are the Linux backends themselves (the helper daemon, systemd and D-Bus, the freedesktop Trash):
# they are never built for a Mac, so they may speak Linux.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

# Names that exist on one of the two systems only.
names='\bst_[amc]tim\b|\bst_[amcb]timespec\b|\bst_birthtim|\bstatx\b|\brenameat2\b|RENAME_NOREPLACE|renameatx_np'
names+='|RENAME_EXCL|/proc/self|/proc/\{|\bO_PATH\b|\bO_NOATIME\b|SO_PEERCRED|\bucred\b|LOCAL_PEER|F_GETPATH'
names+='|_NSGetExecutablePath|\bpipe2\b|pidfd|SYS_gettid|getdents64|\bgetrandom\b|\baccept4\b'

linux_only=(
    'helper/'                                   # the root helper daemon of Linux
    'support/systemd/'                          # systemd's bus
    'support/notify/DBusNotifier'               # freedesktop notifications
    'kit/files/FreedesktopTrash'                # the freedesktop Trash
    'kit/files/SystemdHelperService'            # the helper's systemd units
    'kit/agent/SystemdAgentService'             # the agent's systemd timer
    'support/posix/Compat.'                     # where the differences are kept
)

exclude=()
for path in "${linux_only[@]}"; do exclude+=(-e "^$path"); done

found=$(git ls-files -- 'agent' 'cli' 'helper' 'kit' 'shared' 'support' |
        grep -E '\.(cpp|hpp|mm)$' | grep -v "${exclude[@]}" |
        xargs grep -nE "$names" -- 2>/dev/null |
        grep -vE '^[^:]+:[0-9]+:\s*//' || true)

if [[ -n $found ]]; then
    echo "Names that only one system has, outside support/posix/Compat:" >&2
    echo "$found" >&2
    echo "Put the difference behind a function in support/posix/Compat and call that." >&2
    exit 1
fi
echo "portable: no system-only names outside support/posix/Compat"
