// The demo Mac's developer tools. Each keeps what was removed in a small state file, so that a
// clean shows in the next listing.

#include "kit/sandbox/SandboxDeveloper.hpp"

#include <fmt/format.h>

namespace brimstell {

namespace {

constexpr const char* brewInfo = R"json({"formulae":[
{"name":"neovim","full_name":"neovim","desc":"Ambitious Vim-fork focused on extensibility and agility","versions":{"stable":"0.10.1"},"installed":[{"version":"0.10.0","installed_as_dependency":false,"installed_on_request":true}],"outdated":true,"pinned":false},
{"name":"jq","full_name":"jq","desc":"Lightweight and flexible command-line JSON processor","versions":{"stable":"1.7.1"},"installed":[{"version":"1.7.1","installed_as_dependency":false,"installed_on_request":true}],"outdated":false,"pinned":true},
{"name":"oniguruma","full_name":"oniguruma","desc":"Regular expressions library","versions":{"stable":"6.9.9"},"installed":[{"version":"6.9.9","installed_as_dependency":true,"installed_on_request":false}],"outdated":false,"pinned":false},
{"name":"gettext","full_name":"gettext","desc":"GNU internationalization (i18n) and localization (l10n) library","versions":{"stable":"0.22.5"},"installed":[{"version":"0.22.5","installed_as_dependency":true,"installed_on_request":false}],"outdated":false,"pinned":false}],
"casks":[
{"token":"firefox","name":["Mozilla Firefox"],"desc":"Web browser","version":"121.0","installed":"120.0","outdated":false},
{"token":"discord","name":["Discord"],"desc":"Voice and text chat software","version":"0.0.305","installed":"0.0.293","outdated":false}]}
)json";

// brew as Homebrew 4 answers; `cleanup` and `autoremove` are remembered in the state file.
constexpr const char* brewBody = R"sh(state='{root}/private/var/db/brew.state'
touch "$state"
printf '%s %s %s PATH=%s\n' "$HOMEBREW_NO_AUTO_UPDATE" "$HOMEBREW_NO_ENV_HINTS" "$HOMEBREW_NO_INSTALL_CLEANUP" "$PATH" > '{root}/private/var/log/brew.env'
case "$*" in
  "info --installed --json=v2") cat '{root}/opt/homebrew/.info.json' ;;
  "outdated --cask --json=v2")
    echo '{{"formulae":[],"casks":[{{"name":"firefox","installed_versions":["120.0"],"current_version":"121.0"}}]}}' ;;
  "cleanup --dry-run")
    grep -qx cleanup "$state" && exit 0
    echo 'Would remove: /opt/homebrew/Cellar/neovim/0.9.5 (1,452 files, 27.1MB)'
    echo 'Would remove: {home}/Library/Caches/Homebrew/downloads/3c1f--node-21.5.0.bottle.tar.gz (12.4MB)'
    echo '==> This operation would free approximately 39.5MB of disk space.' ;;
  "autoremove --dry-run")
    grep -qx autoremove "$state" && exit 0
    printf '==> Would autoremove 2 unneeded formulae:\nlibyaml\nm4\n' ;;
  cleanup) echo cleanup >> "$state"; echo 'Removing: /opt/homebrew/Cellar/neovim/0.9.5... (1,452 files, 27.1MB)' ;;
  autoremove) echo autoremove >> "$state"; printf '==> Autoremoving 2 unneeded formulae:\nlibyaml\nm4\n' ;;
  "upgrade "*|"uninstall "*) exit 0 ;;
  *) echo "Error: Unknown command: $1" >&2; exit 1 ;;
esac)sh";

constexpr const char* dockerBody = R"sh(state='{root}/private/var/db/docker.state'
touch "$state"
if [ '{running}' != yes ]; then
  echo 'Cannot connect to the Docker daemon at unix:///var/run/docker.sock. Is the docker daemon running?' >&2
  exit 1
fi
pruned() {{ grep -qx "$1" "$state"; }}
case "$*" in
  "system df --format {{{{json .}}}}")
    echo '{{"Active":"2","Reclaimable":"8.674GB (90%)","Size":"9.57GB","TotalCount":"15","Type":"Images"}}'
    if pruned container; then echo '{{"Active":"1","Reclaimable":"0B (0%)","Size":"2.1MB","TotalCount":"1","Type":"Containers"}}'
    else echo '{{"Active":"1","Reclaimable":"1.224GB (99%)","Size":"1.226GB","TotalCount":"2","Type":"Containers"}}'; fi
    echo '{{"Active":"1","Reclaimable":"0B (0%)","Size":"9.323MB","TotalCount":"1","Type":"Local Volumes"}}'
    if pruned builder; then echo '{{"Active":"0","Reclaimable":"0B","Size":"0B","TotalCount":"0","Type":"Build Cache"}}'
    else echo '{{"Active":"0","Reclaimable":"2.31GB","Size":"2.31GB","TotalCount":"38","Type":"Build Cache"}}'; fi ;;
  "container prune -f"|"image prune -a -f"|"builder prune -a -f"|"volume prune -a -f")
    echo "$1" >> "$state"; echo 'Total reclaimed space: 0B' ;;
  *) echo "docker: unknown command: $*" >&2; exit 125 ;;
esac)sh";

constexpr const char* simctlDevices = R"json({{
  "devices" : {{
    "com.apple.CoreSimulator.SimRuntime.iOS-17-0" : [
      {{"dataPath" : "/Users/{user}/Library/Developer/CoreSimulator/Devices/6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F13/data", "dataPathSize" : 2147483648, "lastBootedAt" : "2026-09-14T08:30:00Z", "udid" : "6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F13", "isAvailable" : true, "deviceTypeIdentifier" : "com.apple.CoreSimulator.SimDeviceType.iPhone-15", "state" : "Shutdown", "name" : "iPhone 15"}},
      {{"dataPath" : "/Users/{user}/Library/Developer/CoreSimulator/Devices/0A9B8C7D-6E5F-4A3B-2C1D-0E9F8A7B6C5D/data", "dataPathSize" : 524288000, "udid" : "0A9B8C7D-6E5F-4A3B-2C1D-0E9F8A7B6C5D", "isAvailable" : true, "deviceTypeIdentifier" : "com.apple.CoreSimulator.SimDeviceType.iPad-Air-5th-generation", "state" : "Shutdown", "name" : "iPad Air (5th generation)"}}
    ]UNAVAILABLE
  }}
}}
)json";

constexpr const char* simctlUnavailable = R"json(,
    "com.apple.CoreSimulator.SimRuntime.iOS-15-5" : [
      {{"dataPathSize" : 812000000, "lastBootedAt" : "2024-03-02T17:12:44Z", "udid" : "D4C3B2A1-9F8E-4D7C-8B6A-5F4E3D2C1B0A", "isAvailable" : false, "availabilityError" : "runtime profile not found using \"System\" match policy", "state" : "Shutdown", "name" : "iPhone 13"}},
      {{"dataPathSize" : 402000000, "udid" : "1B2C3D4E-5F6A-4B7C-8D9E-0F1A2B3C4D5F", "isAvailable" : false, "availabilityError" : "runtime profile not found using \"System\" match policy", "state" : "Shutdown", "name" : "iPhone SE (3rd generation)"}}
    ])json";

constexpr const char* simctlRuntimes = R"json({
  "2E6B1C0A-7D4F-4B8E-9A31-C5D7E9F0A2B4" : {"build" : "21A328", "deletable" : true, "identifier" : "2E6B1C0A-7D4F-4B8E-9A31-C5D7E9F0A2B4", "kind" : "Disk Image", "lastUsedAt" : "2026-09-14T08:30:00Z", "platformIdentifier" : "com.apple.platform.iphonesimulator", "runtimeIdentifier" : "com.apple.CoreSimulator.SimRuntime.iOS-17-0", "signatureState" : "Verified", "sizeBytes" : 7340032000, "state" : "Ready", "version" : "17.0"},
  "9C8D7E6F-5A4B-4C3D-8E2F-1A0B9C8D7E6F" : {"build" : "21R355", "deletable" : true, "identifier" : "9C8D7E6F-5A4B-4C3D-8E2F-1A0B9C8D7E6F", "kind" : "Disk Image", "lastUsedAt" : "2025-02-11T16:05:00Z", "platformIdentifier" : "com.apple.platform.watchsimulator", "runtimeIdentifier" : "com.apple.CoreSimulator.SimRuntime.watchOS-10-0", "signatureState" : "Verified", "sizeBytes" : 3670016000, "state" : "Ready", "version" : "10.0"},
  "B1A2C3D4-E5F6-4A7B-8C9D-0E1F2A3B4C5D" : {"build" : "21J353", "deletable" : false, "identifier" : "B1A2C3D4-E5F6-4A7B-8C9D-0E1F2A3B4C5D", "kind" : "Bundled with Xcode", "platformIdentifier" : "com.apple.platform.appletvsimulator", "runtimeIdentifier" : "com.apple.CoreSimulator.SimRuntime.tvOS-17-0", "sizeBytes" : 0, "state" : "Ready", "version" : "17.0"}
}
)json";

constexpr const char* xcrunBody = R"sh(state='{root}/private/var/db/simctl.state'
data='{root}/Applications/Xcode.app/Contents/Developer/.simctl'
touch "$state"
case "$*" in
  "simctl list devices --json")
    if grep -qx unavailable "$state"; then sed 's/UNAVAILABLE//' "$data/devices.json"
    else sed -e "/UNAVAILABLE/{{r $data/unavailable.json" -e 's/UNAVAILABLE//' -e '}}' "$data/devices.json"; fi ;;
  "simctl runtime list --json") cat "$data/runtimes.json" ;;
  "simctl delete unavailable") echo unavailable >> "$state" ;;
  "simctl delete "*|"simctl runtime delete "*) exit 0 ;;
  *) echo "xcrun: error: unable to find utility \"$1\"" >&2; exit 72 ;;
esac)sh";

}  // namespace

void addHomebrew(SandboxMac& mac) {
    mac.writeFile("/opt/homebrew/.info.json", brewInfo);
    const struct {
        const char* folder;
        std::size_t bytes;
    } kept[] = {{"/opt/homebrew/Cellar/neovim/0.10.0/bin/nvim", 3'400'000}, {"/opt/homebrew/Cellar/jq/1.7.1/bin/jq", 600'000},
                {"/opt/homebrew/Cellar/oniguruma/6.9.9/lib/libonig.dylib", 400'000},
                {"/opt/homebrew/Cellar/gettext/0.22.5/lib/libintl.dylib", 800'000},
                {"/opt/homebrew/Caskroom/firefox/120.0/Firefox.app.zip", 2'000'000},
                {"/opt/homebrew/Caskroom/discord/0.0.293/Discord.app.zip", 1'100'000}};
    for (const auto& k : kept) mac.writeFileOfSize(k.folder, k.bytes);
    mac.addFakeTool("/opt/homebrew/bin/brew", fmt::format(brewBody, fmt::arg("root", mac.root()), fmt::arg("home", "/Users/" + mac.user())));
}

void addDeveloperTools(SandboxMac& mac, const SandboxDeveloperTools& tools) {
    if (tools.brew) addHomebrew(mac);
    if (tools.docker != SandboxDeveloperTools::DockerState::absent) {
        const bool running = tools.docker == SandboxDeveloperTools::DockerState::running;
        mac.addFakeTool("/usr/local/bin/docker",
                        fmt::format(dockerBody, fmt::arg("root", mac.root()), fmt::arg("running", running ? "yes" : "no")));
    }
    if (!tools.xcode) return;
    const std::string data = "/Applications/Xcode.app/Contents/Developer/.simctl/";
    mac.writeFile(data + "devices.json", fmt::format(simctlDevices, fmt::arg("user", mac.user())));
    mac.writeFile(data + "unavailable.json", fmt::format(simctlUnavailable));
    mac.writeFile(data + "runtimes.json", simctlRuntimes);
    mac.addFakeTool("/usr/bin/xcode-select", "echo /Applications/Xcode.app/Contents/Developer");
    mac.addFakeTool("/usr/bin/xcrun", fmt::format(xcrunBody, fmt::arg("root", mac.root())));
}

}  // namespace brimstell
