// brimstell cloud [release PROVIDER…]

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/cloud/CloudDownloads.hpp"
#include "kit/cloud/CloudModel.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::CloudEntry;
using brimstell::CloudModel;

void scan(CloudModel& model) {
    Spinner spinner(CloudModel::measuringText);
    model.scan();
}

Json providersJson(const std::vector<CloudEntry>& providers, bool selectedOnly) {
    Json list = Json::array();
    for (const auto& p : providers) {
        if (selectedOnly && !p.selected) continue;
        Json j = Json{{"name", p.name}, {"id", p.folder()}};
        putPath(j, "path", p.location);
        j["bytes"] = p.bytes;
        j["keptOfflineItems"] = p.keptOffline;
        list.push_back(std::move(j));
    }
    return list;
}

void printProviders(const std::vector<CloudEntry>& providers, bool selectedOnly) {
    std::size_t width = 0;
    for (const auto& p : providers) width = std::max(width, p.name.size());
    for (const auto& p : providers) {
        if (selectedOnly && !p.selected) continue;
        const std::string kept = p.keptOffline ? fmt::format("  ({} kept offline)", p.keptOffline) : "";
        fmt::print("{:<{}}  {:>9}  {}{}\n", p.name, width, quorv::formatSize(p.bytes), shownPath(p.location), kept);
    }
}

void runList(bool json) {
    if (!brimstell::CloudDownloads::available()) {
        if (json) printJson(Json{{"available", false}, {"providers", Json::array()}, {"totalBytes", 0}, {"message", CloudModel::unavailableText}});
        else fmt::print("{}\n", CloudModel::unavailableText);
        return;
    }
    CloudModel model;
    scan(model);
    if (json) {
        printJson(Json{{"available", true}, {"providers", providersJson(model.providers, false)}, {"totalBytes", model.total},
                       {"note", CloudModel::guidanceText}});
        return;
    }
    if (model.providers.empty()) {
        fmt::print("{}\n", model.status());
        return;
    }
    printProviders(model.providers, false);
    fmt::print("{} downloaded in {} cloud folder{}. `brimstell cloud release PROVIDER…` releases it: the files stay "
               "listed and download again when opened.\n{}\n",
               quorv::formatSize(model.total), model.providers.size(), model.providers.size() == 1 ? "" : "s",
               CloudModel::guidanceText);
}

// "iCloud Drive", "icloud drive", "iclouddrive" and the folder's own name "com~apple~CloudDocs" all
// name iCloud Drive; "OneDrive" names every OneDrive account, "OneDrive-Contoso" one of them.
std::string folded(const std::string& s) {
    std::string out;
    for (const unsigned char c : s) {
        if (c != ' ') out += static_cast<char>(std::tolower(c));
    }
    return out;
}

// Ticks the providers named; false, with the name, when one names none.
bool choose(CloudModel& model, const std::vector<std::string>& names, std::string& unknown) {
    for (auto& p : model.providers) p.selected = false;
    for (const auto& name : names) {
        bool any = false;
        for (auto& p : model.providers) {
            if (folded(name) != folded(p.name) && folded(name) != folded(p.folder())) continue;
            p.selected = any = true;
        }
        if (!any) {
            unknown = name;
            return false;
        }
    }
    model.recount();
    return true;
}

}  // namespace

namespace {

Json resultJson(const brimstell::CloudReleaseResult& r, const std::string& message) {
    return Json{{"releasedBytes", r.releasedBytes}, {"releasedItems", r.releasedFiles},
                {"notUploadedItems", r.notUploaded}, {"keptOfflineItems", r.keptOffline},
                {"conflictItems", r.conflicts},      {"failedItems", r.failed},
                {"message", message}};
}

std::string namesOf(const std::vector<CloudEntry>& providers) {
    std::string out;
    for (const auto& p : providers) out += (out.empty() ? "" : ", ") + p.name + " (" + p.folder() + ")";
    return out.empty() ? "none" : out;
}

void release(CloudModel& model, bool yes, bool json, int& exitCode) {
    if (!json) printProviders(model.providers, true);
    if (!goAhead(CloudModel::confirmText(model.selectedSize), yes, "releasing downloads", "Nothing released.", exitCode)) return;
    brimstell::CloudReleaseResult result;
    {
        Spinner spinner(CloudModel::removingText);
        result = model.removeSelected();
    }
    if (result.busy) {
        error(brimstell::CleanLock::busyText);
        exitCode = 1;
        return;
    }
    const std::string line = model.message.value_or("");
    if (json) printJson(resultJson(result, line));
    else fmt::print("{}\n", line);
    if (!json && (result.notUploaded || result.keptOffline || result.conflicts || result.failed)) {
        fmt::print("{}\n", CloudModel::guidanceText);
    }
    if (result.failed) exitCode = 1;
}

void runRelease(const std::vector<std::string>& names, bool yes, bool json, int& exitCode) {
    if (!brimstell::CloudDownloads::available()) {
        error(CloudModel::unavailableText);
        exitCode = 1;
        return;
    }
    CloudModel model;
    scan(model);
    std::string unknown;
    if (!choose(model, names, unknown)) {
        error("no cloud folder is called " + unknown + "; there are: " + namesOf(model.providers));
        exitCode = 1;
        return;
    }
    if (model.selectedSize == 0) {
        const std::string line = "Nothing downloaded to release.";
        if (json) printJson(resultJson({}, line));
        else fmt::print("{}\n", line);
        return;
    }
    release(model, yes, json, exitCode);
}

}  // namespace

void addCloudCommands(CLI::App& app, int& exitCode) {
    static bool listJson = false;
    auto* cloud = jsonCommand(&app, "cloud", "How much of each cloud folder is downloaded to this disk", listJson);
    cloud->footer("iCloud Drive and the folders of Library/CloudStorage (Dropbox, OneDrive, Google Drive, Box). "
                  "Nothing is released by this command.");
    cloud->callback([cloud] {
        if (cloud->get_subcommands().empty()) runList(listJson);
    });

    static std::vector<std::string> names;
    static bool yes = false, releaseJson = false;
    auto* release = jsonCommand(cloud, "release", "Release downloaded files: they stay listed and download again when opened",
                                releaseJson);
    release->add_option("PROVIDER", names, "A provider's name (\"iCloud Drive\", OneDrive) or its folder's name")->required();
    release->add_flag("--yes", yes, "Don't ask before releasing");
    release->callback([&exitCode] { runRelease(names, yes, releaseJson, exitCode); });
}

}  // namespace cli
