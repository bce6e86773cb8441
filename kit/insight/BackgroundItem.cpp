#include "kit/insight/BackgroundItem.hpp"

#include <sys/stat.h>

#include "support/host/Host.hpp"

namespace brimstell {

namespace {
constexpr double week = 604'800;

bool existsAt(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0;
}
}  // namespace

const char* BackgroundItem::scopeLabel(Scope scope) {
    switch (scope) {
        case Scope::user: return "Your account";
        case Scope::allUsers: return "All users";
        case Scope::system: return "System";
    }
    return "";
}

const char* BackgroundItem::caption(Scope scope) {
    // Linux has no Launch Agents or Daemons: its scopes hold user services, autostart entries and
    // crontab lines, the same for everyone, and the system's services.
    if (!quorv::host().isMac()) {
        switch (scope) {
            case Scope::user: return "Services and programs that start for your account";
            case Scope::allUsers: return "Services and programs that start for everyone on this computer";
            case Scope::system: return "System services, run as root";
        }
    }
    switch (scope) {
        case Scope::user: return "Launch Agents in your account";
        case Scope::allUsers: return "Launch Agents for everyone on this Mac";
        case Scope::system: return "Launch Daemons, run as the system";
    }
    return "";
}

std::optional<std::string> appNameInPath(std::string_view program) {
    const auto app = program.find(".app/");
    if (app == std::string_view::npos) return std::nullopt;
    const auto before = program.substr(0, app);
    const auto slash = before.rfind('/');
    return std::string(slash == std::string_view::npos ? before : before.substr(slash + 1));
}

bool addedLately(std::optional<double> added, double now) { return added && *added > now - week; }

std::string BackgroundItem::shownName() const {
    // A crontab line is known by its program's name (its label only numbers the line).
    if (source == Source::cron && program) {
        const auto slash = program->rfind('/');
        return slash == std::string::npos ? *program : program->substr(slash + 1);
    }
    if (program) {
        if (auto name = appNameInPath(*program)) return *name;
    }
    return label;
}

bool BackgroundItem::programGone() const {
    return program && program->starts_with("/") && !existsAt(quorv::host().path(*program));
}

std::vector<std::string> BackgroundItem::notes(double now) const {
    std::vector<std::string> out;
    if (addedLately(added, now)) out.emplace_back("Added in the last 7 days");
    if (programGone()) out.emplace_back("Left behind by an app you removed");
    return out;
}

bool BackgroundItem::worthALook(double now) const {
    return addedLately(added, now) || programGone() || (signature && !signature->trusted()) ||
           (provenance && !provenance->package);
}

bool LoginItem::worthALook() const {
    return (signature && !signature->trusted()) || (appURL && !existsAt(*appURL));
}

}  // namespace brimstell
