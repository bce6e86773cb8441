#include "kit/files/SandboxTrash.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "support/posix/Compat.hpp"
#include "support/posix/LinkSafe.hpp"
#include "kit/files/ItemFolder.hpp"
#include "kit/files/TrashInfo.hpp"
#include "kit/files/TrashNames.hpp"
#include "kit/files/TrashTexts.hpp"
#include "support/host/Host.hpp"
#include "support/posix/FileLock.hpp"
#include "support/posix/Files.hpp"
#include "support/text/JsonReader.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/Nesting.hpp"

namespace brimstell {

using quorv::host;
using quorv::LinkSafe;
using quorv::UniqueFd;
namespace files = quorv::files;
namespace nesting = quorv::nesting;
namespace compat = quorv::compat;

namespace {

constexpr const char* ledgerName = ".brimstell-trash.json";
constexpr const char* lockName = ".brimstell-trash.lock";
constexpr std::size_t maxNameBytes = 255;
constexpr int maxNumberedNames = 10000;

// Files of the Trash folder that are its bookkeeping, not items: Finder's and ours (the ledger's
// temporary files included).
bool bookkeeping(const std::string& name) {
    static const std::string temporary = std::string(".") + ledgerName + ".";
    return name == ".DS_Store" || name == ".localized" || name == ledgerName || name == lockName ||
           (name.rfind(temporary, 0) == 0 && name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0);
}

struct Entry {
    std::string original;
    double dateAdded = 0;
    std::string file;  // fileID of the item when it was moved
};
using Ledger = std::map<std::string, Entry>;

// The item's identity: device, inode and, where the file system keeps one, its birth time, so
// that a new file that reuses a freed inode number is not taken for the one that was moved.
std::string fileID(int dirFd, const std::string& name) {
    const auto id = compat::identityAt(dirFd, name.c_str());
    if (!id) return {};
    return std::to_string(id->device) + ":" + std::to_string(id->inode) + ":" + std::to_string(id->bornSeconds) + "." +
           std::to_string(id->bornNanoseconds);
}

// One ledger value: {"original": encoded path, "dateAdded": seconds, "file": identity}; nullopt
// for anything else (the entry is skipped). A key given twice counts as its last value.
std::optional<Entry> readEntry(quorv::JsonReader& in) {
    using Kind = quorv::JsonReader::Kind;
    if (in.peek() != Kind::object) {
        in.skip();
        return std::nullopt;
    }
    std::optional<std::string> original, file;
    std::optional<double> date;
    in.beginObject();
    for (std::string key; in.nextKey(key);) {
        const Kind kind = in.peek();
        std::string text;
        quorv::JsonReader::Number number;
        const bool read = kind == Kind::string   ? in.readString(text)
                          : kind == Kind::number ? in.readNumber(number)
                                                 : in.skip();
        if (!read) return std::nullopt;
        if (key == "original") original = kind == Kind::string ? std::optional(text) : std::nullopt;
        if (key == "file") file = kind == Kind::string ? std::optional(text) : std::nullopt;
        if (key == "dateAdded") date = kind == Kind::number ? std::optional(number.asDouble()) : std::nullopt;
    }
    const auto path = original ? TrashInfo::percentDecode(*original) : std::nullopt;
    if (in.failed() || !path || !date || !file) return std::nullopt;
    return Entry{*path, *date, *file};
}

Ledger load(const std::string& trash) {
    Ledger ledger;
    const auto text = files::read(trash + "/" + ledgerName, 16u << 20);
    if (!text || !nesting::jsonWithin(*text)) return ledger;
    // By encoded name, as the file's object sorts them; the last of a name given twice counts.
    std::map<std::string, std::optional<Entry>> byKey;
    quorv::JsonReader in(*text);
    if (!in.beginObject()) return ledger;
    for (std::string key; in.nextKey(key);) byKey[key] = readEntry(in);
    if (in.failed() || !in.atEnd()) return ledger;
    for (auto& [key, entry] : byKey) {
        const auto name = TrashInfo::percentDecode(key);
        if (name && entry) ledger[*name] = std::move(*entry);
    }
    return ledger;
}

// The encoded names in sorted order and each entry's keys in alphabetical order, indented by one.
bool save(const std::string& trash, const Ledger& ledger) {
    std::vector<std::pair<std::string, const Entry*>> rows;
    rows.reserve(ledger.size());
    for (const auto& [name, entry] : ledger) rows.emplace_back(TrashInfo::percentEncode(name), &entry);
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    quorv::JsonWriter out(1);
    out.beginObject();
    for (const auto& [key, entry] : rows) {
        out.key(key).beginObject().key("dateAdded").number(entry->dateAdded).key("file").string(entry->file);
        out.key("original").string(TrashInfo::percentEncode(entry->original)).endObject();
    }
    out.endObject();
    return files::writeAtomically(trash + "/" + ledgerName, out.take() + "\n", 0600);
}

// Drops entries whose item is no longer in the Trash.
void prune(Ledger& ledger, int trashFd) {
    for (auto it = ledger.begin(); it != ledger.end();) {
        struct stat st{};
        if (::fstatat(trashFd, it->first.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
            it = ledger.erase(it);
        } else {
            ++it;
        }
    }
}

// When the item's inode last changed; a rename sets it.
double changeTime(const struct stat& st) { return compat::changedSeconds(st); }

UniqueFd openTrash(const std::string& trash) {
    return LinkSafe::openFolder(trash, false);
}

std::optional<quorv::FileLock> lock(const std::string& trash) {
    return quorv::FileLock::acquire(trash + "/" + lockName, quorv::FileLock::Mode::exclusive, true);
}

// The name of an item directly in the Trash, or nullopt.
std::optional<std::string> nameInTrash(const std::string& location) {
    const std::string path = files::trimTrailingSlashes(location);
    const std::string name = files::nameOf(path);
    if (name.empty() || name == "." || name == ".." || bookkeeping(name)) return std::nullopt;
    if (files::parentOf(path) != SandboxTrash::folder()) return std::nullopt;
    return name;
}

// Moves name from parentFd into the Trash under its own name, else Finder's: the time of the move
// ("14.05.31", wall-clock) before the extension, then " 2", " 3"… The name used, or nullopt with
// a sentence in error.
std::optional<std::string> moveUnderFinderName(int parentFd, const std::string& name, int trashFd, double now,
                                               std::string& error) {
    std::string time = TrashInfo::dateText(now, host().calendar);
    time = time.size() == 19 ? time.substr(11) : "00.00.00";
    std::replace(time.begin(), time.end(), ':', '.');
    for (int n = 1; n <= maxNumberedNames; ++n) {
        const std::string candidate = TrashNames::finder(name, time, n, maxNameBytes);
        if (candidate.empty()) break;
        if (bookkeeping(candidate)) continue;
        const int failure = LinkSafe::renameNoReplace(parentFd, name, trashFd, candidate);
        if (failure == 0) return candidate;
        if (failure != EEXIST && failure != ENOTEMPTY) {
            error = trashText::forError(failure);
            return std::nullopt;
        }
    }
    error = trashText::notMoved;
    return std::nullopt;
}

}  // namespace

std::string SandboxTrash::folder() { return host().inHome(".Trash"); }

std::optional<std::string> SandboxTrash::moveToTrash(const std::string& given, std::string& error) {
    std::string original;
    return moveNotingPlace(given, error, original);
}

std::optional<std::string> SandboxTrash::moveNotingPlace(const std::string& given, std::string& error, std::string& original) {
    error.clear();
    const std::string path = files::trimTrailingSlashes(given);
    const std::string name = files::nameOf(path);
    if (!trashText::movablePath(path, name)) {
        error = trashText::notMoved;
        return std::nullopt;
    }
    std::string realParent;
    UniqueFd parentFd = openItemFolder(path, realParent, error);
    if (!parentFd) return std::nullopt;
    struct stat item{};
    if (::fstatat(parentFd.get(), name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0) {
        error = trashText::forError(errno);
        return std::nullopt;
    }
    const std::string trash = folder();
    if (!files::makeFolders(trash, 0700)) {
        error = trashText::notMoved;
        return std::nullopt;
    }
    UniqueFd trashFd = openTrash(trash);
    struct stat trashSt{};
    if (!trashFd || ::fstat(trashFd.get(), &trashSt) != 0) {
        error = trashText::notMoved;
        return std::nullopt;
    }
    if (item.st_dev != trashSt.st_dev) {
        error = trashText::otherDisk;
        return std::nullopt;
    }
    const std::string itemPath = realParent == "/" ? "/" + name : realParent + "/" + name;
    const std::string realTrash = LinkSafe::pathOf(trashFd.get()).value_or(trash);
    if (const char* problem = trashText::nestingProblem(itemPath, realParent, realTrash)) {
        error = problem;
        return std::nullopt;
    }

    auto held = lock(trash);
    const double now = host().now();
    const auto moved = moveUnderFinderName(parentFd.get(), name, trashFd.get(), now, error);
    if (!moved) return std::nullopt;
    const std::string& used = *moved;
    original = itemPath;
    const std::string identity = fileID(trashFd.get(), used);
    if (held && !identity.empty()) {
        Ledger ledger = load(trash);
        prune(ledger, trashFd.get());
        ledger[used] = {itemPath, now, identity};
        save(trash, ledger);
    }
    return trash + "/" + used;
}

std::vector<quorv::TrashedItem> SandboxTrash::list() {
    std::vector<quorv::TrashedItem> out;
    const std::string trash = folder();
    UniqueFd trashFd = openTrash(trash);
    const int listFd = trashFd ? ::dup(trashFd.get()) : -1;
    DIR* dir = listFd >= 0 ? ::fdopendir(listFd) : nullptr;
    if (!dir) {
        if (listFd >= 0) ::close(listFd);
        return out;
    }
    const Ledger ledger = load(trash);
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name(entry->d_name);
        if (name == "." || name == ".." || bookkeeping(name)) continue;
        struct stat st{};
        if (::fstatat(trashFd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        quorv::TrashedItem item;
        item.location = trash + "/" + name;
        const auto known = ledger.find(name);
        if (known != ledger.end() && known->second.file == fileID(trashFd.get(), name)) {
            item.originalPath = known->second.original;
            item.dateAdded = known->second.dateAdded;
        } else {
            item.dateAdded = changeTime(st);
        }
        out.push_back(std::move(item));
    }
    ::closedir(dir);
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.location < b.location; });
    return out;
}

std::vector<std::string> SandboxTrash::erase(const std::vector<std::string>& locations) {
    std::vector<std::string> gone;
    const std::string trash = folder();
    UniqueFd trashFd = openTrash(trash);
    struct stat trashSt{};
    if (!trashFd || ::fstat(trashFd.get(), &trashSt) != 0) return gone;
    auto held = lock(trash);
    Ledger ledger = load(trash);
    bool changed = false;
    for (const auto& location : locations) {
        const auto name = nameInTrash(location);
        if (!name || !LinkSafe::removeTree(trashFd.get(), *name, trashSt.st_dev)) continue;
        changed = ledger.erase(*name) > 0 || changed;
        gone.push_back(location);
    }
    if (changed && held) save(trash, ledger);
    return gone;
}

void SandboxTrash::forgetRestored(const std::string& location) {
    const auto name = nameInTrash(location);
    const std::string trash = folder();
    UniqueFd trashFd = openTrash(trash);
    if (!name || !trashFd) return;
    auto held = lock(trash);
    struct stat st{};
    if (!held || ::fstatat(trashFd.get(), name->c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT) return;
    Ledger ledger = load(trash);
    if (ledger.erase(*name) > 0) save(trash, ledger);
}

bool SandboxTrash::isInTrash(const std::string& location) { return nameInTrash(location).has_value(); }

}  // namespace brimstell
