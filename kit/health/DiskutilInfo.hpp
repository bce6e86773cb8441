#pragma once
// The start-up disk's reading from what "diskutil info -plist" prints: which disk to ask next (an
// APFS volume's physical store, a partition's whole disk) and the health figures of the answer.

#include <optional>
#include <string>
#include <string_view>

#include "kit/health/HealthTypes.hpp"
#include "support/settings/Value.hpp"

namespace brimstell {

struct DiskutilInfo {
    // The dictionary printed, or nullopt when the output is no property list or diskutil's error
    // dictionary ("Error" true, with its "ErrorMessage").
    static std::optional<quorv::Value> parse(std::string_view output);

    // The identifier of the disk that holds the health figures for this one: the first APFS
    // physical store, else the parent whole disk when that is another disk; nullopt when this
    // dictionary is the one to read.
    static std::optional<std::string> hop(const quorv::Value& info);

    // The figures of a dictionary; wear is left for the NVMe log.
    static DiskHealth health(const quorv::Value& info);
};

}  // namespace brimstell
