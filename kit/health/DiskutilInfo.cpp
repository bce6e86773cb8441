#include "kit/health/DiskutilInfo.hpp"

#include "kit/health/PlistFields.hpp"
#include "support/plist/Plist.hpp"

namespace brimstell {

namespace pf = plistfields;

std::optional<quorv::Value> DiskutilInfo::parse(std::string_view output) {
    auto v = quorv::plist::parse(output);
    if (!v || !v->is<quorv::Value::Dict>() || pf::boolean(*v, "Error") == true) return std::nullopt;
    return v;
}

std::optional<std::string> DiskutilInfo::hop(const quorv::Value& info) {
    if (const quorv::Value* stores = quorv::plist::find(info, "APFSPhysicalStores")) {
        const auto* list = stores->get<quorv::Value::Array>();
        if (list && !list->empty()) {
            // Each store names its disk as "DeviceIdentifier"; diskutil itself prints
            // "APFSPhysicalStore" there, which is taken when the first is missing.
            auto id = pf::text(list->front(), "DeviceIdentifier");
            if (!id || id->empty()) id = pf::text(list->front(), "APFSPhysicalStore");
            if (id && !id->empty()) return id;
        }
    }
    const auto parent = pf::text(info, "ParentWholeDisk");
    if (parent && !parent->empty() && parent != pf::text(info, "DeviceIdentifier")) return parent;
    return std::nullopt;
}

DiskHealth DiskutilInfo::health(const quorv::Value& info) {
    DiskHealth d;
    if (auto name = pf::text(info, "MediaName"); name && !name->empty()) d.name = *name;
    d.size = pf::integer(info, "TotalSize").value_or(pf::integer(info, "Size").value_or(0));
    if (auto smart = pf::text(info, "SMARTStatus"); smart && !smart->empty()) d.smart = *smart;
    d.solidState = pf::boolean(info, "SolidState").value_or(false);
    return d;
}

}  // namespace brimstell
