// Switching what starts on Linux: systemd units through systemctl (the system's through the root
// helper), XDG autostart entries through the user's own entry of the same name.

#include <sys/stat.h>
#include <unistd.h>

#include "kit/files/Admin.hpp"
#include "kit/insight/Autostart.hpp"
#include "support/host/Host.hpp"
#include "support/posix/AtomicFile.hpp"
#include "support/posix/Files.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

namespace {

using Scope = BackgroundItem::Scope;

bool switchUnit(const BackgroundItem& item, bool on) {
    if (item.scope == Scope::system) return Admin::setDaemon(item.label, on);
    const auto systemctl = quorv::host().path("/usr/bin/systemctl");
    for (const auto& args : Autostart::unitSwitch(item.label, item.scope, on))
        if (!quorv::Shell::run(systemctl, args).succeeded()) return false;
    return true;
}

bool writeWhole(const std::string& location, const std::string& text) {
    auto file = quorv::files::AtomicFile::create(location, 0644);
    return file && file->write(text) && file->commit();
}

bool regularFileAt(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The user's entry stands in for the system's entry of the same name. Switching on, an entry that
// is exactly what switching off wrote over a system entry that is itself on is taken away again
// (nothing of the user's is lost with it); any other entry is rewritten switched on.
bool switchAutostart(const BackgroundItem& item, bool on) {
    const auto& h = quorv::host();
    const auto name = item.plist.substr(item.plist.rfind('/') + 1);
    const auto mine = h.inHome(".config/autostart/" + name);
    const auto systems = quorv::files::read(h.path("/etc/xdg/autostart/" + name), 1 << 20);
    const auto own = regularFileAt(mine) ? quorv::files::read(mine, 1 << 20) : std::nullopt;
    if (on && own && systems) {
        const auto system = Autostart::desktopEntry(*systems);
        if (system && system->enabled && Autostart::switched(*systems, false) == *own) return ::unlink(mine.c_str()) == 0;
    }
    const auto base = own ? own : systems;
    const auto text = base ? Autostart::switched(*base, on) : std::nullopt;
    return text && writeWhole(mine, *text);
}

}  // namespace

bool Autostart::setEnabled(const BackgroundItem& item, bool on) {
    switch (item.source) {
        case BackgroundItem::Source::unit: return switchUnit(item, on);
        case BackgroundItem::Source::autostart: return switchAutostart(item, on);
        default: return false;
    }
}

}  // namespace brimstell
