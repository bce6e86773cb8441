#include "kit/updates/UpdatesModel.hpp"

#include "kit/settings/SettingsKeys.hpp"
#include "kit/updates/AppBundles.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

UpdatesModel::UpdatesModel() {
    if (const auto d = quorv::settings().date(keys::updatesLastCheck)) lastCheck = d->since1970;
}

void UpdatesModel::check() { check(AppBundles::all(false)); }

void UpdatesModel::check(const std::vector<AppBundle>& installedApps) {
    checking = true;
    done = false;
    auto result = UpdateChecker::check(installedApps);
    updates = std::move(result.updates);
    upToDate = result.upToDate;
    cantCheck = std::move(result.cantCheck);
    failed = std::move(result.failed);
    apps = std::move(result.apps);
    installing.clear();
    results.clear();
    checking = false;
    done = true;
    lastCheck = quorv::host().now();
    quorv::settings().set(keys::updatesLastCheck, quorv::Date{*lastCheck});
}

std::string UpdatesModel::status() const {
    if (!done) return checking ? "" : beforeCheckText;
    // With updates found the list speaks for itself.
    return updates.empty() ? allCurrentText : "";
}

std::string UpdatesModel::notReachedText(const std::string& name) { return name + " couldn't be reached right now"; }

}  // namespace brimstell
