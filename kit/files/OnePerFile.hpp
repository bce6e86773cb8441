#pragma once
// One object per state file in the process: every caller of a file's object shares its mutex and
// its idea of what the file holds, and hosts over different sandboxes never share one.

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace brimstell {

template <class T>
T& onePerFile(const std::string& file) {
    static std::mutex mutex;
    // Never destroyed: background work may still record while the process exits.
    static auto* objects = new std::map<std::string, std::unique_ptr<T>>;
    std::lock_guard lock(mutex);
    auto& slot = (*objects)[file];
    if (!slot) slot = std::make_unique<T>(file);
    return *slot;
}

}  // namespace brimstell
