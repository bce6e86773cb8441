// The demo Mac's slowdown: its fake tools print one recorded moment of a Mac. The account's own
// processes carry the uid of whoever runs the sandbox, as ps would show them; the boot time is
// worked out from the sandbox's clock (BRIMSTELL_NOW when it is held still).

#include "kit/sandbox/SandboxSlowdown.hpp"

#include "kit/insight/SlowdownMac.hpp"

namespace brimstell {

namespace {

// `ps -A -o pid=,uid=,pcpu=,rss=,comm=`: macOS pads the numbers and prints the executable's path,
// spaces and all. The processes of the system are those of the recording.
constexpr const char* psBody = R"sh(me=$(id -u)
while IFS='|' read -r pid uid cpu rss comm; do
  [ "$uid" = me ] && uid=$me
  printf '%5s %5s %5s %8s %s\n' "$pid" "$uid" "$cpu" "$rss" "$comm"
done <<'EOF'
1|0|0.1|13296|/sbin/launchd
0|0|45.2|0|kernel_task
11|0|0.0|2188|/usr/sbin/notifyd
13|0|0.0|4412|/usr/sbin/diskarbitrationd
29|0|31.0|254820|/System/Library/Frameworks/CoreServices.framework/Frameworks/Metadata.framework/Support/mds_stores
77|88|22.4|301220|/System/Library/PrivateFrameworks/SkyLight.framework/Resources/WindowServer
91|202|0.3|9360|/usr/sbin/coreaudiod
98|me|0.2|88120|/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock
100|me|0.4|231408|/System/Library/CoreServices/Finder.app/Contents/MacOS/Finder
126|me|0.0|21004|/System/Library/CoreServices/AirPort Base Station Agent.app/Contents/MacOS/AirPort Base Station Agent
377|0|72.4|48200|/Library/PrivilegedHelperTools/com.example.backupd
412|me|1.2|20480|/Applications/Example.app/Contents/MacOS/updater
640|me|12.0|2050000|/Applications/Example.app/Contents/MacOS/Example
702|me|96.5|1180000|/Applications/Spotify.app/Contents/MacOS/Spotify
810|me|4.1|610000|/Applications/Google Chrome.app/Contents/MacOS/Google Chrome
811|me|2.0|1250000|/Applications/Google Chrome.app/Contents/Frameworks/Google Chrome Framework.framework/Versions/120.0.6099.109/Helpers/Google Chrome Helper (Renderer).app/Contents/MacOS/Google Chrome Helper (Renderer)
812|me|0.5|740000|/Applications/Google Chrome.app/Contents/Frameworks/Google Chrome Framework.framework/Versions/120.0.6099.109/Helpers/Google Chrome Helper (GPU).app/Contents/MacOS/Google Chrome Helper (GPU)
1185|me|8.3|40960|/System/Library/Frameworks/CoreServices.framework/Frameworks/Metadata.framework/Versions/A/Support/mdworker_shared
1197|me|0.0|30200|/Applications/Utilities/Terminal.app/Contents/MacOS/Terminal
1243|0|90.0|6100|/usr/sbin/cupsd
1232|502|0.0|0|(userInit)
1272|502|0.0|5120|/sbin/launchd
1275|502|0.2|16384|/System/Library/Frameworks/CoreServices.framework/Frameworks/Metadata.framework/Versions/A/Support/mdworker
1290|502|0.1|402000|/Applications/Preview.app/Contents/MacOS/Preview
1202|me|0.0|1800|-bash
EOF
)sh";

// `sysctl NAME…` as macOS prints it, for the names asked (an unknown name gives nothing).
constexpr const char* sysctlBody = R"sh(now=${BRIMSTELL_NOW:-$(date +%s)}
now=${now%%.*}
boot=$((now - 16 * 86400 - 7200))
for name in "$@"; do
  case "$name" in
    hw.memsize) echo 'hw.memsize: 17179869184' ;;
    vm.swapusage) echo 'vm.swapusage: total = 5120.00M  used = 4608.00M  free = 512.00M  (encrypted)' ;;
    kern.memorystatus_vm_pressure_level) echo 'kern.memorystatus_vm_pressure_level: 1' ;;
    kern.boottime) echo "kern.boottime: { sec = $boot, usec = 393940 } Thu Mar 28 09:54:24 2024" ;;
    *) echo "sysctl: unknown oid '$name'" >&2; status=1 ;;
  esac
done
exit ${status:-0})sh";

constexpr const char* vmStatBody = R"sh(cat <<'EOF'
Mach Virtual Memory Statistics: (page size of 16384 bytes)
Pages free:                                4104.
Pages active:                            401230.
Pages inactive:                          380112.
Pages speculative:                         2011.
Pages throttled:                              0.
Pages wired down:                        140220.
Pages purgeable:                           6020.
Pages occupied by compressor:            201344.
EOF)sh";

constexpr const char* tmutilBody = R"sh([ "$1" = status ] || exit 64
cat <<'EOF'
Backup session status:
{
    ClientID = "com.apple.backupd";
    Percent = 1;
    Running = 0;
}
EOF)sh";

}  // namespace

void addSlowdown(SandboxMac& mac) {
    mac.addFakeTool("/bin/ps", psBody);
    mac.addFakeTool("/usr/sbin/sysctl", sysctlBody);
    mac.addFakeTool("/usr/bin/vm_stat", vmStatBody);
    mac.addFakeTool("/usr/bin/tmutil", tmutilBody);
    mac.writeFile(recordedProcessInfo, "thermalState: fair\nlowPowerMode: 1\n");
}

}  // namespace brimstell
