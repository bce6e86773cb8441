#ifndef __APPLE__

#include "support/FakeManager.hpp"

#include <algorithm>
#include <filesystem>

namespace testing_support {

std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (auto& e : std::filesystem::directory_iterator(folder, ec)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

const sd_bus_vtable FakeManager::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Version", "s", FakeManager::version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Reload", "", "", FakeManager::handle, 0),
    SD_BUS_METHOD("EnableUnitFiles", "asbb", "ba(sss)", FakeManager::handle, 0),
    SD_BUS_METHOD("DisableUnitFiles", "asb", "a(sss)", FakeManager::handle, 0),
    SD_BUS_METHOD("StartUnit", "ss", "o", FakeManager::handle, 0),
    SD_BUS_METHOD("StopUnit", "ss", "o", FakeManager::handle, 0),
    SD_BUS_METHOD("GetUnitFileState", "s", "s", FakeManager::handle, 0),
    SD_BUS_VTABLE_END,
};

}  // namespace testing_support

#endif  // __APPLE__
