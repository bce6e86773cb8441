#include "kit/files/Admin.hpp"

#include <chrono>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <thread>

#include "kit/files/AdminLog.hpp"
#include "kit/files/History.hpp"
#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperInfo.hpp"
#include "support/host/HelperTransport.hpp"
#include "support/host/Host.hpp"
#include "support/host/ServiceRegistrar.hpp"
#include "support/text/Uuid.hpp"

#ifdef __APPLE__
#include "kit/files/MacHelper.hpp"
#endif

namespace brimstell {

using quorv::HelperTransport;
using quorv::ServiceStatus;

namespace {

// What Admin knows about the helper behind one transport. A host with another transport (another
// sandbox, another test) starts from scratch.
struct State {
    std::mutex mutex;
    // Weak, so that a new transport that happens to get a gone one's address is still new.
    std::weak_ptr<HelperTransport> transport;
    std::uint64_t generation = 0;
    bool ready = false;
    std::shared_future<bool> starting;  // the start attempt in flight, shared by its callers
};

State& state() {
    static State s;
    return s;
}

// Makes transport the one the state is about; called with the state's lock held.
bool isCurrentLocked(const State& s, const std::shared_ptr<HelperTransport>& transport) {
    return transport && s.transport.lock() == transport;
}

void adoptLocked(State& s, const std::shared_ptr<HelperTransport>& transport) {
    if (isCurrentLocked(s, transport)) return;
    s.transport = transport;
    s.ready = false;
    s.starting = {};
    const std::uint64_t generation = ++s.generation;
    // The connection is gone: the handshake must be made again.
    transport->setInvalidationHandler([generation] {
        State& st = state();
        std::lock_guard lock(st.mutex);
        if (st.generation == generation) st.ready = false;
    });
}

std::shared_ptr<HelperTransport> currentTransport() {
    std::shared_ptr<HelperTransport> transport = quorv::host().helper;
    if (!transport) return nullptr;
    State& s = state();
    std::lock_guard lock(s.mutex);
    adoptLocked(s, transport);
    return transport;
}

ServiceStatus statusOf(quorv::ServiceRegistrar* registrar) {
    if (!registrar) return ServiceStatus::notFound;
    try {
        return registrar->status();
    } catch (...) {
        return ServiceStatus::notFound;
    }
}

std::mutex timingMutex;
Admin::Timing timingInUse;

std::optional<std::string> handshake() { return Admin::callHelper("version", "", {}, Admin::timing().handshake); }

// Registration and handshake: the one start attempt.
bool launch() {
    const std::shared_ptr<quorv::ServiceRegistrar> registrar = quorv::host().helperService;
    ServiceStatus status = statusOf(registrar.get());
    if (status == ServiceStatus::notRegistered || status == ServiceStatus::notFound) {
        std::string error;
        bool registered = false;
        try {
            registered = registrar && registrar->registerService(error);
        } catch (...) {
            error.clear();
        }
        if (!registered) {
            adminlog::registerFailed(!error.empty() ? error : std::string("the helper can't be registered here"));
        }
        status = statusOf(registrar.get());
    }
    adminlog::status(static_cast<long>(status));

    if (status != ServiceStatus::enabled) {
        if (status == ServiceStatus::requiresApproval) Admin::requestAccess();
        return false;
    }
    std::optional<std::string> reply = handshake();
    if (!reply) {
        if (auto transport = currentTransport()) transport->invalidate();
        std::this_thread::sleep_for(std::chrono::duration<double>(Admin::timing().retry));
        reply = handshake();
    }
    if (!reply) return false;
    if (*reply != HelperInfo::version) {
        // Tolerated for now; ready stays false so that the next start asks again.
        adminlog::versionMismatch(*reply, std::string(HelperInfo::version));
        return true;
    }
    auto transport = currentTransport();
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (isCurrentLocked(s, transport)) s.ready = true;
    return true;
}

// A launchd label or a systemd unit ("getty@tty1.service"): never one that a tool could take for an
// option or a path.
bool labelIsPlain(const std::string& label) {
    if (label.empty() || label.front() == '-' || label.front() == '.') return false;
    for (char c : label) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
                           c == '_' || c == '-' || c == '@';
        if (!plain) return false;
    }
    return true;
}

// A location as the helper sees it: the Mac path under the host's root, as root sees it.
std::optional<std::string> helperPath(const std::string& location) {
    auto system = quorv::host().systemPath(location);
    if (!system) return std::nullopt;
    return Admin::rootPath(*system);
}

std::vector<std::string_view> splitOn(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (;;) {
        const auto end = text.find(separator, start);
        if (end == std::string_view::npos) {
            parts.push_back(text.substr(start));
            return parts;
        }
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::set<std::string_view> replyLines(std::string_view reply) {
    std::set<std::string_view> lines;
    for (auto line : splitOn(reply, '\n')) {
        if (!line.empty()) lines.insert(line);
    }
    return lines;
}

// A non-negative decimal number that fits in 64 bits, times factor, when that fits too.
std::optional<std::int64_t> scaled(std::string_view digits, std::int64_t factor) {
    if (digits.empty() || digits.size() > 19) return std::nullopt;
    std::int64_t value = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        const int d = c - '0';
        if (value > (std::numeric_limits<std::int64_t>::max() - d) / 10) return std::nullopt;
        value = value * 10 + d;
    }
    if (value > std::numeric_limits<std::int64_t>::max() / factor) return std::nullopt;
    return value * factor;
}

std::string lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

FileItem foundItem(std::string location, std::int64_t size, std::string label) {
    FileItem item;
    item.location = std::move(location);
    item.id = quorv::newUuid();
    item.size = size;
    item.label = std::move(label);
    return item;
}

// The outcome of each entry: done when the reply holds exactly the line expected for it.
std::vector<HelperOutcome> outcomes(const std::optional<std::string>& reply, const std::vector<std::string>& expected) {
    std::vector<HelperOutcome> result;
    result.reserve(expected.size());
    if (!reply) {
        result.assign(expected.size(), HelperOutcome::unavailable);
        return result;
    }
    const auto lines = replyLines(*reply);
    for (const auto& line : expected) {
        result.push_back(!line.empty() && lines.count(line) != 0 ? HelperOutcome::done : HelperOutcome::refused);
    }
    return result;
}

// The moved pairs go to the cleaning history as moved by root, with the paths the helper gave.
void recordRootMoves(const std::vector<std::pair<std::string, std::string>>& pairs,
                     const std::optional<std::string>& source) {
    if (pairs.empty()) return;
    std::vector<RootMove> moves;
    moves.reserve(pairs.size());
    for (const auto& [original, inTrash] : pairs) moves.push_back(RootMove{original, inTrash, std::nullopt});
    History::shared().recordRoot(moves, quorv::host().now(), source);
}

}  // namespace

// ---- Once

Admin::Once::Once(Continuation continuation) : continuation_(std::move(continuation)) {}

bool Admin::Once::resume(std::optional<std::string> value) {
    std::optional<Continuation> continuation;
    {
        std::lock_guard lock(mutex_);
        continuation.swap(continuation_);
    }
    if (!continuation) return false;
    (*continuation)(std::move(value));
    return true;
}

// ---- calls

std::optional<std::string> Admin::callHelper(const std::string& op, const std::string& arg,
                                             const std::vector<std::string>& list, std::optional<double> timeout) {
    std::shared_ptr<HelperTransport> transport = currentTransport();
    if (!transport) return std::nullopt;
    // Every transport keeps to the time limit itself (the socket and XPC ones stop waiting; the
    // in-process one runs our own code to its end, which no one else can hold up). Racing it here
    // would need a thread per call, and leave work going on after its caller gave up.
    try {
        return transport->call(op, arg, list, timeout);
    } catch (...) {
        return std::nullopt;
    }
}

Admin::Timing Admin::timing() {
    std::lock_guard lock(timingMutex);
    return timingInUse;
}

void Admin::setTiming(Timing t) {
    std::lock_guard lock(timingMutex);
    timingInUse = t;
}

bool Admin::refresh() { return statusOf(quorv::host().helperService.get()) == ServiceStatus::enabled; }

bool Admin::ready() {
    std::shared_ptr<HelperTransport> transport = currentTransport();
    if (!transport) return false;
    State& s = state();
    std::lock_guard lock(s.mutex);
    return s.ready;
}

bool Admin::start() {
    std::shared_ptr<HelperTransport> transport = currentTransport();
    if (!transport) return false;
    State& s = state();
    std::promise<bool> attempt;
    std::shared_future<bool> result;
    bool mine = false;
    {
        std::lock_guard lock(s.mutex);
        if (s.ready) return true;
        if (s.starting.valid()) {
            result = s.starting;
        } else {
            result = attempt.get_future().share();
            s.starting = result;
            mine = true;
        }
    }
    if (mine) {
        bool ok = false;
        try {
            ok = launch();
        } catch (...) {
            ok = false;
        }
        {
            std::lock_guard lock(s.mutex);
            if (isCurrentLocked(s, transport)) s.starting = {};
        }
        attempt.set_value(ok);
    }
    return result.get();
}

// ---- operations

std::string Admin::rootPath(std::string_view path) {
    // Only a Mac has "/var", "/etc" and "/tmp" as links into "/private".
    if (!quorv::host().isMac()) return std::string(path);
    for (std::string_view prefix : {"/var/", "/etc/", "/tmp/"}) {
        if (path.starts_with(prefix)) return "/private" + std::string(path);
    }
    return std::string(path);
}

bool Admin::canTrash(const std::string& location) {
    const auto system = quorv::host().systemPath(location);
    if (!system || system->empty() || (*system)[0] != '/') return false;
    // Every component must be a real name: no empty one (a doubled or trailing "/"), no "." or "..".
    const auto parts = splitOn(std::string_view(*system).substr(1), '/');
    for (auto part : parts) {
        if (part.empty() || part == "." || part == "..") return false;
    }
    const auto& h = quorv::host();
    if (h.isMac()) return !HelperFiles::isProtected(rootPath(*system));
    const auto home = h.systemPath(h.home);
    return !HelperFiles::isProtected(*system, HelperRules::linux, home.value_or(std::string()));
}

std::vector<std::pair<std::string, std::string>> Admin::movedPairs(std::string_view reply,
                                                                  const std::set<std::string>& sent) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (auto line : splitOn(reply, '\n')) {
        if (!line.starts_with("OK\t")) continue;
        const auto fields = splitOn(line.substr(3), '\t');
        if (fields.size() != 2 || fields[1].empty()) continue;
        const std::string original(fields[0]);
        if (sent.count(original) == 0) continue;
        pairs.emplace_back(original, std::string(fields[1]));
    }
    return pairs;
}

std::set<std::string> Admin::trash(const std::vector<std::string>& locations, const std::optional<std::string>& source) {
    std::set<std::string> moved;
    if (auto where = moveToTrash(locations, source)) {
        for (const auto& [location, inTrash] : *where) moved.insert(location);
    }
    return moved;
}

std::optional<std::map<std::string, std::string>> Admin::moveToTrash(const std::vector<std::string>& locations,
                                                                     const std::optional<std::string>& source) {
    // Each path as sent, with the location it stands for.
    std::map<std::string, std::string> sent;
    std::vector<std::string> list;
    for (const auto& location : locations) {
        if (!canTrash(location)) continue;
        auto path = helperPath(location);
        if (!path || sent.count(*path) != 0) continue;
        sent.emplace(*path, location);
        list.push_back(*path);
    }
    if (list.empty()) return std::map<std::string, std::string>();
    if (!start()) return std::nullopt;
    const auto reply = callHelper("trash", "", list);
    if (!reply) return std::nullopt;

    std::set<std::string> sentPaths;
    for (const auto& [path, location] : sent) sentPaths.insert(path);
    const auto pairs = movedPairs(*reply, sentPaths);
    std::map<std::string, std::string> moved;
    const auto& h = quorv::host();
    for (const auto& [original, inTrash] : pairs) moved.emplace(sent.at(original), h.path(inTrash));
    recordRootMoves(pairs, source);
    return moved;
}

std::vector<HelperOutcome> Admin::restore(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::vector<std::string> expected(pairs.size());
    std::vector<std::string> list;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        auto inTrash = helperPath(pairs[i].first);
        auto original = helperPath(pairs[i].second);
        // A tab or line feed in either path can't be written as one entry of the list.
        if (!inTrash || !original || inTrash->find_first_of("\t\n") != std::string::npos ||
            original->find_first_of("\t\n") != std::string::npos) {
            continue;
        }
        list.push_back(*inTrash + "\t" + *original);
        expected[i] = "OK\t" + *inTrash + "\t" + *original;
    }
    if (list.empty()) return outcomes(std::string(), expected);
    if (!start()) return outcomes(std::nullopt, expected);
    return outcomes(callHelper("restore", "", list), expected);
}

std::vector<HelperOutcome> Admin::emptyTrash(const std::vector<std::string>& locations) {
    std::vector<std::string> expected(locations.size());
    std::vector<std::string> list;
    for (std::size_t i = 0; i < locations.size(); ++i) {
        auto path = helperPath(locations[i]);
        if (!path || path->find('\n') != std::string::npos) continue;
        list.push_back(*path);
        expected[i] = "OK\t" + *path;
    }
    if (list.empty()) return outcomes(std::string(), expected);
    if (!start()) return outcomes(std::nullopt, expected);
    return outcomes(callHelper("emptytrash", "", list), expected);
}

bool Admin::setDaemon(const std::string& label, bool on) {
    if (!labelIsPlain(label)) return false;
    if (!start()) return false;
    const auto reply = callHelper("svc", std::string(on ? "enable" : "disable") + " " + label, {});
    return reply && replyLines(*reply).count("OK") != 0;
}

bool Admin::maintenance(const std::string& op) {
    if (op != "flushdns" && op != "reindex" && op != "thin") return false;
    if (!start()) return false;
    const auto reply = callHelper(op, "", {});
    return reply && replyLines(*reply).count("OK") != 0;
}

namespace {

std::vector<HelperJunkCategory> macJunkCategories() {
    return {
        {"cache", "System Caches", "gearshape", "/Library/Caches · Apple's excluded", {}},
        {"log", "System Logs", "doc.text.magnifyingglass", "Logs, crash reports, core dumps", {}},
        {"user", "Other Users", "person.2", "Caches and logs of other accounts", {}},
    };
}

// What the helper finds on Linux (HelperLinuxJunk): the journal is never among the logs, crash
// reports and core dumps are a category of their own, and so are the package manager's downloads.
std::vector<HelperJunkCategory> linuxJunkCategories() {
    return {
        {"log", "System Logs", "doc.text.magnifyingglass", "Rotated and compressed logs · the journal is kept", {}},
        {"core", "Crash Reports", "exclamationmark.triangle", "Crash reports and core dumps", {}},
        {"package", "Downloaded Packages", "shippingbox", "Kept by the package manager after installing", {}},
        {"user", "Other Users", "person.2", "Caches of other accounts", {}},
    };
}

}  // namespace

std::vector<HelperJunkCategory> Admin::junkCategories(std::string_view reply) {
    const auto& h = quorv::host();
    std::vector<HelperJunkCategory> categories = h.isMac() ? macJunkCategories() : linuxJunkCategories();
    for (auto line : splitOn(reply, '\n')) {
        const auto fields = splitOn(line, '\t');
        if (fields.size() != 3) continue;
        const auto bytes = scaled(fields[1], 1024);
        const std::string_view path = fields[2];
        if (!bytes || path.empty() || path[0] != '/') continue;
        for (auto& category : categories) {
            if (fields[0] != category.kind) continue;
            std::string label = lastComponent(path);
            if (category.kind == "user") {
                // "/Users/<account>/Library/Caches/<name>": the account and the folder it came from;
                // on Linux "/home/<account>/.cache/<name>": the account and the cache's name.
                const auto parts = splitOn(path.substr(1), '/');
                if (parts.size() < 4) break;
                label = std::string(parts[1]) + " · " + std::string(parts[3]);
            }
            category.items.push_back(foundItem(h.path(path), *bytes, std::move(label)));
            break;
        }
    }
    std::vector<HelperJunkCategory> found;
    for (auto& category : categories) {
        if (!category.items.empty()) found.push_back(std::move(category));
    }
    return found;
}

std::optional<std::vector<HelperJunkCategory>> Admin::scanJunk() {
    if (!start()) return std::nullopt;
    const auto reply = callHelper("junk", "", {});
    if (!reply) return std::nullopt;
    return junkCategories(*reply);
}

std::vector<FileItem> Admin::largeFileItems(std::string_view reply) {
    std::vector<FileItem> items;
    const auto& h = quorv::host();
    auto records = splitOn(reply, '\0');
    records.pop_back();  // what follows the last NUL is no record, or a cut one
    for (auto record : records) {
        const auto tab = record.find('\t');
        if (tab == std::string_view::npos) continue;
        const auto bytes = scaled(record.substr(0, tab), 512);
        const std::string_view relative = record.substr(tab + 1);
        if (!bytes || !relative.starts_with("./") || relative.size() < 3) continue;
        // The data volume's paths are where the Mac shows them: ./Users/ann/x is /Users/ann/x.
        const std::string path = std::string(relative.substr(1));
        items.push_back(foundItem(h.path(path), *bytes, lastComponent(path)));
    }
    return items;
}

std::optional<std::vector<FileItem>> Admin::largeFiles(std::int64_t minKB) {
    if (minKB < 0) return std::nullopt;
    if (!start()) return std::nullopt;
    const auto reply = callHelper("large", std::to_string(minKB), {});
    if (!reply) return std::nullopt;
    return largeFileItems(*reply);
}

bool Admin::uninstallHelper() {
    const std::shared_ptr<quorv::ServiceRegistrar> registrar = quorv::host().helperService;
    if (!registrar) return false;
    std::string error;
    bool ok = false;
    try {
        ok = registrar->unregisterService(error);
    } catch (...) {
        ok = false;
    }
    if (auto transport = currentTransport()) {
        transport->invalidate();
        State& s = state();
        std::lock_guard lock(s.mutex);
        s.ready = false;
    }
    return ok;
}

void Admin::connectHistory() {
    History::setRootRestorer([](const std::string& trashPath, const std::string& originalPath) -> std::optional<bool> {
        // The history keeps the helper's own paths; Admin takes locations.
        const auto& h = quorv::host();
        const auto outcome = Admin::restore({{h.path(trashPath), h.path(originalPath)}});
        if (outcome.empty() || outcome[0] == HelperOutcome::unavailable) return std::nullopt;
        return outcome[0] == HelperOutcome::done;
    });
}

void Admin::requestAccess() {
#ifdef __APPLE__
    openLoginItemsSettings();
#endif
    // Linux has no approval page: an administrator installs the helper (brimstell helper install).
}

}  // namespace brimstell
