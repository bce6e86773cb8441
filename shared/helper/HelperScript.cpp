#include "shared/helper/HelperScript.hpp"

#include <algorithm>

namespace brimstell::HelperScript {
namespace {

// Runs as root. Every path the script prints is one it found itself; the only caller-supplied
// values are $1 (set by the helper, not the caller), $3 (checked before use) and $4 (unused).
constexpr std::string_view script = R"sh(me="$1"; op="$2"; arg="$3"; list="$4"
shopt -s nullglob dotglob
LC_ALL=C

# True when the path is exactly where it says: its folder's physical path, "/" and its name give
# the path back. A link on the way, a doubled "/", "." or ".." and wrong letter case all fail.
real() {
  case $1 in /*) ;; *) return 1 ;; esac
  local dir="${1%/*}" name="${1##*/}" phys
  [ -n "$dir" ] || dir=/
  phys=$(cd -P "$dir" 2>/dev/null && pwd -P) || return 1
  [ "${phys%/}/$name" = "$1" ]
}

# Prints kind, kilobytes on one file system and path, tab-separated, when the size is above 0.
# A path holding a line feed or a tab is skipped: it could fake a line of the reply.
emit() {
  local nl=$'\n' tab=$'\t' kb
  case $2 in *"$nl"*|*"$tab"*) return 0 ;; esac
  kb=$(du -skx "$2" 2>/dev/null)
  kb=${kb%%[!0-9]*}
  if [ -n "$kb" ] && [ "$kb" -gt 0 ]; then printf '%s\t%s\t%s\n' "$1" "$kb" "$2"; fi
  return 0
}

do_junk() {
  local e u d
  for e in /Library/Caches/*; do
    case ${e##*/} in com.apple.*|ColorSync|"Desktop Pictures") continue ;; esac
    emit cache "$e"
  done
  for e in /Library/Logs/*; do
    [ "${e##*/}" = DiagnosticReports ] && continue
    emit log "$e"
  done
  for e in /Library/Logs/DiagnosticReports/* /private/var/log/*.gz /private/var/log/*.bz2 /private/var/log/*.[0-9] /cores/*; do
    emit log "$e"
  done
  for u in /Users/*; do
    [ -d "$u" ] && [ ! -L "$u" ] || continue
    [ "${u##*/}" = Shared ] && continue
    [ "$u" = "$me" ] && continue
    for d in "$u/Library/Caches" "$u/Library/Logs"; do
      [ -d "$d" ] || continue
      for e in "$d"/*; do
        real "$e" && emit user "$e"
      done
    done
  done
  return 0
}

# Regular files above $arg kilobytes on the data volume: allocated 512-byte blocks, a tab, the
# path from the volume's top ("./…") and a NUL, so that a line break in a name fakes nothing.
do_large() {
  case $arg in ''|*[!0-9]*) return 0 ;; esac
  (
    cd /System/Volumes/Data 2>/dev/null || exit 0
    find -x . \( -path ./Volumes -o -path ./System -o -path ./.Spotlight-V100 -o -path ./.fseventsd \
      -o -path ./.DocumentRevisions-V100 -o -path ./private/var/vm -o -path ./private/var/db \
      -o -path './Users/*/Library/CloudStorage' -o -path './Users/*/Library/Mobile Documents' \
      -o -name '*.app' \) -prune -o -type f -size +"$arg"k -print0 2>/dev/null |
    while IFS= read -r -d '' f; do
      b=$(stat -f %b "$f" 2>/dev/null) || continue
      case $b in ''|*[!0-9]*) continue ;; esac
      printf '%s\t%s\0' "$b" "$f"
    done
  )
}

# "enable <label>" or "disable <label>" for a system service; nothing is deleted.
do_svc() {
  local re='^(enable|disable) ([A-Za-z0-9._-]+)$' verb label
  [[ $arg =~ $re ]] || return 0
  verb=${BASH_REMATCH[1]}
  label=${BASH_REMATCH[2]}
  launchctl "$verb" "system/$label" >/dev/null 2>&1 || return 0
  echo OK
  if [ "$verb" = disable ]; then launchctl bootout "system/$label" >/dev/null 2>&1; fi
  return 0
}

case $op in
  junk) do_junk ;;
  large) do_large ;;
  svc) do_svc ;;
  flushdns) dscacheutil -flushcache >/dev/null 2>&1 && killall -HUP mDNSResponder >/dev/null 2>&1 && echo OK ;;
  reindex) mdutil -E / >/dev/null 2>&1 && echo OK ;;
  thin) tmutil thinlocalsnapshots / 999999999999 4 >/dev/null 2>&1 && echo OK ;;
  profiles) /usr/bin/profiles list -all 2>/dev/null ;;
  btm)
    # The service behind the dump can hang: a watchdog kills the tool after 20 seconds and is
    # itself stopped when the tool ends first. It naps a second at a time, so however a stop
    # meets it, nothing of it outlives the reply by more than a second. The tool is found on the
    # dispatcher's fixed PATH (/usr/bin on a Mac), as launchctl is, so a sandbox's stands in.
    sfltool dumpbtm 2>/dev/null &
    tool=$!
    ( trap 'exit 0' TERM; n=0; while [ $n -lt 20 ]; do sleep 1; n=$((n + 1)); done; kill -9 $tool ) >/dev/null 2>&1 &
    dog=$!
    wait $tool 2>/dev/null
    kill $dog 2>/dev/null
    ;;
esac
)sh";

constexpr std::size_t functionsBegin = script.find('\n') + 1;
constexpr std::size_t functionsEnd = script.rfind("\ncase ") + 1;
static_assert(functionsBegin > 1 && functionsEnd > functionsBegin, "the script lost its shape");

}  // namespace

const std::string_view dispatch = script;
const std::string_view functions = script.substr(functionsBegin, functionsEnd - functionsBegin);

bool isOperation(std::string_view op) {
    return std::find(operations.begin(), operations.end(), op) != operations.end();
}

bool isFileJob(std::string_view op) {
    return std::find(fileJobs.begin(), fileJobs.end(), op) != fileJobs.end();
}

}  // namespace brimstell::HelperScript
