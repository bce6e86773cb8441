#pragma once
// A typed settings value, as a property list holds it.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace quorv {

// A point in time, in seconds since 1970. A distinct type so that a date stays a date.
struct Date {
    double since1970 = 0;
    bool operator==(const Date&) const = default;
};

class Value {
public:
    using Array = std::vector<Value>;
    using Dict = std::vector<std::pair<std::string, Value>>;
    using Data = std::vector<std::uint8_t>;
    using Storage = std::variant<bool, std::int64_t, double, std::string, Date, Data, Array, Dict>;

    Value() : storage(false) {}
    Value(bool b) : storage(b) {}
    Value(int i) : storage(static_cast<std::int64_t>(i)) {}
    Value(std::int64_t i) : storage(i) {}
    Value(double d) : storage(d) {}
    Value(const char* s) : storage(std::string(s)) {}
    Value(std::string s) : storage(std::move(s)) {}
    Value(Date d) : storage(d) {}
    Value(Data d) : storage(std::move(d)) {}
    Value(Array a) : storage(std::move(a)) {}
    Value(Dict d) : storage(std::move(d)) {}
    static Value strings(const std::vector<std::string>& items);

    template <class T>
    bool is() const { return std::holds_alternative<T>(storage); }
    template <class T>
    const T* get() const { return std::get_if<T>(&storage); }

    // The value as a list of strings when it is an array holding only strings.
    std::optional<std::vector<std::string>> stringArray() const;

    // "boolean", "integer", "double", "string", "date", "data", "array", "dictionary".
    std::string typeName() const;
    // A one-line rendering for people: true, 42, 1.5, text, a date as seconds, ["a", "b"].
    std::string text() const;

    bool operator==(const Value& other) const;

    Storage storage;
};

}  // namespace quorv
