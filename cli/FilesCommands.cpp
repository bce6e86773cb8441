// brimstell size PATH… | trash PATH… | history | restore ID… | restore --session ID | trash-bin

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/files/Admin.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/SizeReport.hpp"
#include "kit/files/History.hpp"
#include "kit/files/MoverGuard.hpp"
#include "kit/files/TrashBin.hpp"
#include "kit/files/TrashRequest.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/SizeText.hpp"
#include "support/text/Utf8.hpp"

namespace cli {

namespace {
// What the history shows as the source of a clean from the command line.
constexpr const char* commandLineSource = "Command line";
}  // namespace

namespace {

// The path as the mover takes it: absolute from the working folder, with no doubled or trailing
// "/" (what tab completion types after a folder), and its folder's links resolved, so that "..",
// "." and a linked folder name the place the kernel would. An empty path stays empty: the mover
// refuses it with a sentence, where the working folder would otherwise be moved.
std::string absolute(const std::string& given) {
    if (given.empty()) return given;
    std::string path = given;
    if (path[0] != '/') {
        std::string cwd(PATH_MAX, '\0');
        if (!::getcwd(cwd.data(), cwd.size())) return given;
        cwd.resize(cwd.find('\0'));
        path = (cwd == "/" ? "" : cwd) + "/" + path;
    }
    path = brimstell::MoverGuard::tidy(path);
    const std::string name = quorv::files::nameOf(path);
    const bool dots = name == "." || name == "..";
    char real[PATH_MAX];
    if (::realpath((dots ? path : quorv::files::parentOf(path)).c_str(), real) == nullptr) return path;
    const std::string folder(real);
    if (dots) return folder;
    return (folder == "/" ? "" : folder) + "/" + name;
}

// ---- size ----

Json sizeJson(const brimstell::SizeReport& report) {
    Json items = Json::array();
    for (const auto& place : report.places) {
        Json item = Json::object();
        putPath(item, "path", place.path);
        if (place.exists) {
            item["bytes"] = place.size.bytes;
            item["unreadableFolders"] = place.size.unreadable;
        } else {
            item["error"] = "No such file or folder.";
        }
        items.push_back(std::move(item));
    }
    return Json{{"items", std::move(items)}, {"totalBytes", report.total.bytes},
                {"unreadableFolders", report.unreadable()}};
}

void printSizes(const brimstell::SizeReport& report, bool exactBytes) {
    auto text = [exactBytes](std::int64_t n) { return exactBytes ? std::to_string(n) : quorv::formatSize(n); };
    std::size_t width = text(report.total.bytes).size();
    std::size_t shown = 0;
    for (const auto& place : report.places) {
        if (place.exists) width = std::max(width, text(place.size.bytes).size());
        shown += place.exists ? 1 : 0;
    }
    for (const auto& place : report.places) {
        if (place.exists) fmt::print("{:>{}}  {}\n", text(place.size.bytes), width, shownPath(place.path));
    }
    if (shown > 1) fmt::print("{:>{}}  total\n", text(report.total.bytes), width);
}

void runSize(const std::vector<std::string>& paths, bool json, bool exactBytes, int& exitCode) {
    brimstell::SizeReport report;
    {
        Spinner spinner("Measuring…");
        report = brimstell::measurePlaces(paths);
    }
    for (const auto& place : report.places) {
        if (!place.exists) error(shownPath(place.path) + ": no such file or folder");
    }
    if (report.unreadable() > 0) {
        error(fmt::format("{} couldn't be read in full; the sizes leave out what they hold",
                          report.unreadable() == 1 ? std::string("1 folder") : fmt::format("{} folders", report.unreadable())));
    }
    if (report.missing > 0 || report.unreadable() > 0) exitCode = 1;
    if (json) {
        printJson(sizeJson(report));
    } else {
        printSizes(report, exactBytes);
    }
}

// ---- trash ----

void printTrashOutcomes(const brimstell::TrashResult& result, bool json) {
    if (json) {
        Json items = Json::array();
        for (const auto& o : result.outcomes) {
            Json item = Json::object();
            putPath(item, "path", o.path);
            item["moved"] = o.reason.empty();
            if (!o.movedWith.empty()) putPath(item, "movedWithPath", o.movedWith);
            if (o.trashed) {
                putPath(item, "trashPath", *o.trashed);
                item["bytes"] = o.size;
            } else {
                item["reason"] = o.reason;
            }
            items.push_back(std::move(item));
        }
        printJson(Json{{"items", std::move(items)}, {"freedBytes", result.freed}});
        return;
    }
    std::size_t movedCount = 0;
    for (const auto& o : result.outcomes) {
        if (o.trashed) {
            ++movedCount;
            fmt::print("{}: moved to {}\n", shownPath(o.path), shownPath(*o.trashed));
        } else if (o.reason.empty()) {
            fmt::print("{}: moved with {}\n", shownPath(o.path), shownPath(o.movedWith));
        } else {
            fmt::print("{}: not moved: {}\n", o.path.empty() ? "\"\"" : shownPath(o.path), o.reason);
        }
    }
    if (movedCount > 0) fmt::print("Freed {}.\n", quorv::formatSize(result.freed));
}

void runTrash(const std::vector<std::string>& given, bool json, int& exitCode) {
    std::vector<std::string> paths;
    for (const auto& g : given) paths.push_back(absolute(g));
    brimstell::TrashResult result;
    {
        Spinner spinner("Moving to the Trash…");
        result = brimstell::trashRequest(paths, commandLineSource);
    }
    if (!result.failed.empty()) exitCode = 1;
    printTrashOutcomes(result, json);
}

// ---- history ----

// A path the way putPath writes it: readable, and exactly under key + "Base64" when not UTF-8.
void writePath(quorv::JsonWriter& out, std::string_view key, const std::string& path) {
    out.key(key).string(path);
    if (!quorv::isValidUtf8(path)) out.key(std::string(key) + "Base64").string(quorv::base64Encode(path));
}

void writeEntry(quorv::JsonWriter& out, const brimstell::HistoryEntry& e) {
    out.key("id").string(e.id);
    writePath(out, "originalPath", e.original);
    if (e.trashed) writePath(out, "trashPath", *e.trashed);
    out.key("bytes").number(e.size).key("date").string(isoDate(e.date));
    if (e.source) out.key("source").string(*e.source);
    if (e.restoredTo) writePath(out, "restoredPath", *e.restoredTo);
    if (e.root) out.key("root").boolean(*e.root);
}

// Written straight into one buffer: a history of 20,000 entries as a JSON tree costs many times
// the time and memory of the text itself. The layout is printJson's.
void printHistoryJson(const std::vector<brimstell::HistorySession>& sessions, brimstell::History& history) {
    std::size_t count = 0;
    for (const auto& s : sessions) count += s.entries.size();
    quorv::JsonWriter out(2, count * 560 + sessions.size() * 200 + 16);
    brimstell::History::TrashListings listings;
    out.beginArray();
    for (const auto& s : sessions) {
        out.beginObject().key("session").string(s.id).key("date").string(isoDate(s.date));
        if (s.source) out.key("source").string(*s.source);
        out.key("freedBytes").number(s.freed).key("entries").beginArray();
        for (const auto& e : s.entries) {
            out.beginObject();
            writeEntry(out, e);
            out.key("status").string(stateWord(brimstell::statusText(history.status(e, listings))));
            out.endObject();
        }
        out.endArray().endObject();
    }
    out.endArray();
    const std::string& text = out.text();
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

void runHistory(bool json) {
    auto& history = brimstell::History::shared();
    const auto sessions = history.sessions();
    if (json) {
        printHistoryJson(sessions, history);
        return;
    }
    if (sessions.empty()) {
        fmt::print("Nothing Cleaned Yet\n");
        return;
    }
    fmt::print("Kept for 90 days · items stay restorable until the Trash is emptied\n");
    brimstell::History::TrashListings listings;
    for (const auto& s : sessions) {
        fmt::print("\n{}{} · freed {} · session {}\n", timeText(s.date), s.source ? " · " + *s.source : std::string(),
                   quorv::formatSize(s.freed), s.id);
        std::size_t width = 0;
        for (const auto& e : s.entries) width = std::max(width, quorv::formatSize(e.size).size());
        for (const auto& e : s.entries) {
            std::string where = shownPath(e.original);
            if (e.restoredTo && *e.restoredTo != e.original) where += " → " + shownPath(*e.restoredTo);
            fmt::print("  {}  {:>{}}  {:<12}  {}\n", e.id, quorv::formatSize(e.size), width,
                       brimstell::statusText(history.status(e, listings)), where);
        }
    }
}

// ---- restore ----

void runRestore(const std::vector<std::string>& ids, const std::string& session, bool json, int& exitCode) {
    auto& history = brimstell::History::shared();
    const auto all = history.entries();
    std::vector<brimstell::HistoryEntry> chosen;
    for (const auto& id : ids) {
        const auto it = std::find_if(all.begin(), all.end(), [&](const auto& e) { return e.id == id; });
        if (it == all.end()) {
            error("no entry " + id + " in the history");
            exitCode = 1;
            continue;
        }
        chosen.push_back(*it);
    }
    if (!session.empty()) {
        bool any = false;
        for (const auto& e : all) {
            if (e.session != session) continue;
            any = true;
            if (!e.restoredTo) chosen.push_back(e);
        }
        if (!any) {
            error("no session " + session + " in the history");
            exitCode = 1;
        } else if (chosen.empty() && !json) {
            fmt::print("Everything of that session is back already.\n");
        }
    }
    const auto results = history.restore(chosen);
    if (json) {
        Json out = Json::array();
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            Json j = Json::object();
            j["id"] = chosen[i].id;
            putPath(j, "originalPath", chosen[i].original);
            j["restored"] = results[i].ok();
            if (results[i].ok()) {
                putPath(j, "restoredPath", *results[i].restoredTo);
            } else {
                j["reason"] = results[i].reason;
                j["message"] = results[i].message();
            }
            out.push_back(std::move(j));
        }
        printJson(out);
    }
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        if (!results[i].ok()) exitCode = 1;
        if (json) continue;
        if (results[i].ok()) {
            fmt::print("{}: restored to {}\n", shownPath(chosen[i].original), shownPath(*results[i].restoredTo));
        } else {
            fmt::print("{}: {}\n", shownPath(chosen[i].original), results[i].message());
        }
    }
}

// ---- trash-bin ----

Json binItemJson(const brimstell::TrashBinItem& item) {
    Json j = Json::object();
    putPath(j, "path", item.location);
    if (item.originalPath) putPath(j, "originalPath", *item.originalPath);
    if (item.dateAdded) j["addedAt"] = dateJson(*item.dateAdded);
    j["bytes"] = item.size;
    return j;
}

void listTrashBin(bool json) {
    std::vector<brimstell::TrashBinItem> items;
    {
        Spinner spinner("Measuring the Trash…");
        items = brimstell::TrashBin::items();
    }
    std::sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        return a.dateAdded.value_or(0) != b.dateAdded.value_or(0) ? a.dateAdded.value_or(0) > b.dateAdded.value_or(0)
                                                                    : a.location < b.location;
    });
    if (json) {
        Json out = Json::array();
        for (const auto& item : items) out.push_back(binItemJson(item));
        printJson(out);
        return;
    }
    if (items.empty()) {
        fmt::print("The Trash is empty.\n");
        return;
    }
    std::size_t width = 0;
    std::int64_t total = 0;
    for (const auto& item : items) {
        width = std::max(width, quorv::formatSize(item.size).size());
        total += item.size;
    }
    for (const auto& item : items) {
        const std::string added = item.dateAdded ? timeText(*item.dateAdded) : "date unknown";
        const std::string from = item.originalPath ? "  from " + shownPath(*item.originalPath) : std::string();
        fmt::print("{:>{}}  {:<16}  {}{}\n", quorv::formatSize(item.size), width, added, shownPath(item.location), from);
    }
    fmt::print("{} · {}\n", itemsText(items.size()), quorv::formatSize(total));
}

void emptyTrashBin(int days, bool yes, bool json, int& exitCode) {
    std::vector<brimstell::TrashBinItem> old;
    {
        Spinner spinner("Measuring the Trash…");
        old = brimstell::TrashBin::olderThan(days, quorv::host().now());
    }
    std::int64_t size = 0;
    for (const auto& item : old) size += item.size;
    if (old.empty()) {
        if (json) {
            printJson(Json{{"deleted", Json::array()}, {"failed", Json::array()}, {"freedBytes", 0}});
        } else {
            fmt::print("Nothing in the Trash is older than {} days.\n", days);
        }
        return;
    }
    if (!goAhead(fmt::format("Delete {} ({}) for good?", itemsText(old.size()), quorv::formatSize(size)), yes,
                 "deleting " + itemsText(old.size()) + " for good", "Nothing deleted.", exitCode)) {
        return;
    }
    const auto goneList = brimstell::TrashBin::emptyItems(old);
    if (!goneList) {
        error(brimstell::CleanLock::busyText);
        exitCode = 1;
        return;
    }
    const std::set<std::string> gone(goneList->begin(), goneList->end());
    std::int64_t freed = 0;
    Json deleted = Json::array(), failed = Json::array();
    for (const auto& item : old) {
        if (gone.count(item.location)) {
            freed += item.size;
            deleted.push_back(binItemJson(item));
        } else {
            failed.push_back(binItemJson(item));
            exitCode = 1;
            if (!json) fmt::print("{}: couldn't be deleted\n", shownPath(item.location));
        }
    }
    if (json) {
        printJson(Json{{"deleted", std::move(deleted)}, {"failed", std::move(failed)}, {"freedBytes", freed}});
    } else {
        fmt::print("Deleted {} for good, freed {}.\n", itemsText(gone.size()), quorv::formatSize(freed));
    }
}

}  // namespace

void addFilesCommands(CLI::App& app, int& exitCode) {
    static std::vector<std::string> sizePaths;
    static bool sizeJson = false, sizeBytes = false;
    auto* size = app.add_subcommand("size", "Measure files and folders (allocated bytes, one file system, links not followed)");
    size->add_option("PATH", sizePaths, "Files or folders")->required();
    size->add_flag("--json", sizeJson, "Print as JSON");
    size->add_flag("--bytes", sizeBytes, "Exact numbers of bytes instead of sizes such as 1.2 MB");
    size->callback([&exitCode] { runSize(sizePaths, sizeJson, sizeBytes, exitCode); });

    static std::vector<std::string> trashPaths;
    static bool trashJson = false;
    auto* trash = app.add_subcommand("trash", "Move files and folders to the Trash; each can be restored from the history");
    trash->add_option("PATH", trashPaths, "Files or folders")->required();
    trash->add_flag("--json", trashJson, "Print as JSON");
    trash->footer("Synced cloud folders are never moved: removing an item there would remove it everywhere.");
    trash->callback([&exitCode] { runTrash(trashPaths, trashJson, exitCode); });

    static bool historyJson = false;
    auto* historyCmd = app.add_subcommand("history", "What cleans moved to the Trash, newest first");
    historyCmd->add_flag("--json", historyJson, "Print as JSON");
    historyCmd->callback([] { runHistory(historyJson); });

    static std::vector<std::string> restoreIds;
    static std::string restoreSession;
    static bool restoreJson = false;
    auto* restore = app.add_subcommand("restore", "Put items from the history back where they were");
    restore->add_option("ID", restoreIds, "Entry IDs, as `brimstell history` shows them");
    restore->add_option("--session", restoreSession, "Every item of this session that isn't back yet");
    restore->add_flag("--json", restoreJson, "Print as JSON");
    restore->callback([&exitCode] {
        if (restoreIds.empty() && restoreSession.empty()) {
            error("name entry IDs or a --session (see brimstell history)");
            exitCode = 2;
            return;
        }
        runRestore(restoreIds, restoreSession, restoreJson, exitCode);
    });

    static bool binJson = false, binYes = false;
    static int binDays = -1;
    auto* bin = app.add_subcommand("trash-bin", "List what is in the Trash, or delete what has been there long enough");
    bin->add_flag("--json", binJson, "Print as JSON");
    bin->add_option("--empty-older-than", binDays, "Delete for good the items put in the Trash more than DAYS days ago")
        ->check(CLI::NonNegativeNumber)
        ->type_name("DAYS");
    bin->add_flag("--yes", binYes, "Don't ask before deleting");
    bin->footer("Deleting for good can't be undone: those items can't be restored from the history any more.");
    bin->callback([&exitCode] {
        if (binDays < 0) {
            listTrashBin(binJson);
        } else {
            emptyTrashBin(binDays, binYes, binJson, exitCode);
        }
    });
}

}  // namespace cli
