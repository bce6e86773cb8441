#pragma once
// The background-task-management database as `sfltool dumpbtm` prints it: records of login items,
// helpers that apps registered, and the legacy launch items the system tracks.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell {

struct BTMRecord {
    std::string uid;  // the user id of the "Records for UID" section; empty before the first one
    std::map<std::string, std::string> fields;

    // The value of key; nothing for a missing key, an empty value or "(null)".
    std::optional<std::string> field(const std::string& key) const;
    // The words between the brackets of "Disposition" ("[enabled, allowed] (0x3)" → {enabled,
    // allowed}); empty without a "[" followed later by "]".
    std::set<std::string> disposition() const;
    // "Type" up to its first " (": "login item (0x4)" → "login item".
    std::string type() const;

    bool operator==(const BTMRecord&) const = default;
};

struct BTM {
    // The records of a dump, in its order. Lines that fit no record are skipped.
    static std::vector<BTMRecord> parse(std::string_view dump);
};

}  // namespace brimstell
