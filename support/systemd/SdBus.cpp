#ifndef __APPLE__

#include "support/systemd/SdBus.hpp"

#include <atomic>
#include <deque>
#include <mutex>

#include <fmt/format.h>

#include "support/posix/SharedLibrary.hpp"

namespace quorv::systemd {
namespace {

std::mutex loadLock;
std::atomic<const SdBus*> loaded{nullptr};
std::atomic<bool> tried{false};

std::string& nameSlot() {
    static std::string name = defaultLibrary;
    return name;
}

// Tables stay valid for the whole run: a caller may still hold one while the name changes.
std::deque<SdBus>& tables() {
    static auto* kept = new std::deque<SdBus>();
    return *kept;
}

// As systemd loads its own optional libraries: resolved now, never unloaded.
bool load(const std::string& name, SdBus& into) {
    void* handle = openLibrary(name.c_str());
    if (!handle) return false;
    bool complete = true;
#define QUORV_SD_BUS_LOOKUP(fn)                                                   \
    complete = lookUp(handle, into.fn, #fn) && complete;
    QUORV_SD_BUS_FUNCTIONS(QUORV_SD_BUS_LOOKUP)
#undef QUORV_SD_BUS_LOOKUP
    return complete;
}

}  // namespace

const SdBus* sdBus() {
    if (tried.load(std::memory_order_acquire)) return loaded.load(std::memory_order_acquire);
    std::lock_guard guard(loadLock);
    if (!tried.load(std::memory_order_relaxed)) {
        SdBus table;
        if (load(nameSlot(), table)) loaded.store(&tables().emplace_back(table), std::memory_order_release);
        tried.store(true, std::memory_order_release);
    }
    return loaded.load(std::memory_order_acquire);
}

void setLibraryName(const std::string& name) {
    std::lock_guard guard(loadLock);
    nameSlot() = name;
    loaded.store(nullptr, std::memory_order_release);
    tried.store(false, std::memory_order_release);
}

std::string libraryName() {
    std::lock_guard guard(loadLock);
    return nameSlot();
}

std::string libraryMissing(std::string_view manager) {
    return fmt::format("The systemd {} can't be reached: {} can't be loaded.", manager, libraryName());
}

}  // namespace quorv::systemd

#endif  // __APPLE__
