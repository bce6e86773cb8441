#pragma once
// Writes JSON straight into one string, value by value, in the layout nlohmann's dump gives
// (indent 2: "key": value, one member or element a line; compact: no spaces at all), so that a
// state file written here reads and diffs exactly like one written through a JSON object tree.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorv {

class JsonWriter {
public:
    // indent < 0 writes everything on one line.
    explicit JsonWriter(int indent = 2, std::size_t reserve = 0);

    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    // The next value's key, inside an object.
    JsonWriter& key(std::string_view name);

    // Text that is not valid UTF-8 is written with each bad byte as U+FFFD.
    JsonWriter& string(std::string_view text);
    JsonWriter& number(std::int64_t n);
    JsonWriter& number(std::uint64_t n);
    // The shortest form that reads back the same; a whole number keeps ".0"; NaN and infinities
    // are written as null.
    JsonWriter& number(double d);
    JsonWriter& boolean(bool b);
    JsonWriter& null();

    // Splices in a value already written as JSON text (on one line).
    JsonWriter& raw(std::string_view json);

    const std::string& text() const { return out_; }
    std::string take() { return std::move(out_); }
    // Hands what is written so far to sink and goes on from an empty buffer, so that a long
    // document can be written out in pieces; what sink returns.
    template <typename Sink>
    bool drain(Sink&& sink) {
        const bool ok = sink(std::string_view(out_));
        out_.clear();
        return ok;
    }

private:
    void beforeValue();
    void open(char bracket);
    void close(char bracket);
    void newline(std::size_t depth);
    void escaped(std::string_view text);

    std::string out_;
    int indent_;
    std::vector<std::size_t> counts_;  // members or elements written so far, per open level
    bool afterKey_ = false;
};

}  // namespace quorv
