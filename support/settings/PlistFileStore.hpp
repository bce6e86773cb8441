#pragma once
// The settings domain as a property-list file (Linux, and sandbox Macs).
//
// Every write is a locked read-merge-write: take the lock file beside the list, read the list as it
// is on disk now, change only the written key, write the whole list atomically, release. So two
// processes writing different keys at the same moment both keep their key.

#include <map>
#include <mutex>
#include <string>

#include "support/settings/SettingsStore.hpp"

namespace quorv {

class PlistFileStore final : public SettingsStore {
public:
    explicit PlistFileStore(std::string path);

    std::optional<Value> object(const std::string& key) override;
    bool set(const std::string& key, const Value& value) override;
    bool remove(const std::string& key) override;
    bool synchronize() override;
    std::vector<std::string> keys() override;

    const std::string& path() const { return path_; }

private:
    using Map = std::map<std::string, Value>;
    // Reads the file; a list that can't be read is moved aside (".corrupt") so no write replaces
    // it unseen. Caller holds the lock.
    Map loadFromDisk();
    bool change(const std::string& key, const Value* value);
    void ensureLoaded();

    std::string path_;
    std::mutex mutex_;
    bool loaded_ = false;
    Map cache_;
};

}  // namespace quorv
