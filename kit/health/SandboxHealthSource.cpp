#include "kit/health/SandboxHealthSource.hpp"

#include "support/host/Host.hpp"
#include "support/plist/Plist.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

namespace {

std::optional<quorv::Value> dictionaryAt(const char* systemPath) {
    auto v = quorv::plist::readFile(quorv::host().path(systemPath));
    if (!v || !v->is<quorv::Value::Dict>()) return std::nullopt;
    return v;
}

}  // namespace

std::optional<quorv::Value> SandboxHealthSource::smartBattery() { return dictionaryAt(smartBatteryFile); }

std::vector<quorv::Value> SandboxHealthSource::powerSources() {
    auto v = quorv::plist::readFile(quorv::host().path(powerSourcesFile));
    const auto* list = v ? v->get<quorv::Value::Array>() : nullptr;
    return list ? *list : std::vector<quorv::Value>{};
}

std::optional<quorv::Value> SandboxHealthSource::powerAdapter() { return dictionaryAt(powerAdapterFile); }

std::optional<std::string> SandboxHealthSource::nvmeSmartLog() {
    return quorv::files::read(quorv::host().path(nvmeLogFile), 4096);
}

}  // namespace brimstell
