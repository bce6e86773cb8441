#include "kit/files/FileEvents.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace brimstell {

namespace {

struct Registry {
    std::mutex mutex;
    std::uint64_t next = 1;
    // token -> (name, observer)
    std::map<std::uint64_t, std::pair<std::string, std::shared_ptr<std::function<void()>>>> observers;
};

Registry& registry() {
    static auto* r = new Registry;  // outlives every static observer's destructor
    return *r;
}

}  // namespace

FileEvents::Observation FileEvents::observe(const std::string& name, std::function<void()> fn) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    const std::uint64_t token = r.next++;
    r.observers.emplace(token, std::make_pair(name, std::make_shared<std::function<void()>>(std::move(fn))));
    return Observation(token);
}

void FileEvents::post(const std::string& name) {
    std::vector<std::shared_ptr<std::function<void()>>> targets;
    {
        auto& r = registry();
        std::lock_guard lock(r.mutex);
        for (const auto& [token, entry] : r.observers) {
            if (entry.first == name) targets.push_back(entry.second);
        }
    }
    for (const auto& fn : targets) (*fn)();
}

FileEvents::Observation::~Observation() { cancel(); }

FileEvents::Observation::Observation(Observation&& o) noexcept : token_(std::exchange(o.token_, 0)) {}

FileEvents::Observation& FileEvents::Observation::operator=(Observation&& o) noexcept {
    if (this != &o) {
        cancel();
        token_ = std::exchange(o.token_, 0);
    }
    return *this;
}

void FileEvents::Observation::cancel() {
    if (token_ == 0) return;
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.observers.erase(token_);
    token_ = 0;
}

}  // namespace brimstell
