#include "support/settings/PlistFileStore.hpp"

#include <sys/stat.h>

#include <cstdio>

#include "support/plist/Plist.hpp"
#include "support/posix/FileLock.hpp"
#include "support/posix/Files.hpp"

namespace quorv {

PlistFileStore::PlistFileStore(std::string path) : path_(std::move(path)) {}

PlistFileStore::Map PlistFileStore::loadFromDisk() {
    Map map;
    struct stat st{};
    if (::lstat(path_.c_str(), &st) != 0) return map;
    auto bytes = files::read(path_);
    std::optional<Value> root = bytes ? plist::parse(*bytes) : std::nullopt;
    const Value::Dict* dict = root ? root->get<Value::Dict>() : nullptr;
    if (!dict) {
        // Keep what we could not read for a person to look at, rather than overwrite it.
        std::rename(path_.c_str(), (path_ + ".corrupt").c_str());
        return map;
    }
    for (const auto& [k, v] : *dict) map[k] = v;
    return map;
}

void PlistFileStore::ensureLoaded() {
    if (loaded_) return;
    auto lock = FileLock::acquire(path_ + ".lock", FileLock::Mode::shared, true);
    cache_ = loadFromDisk();
    loaded_ = true;
}

std::optional<Value> PlistFileStore::object(const std::string& key) {
    std::lock_guard guard(mutex_);
    ensureLoaded();
    auto it = cache_.find(key);
    if (it == cache_.end()) return std::nullopt;
    return it->second;
}

bool PlistFileStore::change(const std::string& key, const Value* value) {
    std::lock_guard guard(mutex_);
    auto lock = FileLock::acquire(path_ + ".lock", FileLock::Mode::exclusive, true);
    if (!lock) return false;
    Map map = loadFromDisk();
    auto existing = map.find(key);
    const bool unchanged = value ? (existing != map.end() && existing->second == *value) : existing == map.end();
    if (unchanged) {
        cache_ = std::move(map);
        loaded_ = true;
        return true;
    }
    if (value) {
        map[key] = *value;
    } else {
        map.erase(key);
    }
    Value::Dict dict(map.begin(), map.end());
    const bool ok = files::writeAtomically(path_, plist::toXml(Value(std::move(dict))), 0600);
    if (ok) {
        cache_ = std::move(map);
        loaded_ = true;
    }
    return ok;
}

bool PlistFileStore::set(const std::string& key, const Value& value) { return change(key, &value); }

bool PlistFileStore::remove(const std::string& key) { return change(key, nullptr); }

bool PlistFileStore::synchronize() {
    std::lock_guard guard(mutex_);
    loaded_ = false;
    ensureLoaded();
    return true;
}

std::vector<std::string> PlistFileStore::keys() {
    std::lock_guard guard(mutex_);
    ensureLoaded();
    std::vector<std::string> out;
    out.reserve(cache_.size());
    for (const auto& [k, v] : cache_) out.push_back(k);
    return out;
}

}  // namespace quorv
