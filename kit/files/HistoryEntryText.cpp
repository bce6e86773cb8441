// The history entry written straight into text and read straight from it: the same keys, order
// and rules as HistoryEntry::toJson and fromJson, without a JSON object tree in between (a history
// of 20,000 entries is read and written on every clean).

#include <array>
#include <functional>
#include <limits>

#include "kit/files/HistoryDecoder.hpp"
#include "kit/files/HistoryEntry.hpp"
#include "support/text/JsonReader.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/Utf8.hpp"

namespace brimstell {

using quorv::JsonReader;
using quorv::JsonWriter;
using Kind = JsonReader::Kind;

namespace {

constexpr auto int64Max = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

// One member as read: its kind, and its value for the kinds an entry uses.
struct Field {
    bool present = false;
    Kind kind = Kind::null;
    std::string text;
    JsonReader::Number number;
    bool flag = false;
};

enum Key { id, original, trashed, size, date, session, source, restored, fileID, root, originalBytes,
           trashedBytes, restoredBytes, volume, file, keyCount };
constexpr std::array<std::string_view, keyCount> keyNames{
    "id", "original", "trashed", "size", "date", "session", "source", "restored", "fileID", "root",
    "originalBytes", "trashedBytes", "restoredBytes", "volume", "file"};

int keyOf(const std::string& name, int from, int to) {
    // Looked up for every member of every entry: length and first letter before the bytes.
    for (int k = from; k < to; ++k) {
        const std::string_view candidate = keyNames[static_cast<std::size_t>(k)];
        if (candidate.size() == name.size() && candidate[0] == name[0] && candidate == name) return k;
    }
    return -1;
}

// Reads one value into f; fileID's object is read into the fields volume and file.
bool readField(JsonReader& in, Field& f, std::array<Field, keyCount>& fields) {
    f.present = true;
    f.kind = in.peek();
    switch (f.kind) {
        case Kind::string: return in.readString(f.text);
        case Kind::number: return in.readNumber(f.number);
        case Kind::boolean: return in.readBoolean(f.flag);
        case Kind::object:
            if (&f != &fields[fileID]) return in.skip();
            fields[volume] = Field{};
            fields[file] = Field{};
            if (!in.beginObject()) return false;
            for (std::string name; in.nextKey(name);) {
                const int k = keyOf(name, volume, keyCount);
                if (!(k < 0 ? in.skip() : readField(in, fields[static_cast<std::size_t>(k)], fields))) return false;
            }
            return !in.failed();
        default: return in.skip();
    }
}

bool isAbsent(const Field& f) { return !f.present || f.kind == Kind::null; }

bool pathOf(Field& f, Field& bytes, std::optional<std::string>& out) {
    if (isAbsent(f)) {
        out.reset();
        return true;
    }
    if (f.kind != Kind::string) return false;
    out = std::move(f.text);
    if (!bytes.present) return true;
    std::string decoded;
    if (bytes.kind != Kind::string || !quorv::base64Decode(bytes.text, decoded)) return false;
    out = std::move(decoded);
    return true;
}

bool isInteger(const Field& f) { return f.present && f.kind == Kind::number && f.number.isInteger(); }
bool isUnsigned(const Field& f) { return f.number.type == JsonReader::Number::Type::unsignedInteger; }

bool readFileID(std::array<Field, keyCount>& fields, std::optional<FileID>& out) {
    const Field& f = fields[fileID];
    if (isAbsent(f)) return true;
    const Field& v = fields[volume];
    const Field& n = fields[file];
    if (f.kind != Kind::object || !isInteger(v) || !isInteger(n)) return false;
    if (!isUnsigned(n) && n.number.i < 0) return false;
    if (isUnsigned(v) && v.number.u > int64Max) return false;
    out = FileID{isUnsigned(v) ? static_cast<std::int64_t>(v.number.u) : v.number.i,
                 isUnsigned(n) ? n.number.u : static_cast<std::uint64_t>(n.number.i)};
    return true;
}

bool uuidField(Field& f, std::string& out) {
    if (!f.present || f.kind != Kind::string || !isUuid(f.text)) return false;
    out = std::move(f.text);
    return true;
}

std::optional<HistoryEntry> fromFields(std::array<Field, keyCount>& fields) {
    HistoryEntry e;
    if (!uuidField(fields[id], e.id) || !uuidField(fields[session], e.session)) return std::nullopt;
    std::optional<std::string> path;
    if (!pathOf(fields[original], fields[originalBytes], path) || !path) return std::nullopt;
    e.original = std::move(*path);
    if (!pathOf(fields[trashed], fields[trashedBytes], e.trashed)) return std::nullopt;
    if (!pathOf(fields[restored], fields[restoredBytes], e.restoredTo)) return std::nullopt;
    if (Field& s = fields[source]; !isAbsent(s)) {
        if (s.kind != Kind::string) return std::nullopt;
        e.source = std::move(s.text);
    }
    const Field& sz = fields[size];
    if (!isInteger(sz) || (isUnsigned(sz) && sz.number.u > int64Max)) return std::nullopt;
    e.size = isUnsigned(sz) ? static_cast<std::int64_t>(sz.number.u) : sz.number.i;
    if (!fields[date].present || fields[date].kind != Kind::number) return std::nullopt;
    e.date = fields[date].number.asDouble();
    if (!readFileID(fields, e.fileID)) return std::nullopt;
    if (const Field& r = fields[root]; !isAbsent(r)) {
        if (r.kind != Kind::boolean) return std::nullopt;
        e.root = r.flag;
    }
    return e;
}

void putPath(JsonWriter& out, std::string_view key, const std::string& path) {
    out.key(key).string(path);  // the writer puts U+FFFD for bad bytes, as toJson does
}

void putBytes(JsonWriter& out, std::string_view key, const std::optional<std::string>& path) {
    if (path && !quorv::isValidUtf8(*path)) out.key(key).string(quorv::base64Encode(*path));
}

}  // namespace

void HistoryEntry::writeMembers(JsonWriter& out) const {
    out.key("id").string(id);
    putPath(out, "original", original);
    if (trashed) putPath(out, "trashed", *trashed);
    out.key("size").number(size);
    out.key("date").number(date);
    out.key("session").string(session);
    if (source) out.key("source").string(*source);
    if (restoredTo) putPath(out, "restored", *restoredTo);
    if (fileID) {
        out.key("fileID").beginObject().key("volume").number(fileID->volume);
        out.key("file").number(fileID->file).endObject();
    }
    if (root) out.key("root").boolean(*root);
    putBytes(out, "originalBytes", original);
    putBytes(out, "trashedBytes", trashed);
    putBytes(out, "restoredBytes", restoredTo);
}

std::optional<HistoryEntry> HistoryEntry::read(JsonReader& in) {
    if (in.peek() != Kind::object) {
        in.skip();
        return std::nullopt;
    }
    std::array<Field, keyCount> fields;
    in.beginObject();
    for (std::string name; in.nextKey(name);) {
        // A key given twice counts as its last value.
        const int k = keyOf(name, 0, volume);
        if (k >= 0) fields[static_cast<std::size_t>(k)] = Field{};
        if (!(k < 0 ? in.skip() : readField(in, fields[static_cast<std::size_t>(k)], fields))) return std::nullopt;
    }
    if (in.failed()) return std::nullopt;
    return fromFields(fields);
}

bool writeHistory(const std::vector<HistoryEntry>& entries, const std::function<bool(std::string_view)>& sink) {
    // Written out in pieces of about this size, so a history of thousands of entries never sits
    // whole in memory a second time.
    constexpr std::size_t piece = 256 * 1024;
    JsonWriter out(2, piece + 4096);
    out.beginArray();
    for (const auto& e : entries) {
        out.beginObject();
        e.writeMembers(out);
        out.endObject();
        if (out.text().size() >= piece && !out.drain(sink)) return false;
    }
    out.endArray();
    return out.drain([&](std::string_view rest) { return sink(rest) && sink("\n"); });
}

std::string encodeHistory(const std::vector<HistoryEntry>& entries) {
    std::string text;
    text.reserve(entries.size() * 480 + 16);
    writeHistory(entries, [&](std::string_view piece) {
        text.append(piece);
        return true;
    });
    return text;
}

std::optional<std::vector<HistoryEntry>> decodeHistory(std::string_view text) {
    HistoryDecoder decoder;
    decoder.expect(text.size());
    decoder.feed(text);
    return decoder.finish();
}

}  // namespace brimstell
