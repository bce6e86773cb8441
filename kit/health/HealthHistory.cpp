#include "kit/health/HealthHistory.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cmath>
#include <map>
#include <memory>

#include <fmt/format.h>

#include "kit/files/OnePerFile.hpp"
#include "support/host/Host.hpp"
#include "support/posix/FileLock.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/text/JsonReader.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/Nesting.hpp"

namespace brimstell {

using quorv::JsonReader;
using Kind = JsonReader::Kind;

std::string encodeHealthHistory(const std::vector<HealthPoint>& points, const quorv::Calendar& calendar) {
    quorv::JsonWriter out(2, points.size() * 120 + 8);
    out.beginArray();
    for (const auto& p : points) {
        out.beginObject();
        out.key("day").string(calendar.isoText(p.day));
        out.key("health").number(p.health);
        out.key("cycles").number(p.cycles);
        out.key("fullCapacity").number(p.fullCapacity);
        out.endObject();
    }
    out.endArray();
    return out.take() + "\n";
}

namespace {

bool readInteger(JsonReader& in, std::int64_t& out) {
    JsonReader::Number n;
    if (in.peek() != Kind::number || !in.readNumber(n) || !n.isInteger()) return false;
    if (n.type == JsonReader::Number::Type::unsignedInteger && n.u > static_cast<std::uint64_t>(INT64_MAX)) return false;
    out = n.type == JsonReader::Number::Type::unsignedInteger ? static_cast<std::int64_t>(n.u) : n.i;
    return true;
}

// One point; every key present once at least, of its type. Unknown keys are passed over.
std::optional<HealthPoint> readPoint(JsonReader& in) {
    if (in.peek() != Kind::object || !in.beginObject()) return std::nullopt;
    HealthPoint p;
    std::array<bool, 4> seen{};
    for (std::string key; in.nextKey(key);) {
        bool ok = true;
        if (key == "day") {
            std::string text;
            const auto day = in.peek() == Kind::string && in.readString(text) ? quorv::Calendar::parseIso(text) : std::nullopt;
            ok = day.has_value();
            p.day = day.value_or(0);
            seen[0] = true;
        } else if (key == "health") {
            JsonReader::Number n;
            ok = in.peek() == Kind::number && in.readNumber(n);
            p.health = n.asDouble();
            seen[1] = true;
        } else if (key == "cycles" || key == "fullCapacity") {
            ok = readInteger(in, key == "cycles" ? p.cycles : p.fullCapacity);
            seen[key == "cycles" ? 2 : 3] = true;
        } else {
            ok = in.skip();
        }
        if (!ok) return std::nullopt;
    }
    if (in.failed() || !std::all_of(seen.begin(), seen.end(), [](bool b) { return b; })) return std::nullopt;
    return p;
}

}  // namespace

std::optional<std::vector<HealthPoint>> decodeHealthHistory(std::string_view text) {
    if (!quorv::nesting::jsonWithin(text)) return std::nullopt;
    JsonReader in(text);
    if (!in.beginArray()) return std::nullopt;
    std::vector<HealthPoint> points;
    while (in.nextElement()) {
        auto p = readPoint(in);
        if (!p) return std::nullopt;
        points.push_back(*p);
    }
    if (in.failed() || !in.atEnd()) return std::nullopt;
    return points;
}

HealthHistory::HealthHistory(std::string file) : file_(std::move(file)) {}

std::string HealthHistory::defaultFile() { return quorv::host().appSupport() + "/health-history.json"; }

HealthHistory& HealthHistory::shared() { return onePerFile<HealthHistory>(defaultFile()); }

std::string HealthHistory::lockPath() const { return quorv::files::parentOf(file_) + "/health-history.lock"; }

// The points; an empty list for no file. nullopt with undecodable set for a file that is there
// but can't be read as a history (a FIFO, a link, a torn or foreign file).
std::optional<std::vector<HealthPoint>> HealthHistory::readLocked(bool& undecodable) {
    undecodable = false;
    const auto text = quorv::files::read(file_, maxFileBytes);
    if (!text) {
        if (errno == ENOENT) return std::vector<HealthPoint>{};
        undecodable = true;
        return std::nullopt;
    }
    auto points = decodeHealthHistory(*text);
    undecodable = !points;
    return points;
}

std::vector<HealthPoint> HealthHistory::load() {
    std::lock_guard lock(mutex_);
    bool undecodable = false;
    return readLocked(undecodable).value_or(std::vector<HealthPoint>{});
}

bool HealthHistory::due(double now, const quorv::Calendar& calendar) {
    const auto points = load();
    return std::none_of(points.begin(), points.end(), [&](const HealthPoint& p) { return calendar.sameDay(p.day, now); });
}

bool HealthHistory::record(const BatteryDetails& battery, double now, const quorv::Calendar& calendar) {
    std::lock_guard lock(mutex_);
    const std::string folder = quorv::files::parentOf(file_);
    quorv::files::makeFolders(folder, 0700);
    auto fileLock = quorv::FileLock::acquire(lockPath(), quorv::FileLock::Mode::exclusive, true, 0700);
    bool undecodable = false;
    auto points = readLocked(undecodable).value_or(std::vector<HealthPoint>{});
    if (undecodable) {
        // Set aside as health-history.json.<unix seconds>, so nothing someone may want is lost.
        const std::string aside = fmt::format("{}.{}", file_, static_cast<long long>(std::floor(now)));
        if (quorv::LinkSafe::renameNoReplace(AT_FDCWD, file_, AT_FDCWD, aside) != 0) return false;
    }
    const double day = calendar.startOfDay(now);
    std::erase_if(points, [&](const HealthPoint& p) { return calendar.sameDay(p.day, day); });
    points.push_back({day, battery.health, battery.cycles, battery.fullCapacity});
    std::stable_sort(points.begin(), points.end(), [](const HealthPoint& a, const HealthPoint& b) { return a.day < b.day; });
    return quorv::files::writeAtomically(file_, encodeHealthHistory(points, calendar), 0600);
}

}  // namespace brimstell
