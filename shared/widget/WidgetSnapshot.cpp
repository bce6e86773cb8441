#include "shared/widget/WidgetSnapshot.hpp"

#include <map>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/text/JsonReader.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/Nesting.hpp"

namespace brimstell {

std::optional<std::string> WidgetSnapshot::container() {
    const auto& h = quorv::host();
    if (h.home.empty()) return std::nullopt;
    return h.groupContainer(group);
}

std::string WidgetSnapshot::json() const {
    quorv::JsonWriter out(-1);
    out.beginObject().key("junk").number(junk);
    if (lastClean) out.key("lastClean").number(*lastClean);
    out.key("lastFreed").number(lastFreed);
    if (batteryHealth) out.key("batteryHealth").number(*batteryHealth);
    // A status read from a tool that isn't UTF-8 is written with U+FFFD.
    if (diskStatus) out.key("diskStatus").string(*diskStatus);
    out.key("diskFailing").boolean(diskFailing).key("updated").number(updated).endObject();
    return out.take();
}

namespace {

using Kind = quorv::JsonReader::Kind;

struct Member {
    Kind kind = Kind::invalid;
    quorv::JsonReader::Number number;
    bool flag = false;
    std::string text;
};

std::optional<double> asNumber(const Member& m) {
    if (m.kind != Kind::number) return std::nullopt;
    return m.number.asDouble();
}

std::optional<std::int64_t> asInteger(const Member& m) {
    using Type = quorv::JsonReader::Number::Type;
    if (m.kind == Kind::number && m.number.type == Type::signedInteger) return m.number.i;
    if (m.kind == Kind::number && m.number.type == Type::unsignedInteger) return static_cast<std::int64_t>(m.number.u);
    const auto d = asNumber(m);
    // A fraction is cut off; one out of range is refused.
    if (!d || !(*d >= -9.2e18 && *d <= 9.2e18)) return std::nullopt;
    return static_cast<std::int64_t>(*d);
}

}  // namespace

std::optional<WidgetSnapshot> WidgetSnapshot::fromJson(const std::string& text) {
    if (!quorv::nesting::jsonWithin(text)) return std::nullopt;
    std::map<std::string, Member> members;  // a key given twice counts as its last value
    quorv::JsonReader in(text);
    if (!in.beginObject()) return std::nullopt;
    for (std::string key; in.nextKey(key);) {
        Member m;
        m.kind = in.peek();
        const bool read = m.kind == Kind::number    ? in.readNumber(m.number)
                          : m.kind == Kind::boolean ? in.readBoolean(m.flag)
                          : m.kind == Kind::string  ? in.readString(m.text)
                                                    : in.skip();
        if (!read) return std::nullopt;
        members[key] = std::move(m);
    }
    if (!in.atEnd()) return std::nullopt;
    const auto at = [&](const char* key) { const auto it = members.find(key); return it == members.end() ? Member{} : it->second; };
    const auto has = [&](const char* key) { return members.count(key) != 0; };
    WidgetSnapshot s;
    const auto junk = asInteger(at("junk")), lastFreed = asInteger(at("lastFreed"));
    const auto updated = asNumber(at("updated"));
    if (!junk || !lastFreed || !updated || at("diskFailing").kind != Kind::boolean) return std::nullopt;
    s.junk = *junk;
    s.lastFreed = *lastFreed;
    s.diskFailing = at("diskFailing").flag;
    s.updated = *updated;
    if (has("lastClean") && !(s.lastClean = asNumber(at("lastClean")))) return std::nullopt;
    if (has("batteryHealth") && !(s.batteryHealth = asNumber(at("batteryHealth")))) return std::nullopt;
    if (has("diskStatus")) {
        if (at("diskStatus").kind != Kind::string) return std::nullopt;
        s.diskStatus = at("diskStatus").text;
    }
    return s;
}

bool WidgetSnapshot::write(const std::string& containerPath) const {
    if (!quorv::files::makeFolders(containerPath, 0755)) return false;
    // A copy of what the agent works out again every hour: replaced atomically, not synced, and
    // left alone when it already says the same (a new file every run costs more than the run).
    const std::string path = containerPath + "/" + fileName;
    const std::string text = json();
    if (quorv::files::read(path, 1 << 20) == text) return true;
    return quorv::files::writeAtomically(path, text, 0644, quorv::files::Sync::cache);
}

std::optional<WidgetSnapshot> WidgetSnapshot::read(const std::string& containerPath) {
    auto text = quorv::files::read(containerPath + "/" + fileName, 1 << 20);
    if (!text) return std::nullopt;
    return fromJson(*text);
}

}  // namespace brimstell
