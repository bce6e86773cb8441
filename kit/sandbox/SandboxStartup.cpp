// The demo Mac's start-up items: launch property lists, their programs with recorded signatures,
// and the fake launchctl and sfltool. launchctl keeps what is switched off in a small state file,
// so that switching an item shows in the next listing.

#include <sys/stat.h>

#include <fmt/format.h>

#include "kit/insight/Signature.hpp"
#include "kit/sandbox/SandboxStartup.hpp"

namespace brimstell {

namespace {

std::string meets(const char* requirement) { return std::string("meets: ") + requirement + "\n"; }

// `launchctl list` and `print system` in the shapes macOS prints; print-disabled from the state
// file, whose lines are "user/<label>" for the user's gui domain and "system/<label>".
constexpr const char* launchctlBody = R"sh(state='{state}'
touch "$state"
key() {{ case "$1" in gui/*) echo "user/${{1#gui/*/}}" ;; system/*) echo "$1" ;; esac; }}
case "$1" in
  print-disabled)
    case "$2" in gui/*) want=user ;; *) want=system ;; esac
    echo 'disabled services = {{'
    while IFS= read -r line; do
      case "$line" in "$want"/*) printf '\t"%s" => disabled\n' "${{line#*/}}" ;; esac
    done < "$state"
    echo '}}' ;;
  list)
    printf 'PID\tStatus\tLabel\n412\t0\tcom.example.editor.updater\n-\t0\tcom.gone.syncer\n-\t78\tcom.example.menuhelper\n' ;;
  print)
    printf 'system = {{\n\ttype = System\n\tservices = {{\n\t\t     377      - \tcom.example.backupd\n'
    printf '\t\t       0      0 \tcom.example.printerd\n\t}}\n}}\n' ;;
  disable)
    k=$(key "$2"); [ -n "$k" ] || exit 1
    grep -qxF "$k" "$state" || echo "$k" >> "$state" ;;
  enable)
    k=$(key "$2"); [ -n "$k" ] || exit 1
    grep -vxF "$k" "$state" > "$state.new"; mv "$state.new" "$state" ;;
  bootout) exit 0 ;;
  *) exit 64 ;;
esac)sh";

constexpr const char* dumpBody = R"sh(uid=$(id -u)
cat <<EOF
========================
 Records for UID $uid : 7C3A9C0E-2B44-4D7A-9E11-0D1E6A3F5B21
========================

 ServiceManagement migrated: true
 SharedFileList migrated: true

 Items:

 #1:
                 UUID: 2F0B7A4C-1D5E-4C3B-8A6F-9E2D1C0B7A64
                 Name: Example Editor
       Developer Name: Example Software Ltd
      Team Identifier: EXMPL12345
                 Type: app (0x2)
                Flags: [  ] (0)
          Disposition: [enabled, allowed, visible, notified] (0xb)
           Identifier: 2.com.example.editor
                  URL: file:///Applications/Example.app/
           Generation: 1
    Bundle Identifier: com.example.editor

 #2:
                 UUID: 8D2E4F6A-0B1C-4D3E-9F5A-6B7C8D9E0F12
                 Name: Example Menu
                 Type: login item (0x4)
          Disposition: [enabled, allowed, notified] (0xb)
           Identifier: 4.com.example.editor.menu
                  URL: Contents/Library/LoginItems/Example%20Menu.app
      Executable Path: /Applications/Example.app/Contents/Library/LoginItems/Example Menu.app/Contents/MacOS/Example Menu
    Bundle Identifier: com.example.editor.menu
    Parent Identifier: 2.com.example.editor

 #3:
                 UUID: 5A6B7C8D-9E0F-4A1B-8C2D-3E4F5A6B7C8D
                 Name: Example Menu Helper
                 Type: legacy agent (0x10008)
          Disposition: [disabled, allowed, visible, notified] (0xa)
           Identifier: 16.com.example.menuhelper
                  URL: file:///Library/LaunchAgents/com.example.menuhelper.plist
      Executable Path: /Library/Application Support/Example/helper

 #4:
                 UUID: 1B2C3D4E-5F6A-4B7C-8D9E-0F1A2B3C4D5E
                 Name: Old Sync
                 Type: app (0x2)
          Disposition: [disabled, allowed, visible, notified] (0xa)
           Identifier: 2.com.oldsync.app
                  URL: file:///Applications/Old%20Sync.app/
    Bundle Identifier: com.oldsync.app

 #5:
                 UUID: 6E7F8A9B-0C1D-4E2F-9A3B-4C5D6E7F8A9B
                 Name: Old Sync Agent
                 Type: agent (0x8)
          Disposition: [enabled, allowed, visible, notified] (0xb)
           Identifier: 8.com.oldsync.agent
                  URL: file:///Users/Shared/OldSync/agent
      Executable Path: /Users/Shared/OldSync/agent
    Parent Identifier: 2.com.oldsync.app

========================
 Records for UID 0 : 00000000-0000-0000-0000-000000000000
========================

 #1:
                 Name: Example Backup
                 Type: legacy daemon (0x10010)
          Disposition: [enabled, allowed, visible, notified] (0xb)
           Identifier: 16.com.example.backupd
                  URL: file:///Library/LaunchDaemons/com.example.backupd.plist
EOF)sh";

}  // namespace

void addSignature(SandboxMac& mac, std::string_view programPath, std::string_view record) {
    mac.writeFile(std::string(programPath) + ".signature", record);
}

void addStartupItems(SandboxMac& mac) {
    mac.addLaunchItem("~/Library/LaunchAgents", "com.example.editor.updater", "/Applications/Example.app/Contents/MacOS/updater");
    mac.addLaunchItem("~/Library/LaunchAgents", "com.gone.syncer", "/Applications/Gone Sync.app/Contents/MacOS/syncer");
    mac.addLaunchItem("/Library/LaunchAgents", "com.example.menuhelper", "/Library/Application Support/Example/helper");
    mac.addLaunchItem("/Library/LaunchDaemons", "com.example.backupd", "/Library/PrivilegedHelperTools/com.example.backupd");
    mac.addLaunchItem("/Library/LaunchDaemons", "com.example.printerd", "/Library/Printers/Example/printerd");
    mac.addLaunchItem("/Library/LaunchDaemons", "com.apple.example.diagnostics", "/usr/libexec/exampled");

    const std::string devID = "leaf: Developer ID Application: Example Software Ltd (EXMPL12345)\n";
    const struct {
        const char* program;
        std::string record;
    } programs[] = {
        {"/Applications/Example.app/Contents/MacOS/updater",
         "status: 0\nflags: 0\n" + devID + meets(Signature::developerIDRequirement) + meets(Signature::notarisedRequirement)},
        {"/Applications/Example.app/Contents/Library/LoginItems/Example Menu.app/Contents/MacOS/Example Menu",
         "status: 0\nflags: 0\nleaf: Apple Mac OS Application Signing\n" + meets(Signature::appStoreRequirement)},
        {"/Library/Application Support/Example/helper",
         "status: 0\nflags: 0\nleaf: Apple Development: Sam Example (QX81ZZ0011)\n"},
        {"/Library/PrivilegedHelperTools/com.example.backupd",
         "status: 0\nflags: 0\n" + devID + meets(Signature::developerIDRequirement)},
        {"/Library/Printers/Example/printerd", "status: -67061\nflags: 2\n"},
        {"/usr/libexec/exampled", "status: 0\nflags: 0\nleaf: Software Signing\n" + meets(Signature::appleRequirement)},
        {"/Users/Shared/OldSync/agent", "status: -67062\nflags: 0\n"},
    };
    for (const auto& p : programs) {
        const auto location = mac.writeFile(p.program, "#!/bin/sh\n");
        ::chmod(location.c_str(), 0755);
        addSignature(mac, p.program, p.record);
    }
    mac.writeFile("/private/var/db/launchd.disabled", "user/com.example.menuhelper\n");
    mac.addFakeTool("/bin/launchctl", fmt::format(launchctlBody, fmt::arg("state", mac.path("/private/var/db/launchd.disabled"))));
    mac.addFakeTool("/usr/bin/sfltool", dumpBody);
}

}  // namespace brimstell
