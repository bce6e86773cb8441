#pragma once
// One moved item of the cleaning history, and the JSON form of the history file.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace quorv {
class JsonReader;
class JsonWriter;
}  // namespace quorv

namespace brimstell {

// The identity of a file: its volume (device number) and its file (inode) number.
struct FileID {
    std::int64_t volume = 0;
    std::uint64_t file = 0;

    bool operator==(const FileID&) const = default;
};

struct HistoryEntry {
    std::string id;                          // UUID
    std::string original;                    // the full path it had
    std::optional<std::string> trashed;      // its full path in the Trash
    std::int64_t size = 0;                   // bytes freed
    double date = 0;                         // when it was moved, seconds since 1970
    std::string session;                     // UUID shared by the entries of one clean
    std::optional<std::string> source;       // what cleaned it
    std::optional<std::string> restoredTo;   // where it was put back; absent while in the Trash
    std::optional<FileID> fileID;            // identity taken when it was moved
    std::optional<bool> root;                // true: the privileged helper moved it

    bool operator==(const HistoryEntry&) const = default;

    bool isRoot() const { return root.value_or(false); }

    // The file's form: keys "id", "original", "trashed", "size", "date", "session", "source",
    // "restored", "fileID", "root" in that order, absent optionals left out; "date" is seconds
    // since 1970 (a number) and "fileID" an object {"volume": device, "file": inode}.
    // Paths are bytes: one that is not valid UTF-8 is written readable (bad bytes as U+FFFD) and,
    // after the keys above, exactly as "originalBytes" / "trashedBytes" / "restoredBytes" (base64).
    nlohmann::ordered_json toJson() const;
    // nullopt when a required key is missing or a value has the wrong type.
    static std::optional<HistoryEntry> fromJson(const nlohmann::ordered_json& j);
    // The same form and rules, straight to and from text: the members of toJson's object (the
    // caller opens and closes it, and may add its own), and the next value of a reader (nullopt
    // when fromJson would give nullopt; the reader has failed when the text isn't JSON).
    void writeMembers(quorv::JsonWriter& out) const;
    static std::optional<HistoryEntry> read(quorv::JsonReader& in);
};

// The history file: a JSON array of entries. decode gives nullopt for anything else, or when one
// entry can't be read: such a file is not to be trusted, and is set aside whole.
std::string encodeHistory(const std::vector<HistoryEntry>& entries);
// The same text handed to sink in pieces; false as soon as sink returns false.
bool writeHistory(const std::vector<HistoryEntry>& entries, const std::function<bool(std::string_view)>& sink);
std::optional<std::vector<HistoryEntry>> decodeHistory(std::string_view text);

// True for the upper- or lower-case form 8-4-4-4-12 hexadecimal digits.
bool isUuid(std::string_view s);

}  // namespace brimstell
