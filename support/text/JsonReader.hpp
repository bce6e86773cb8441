#pragma once
// Reads JSON text value by value, without building a tree, and as strictly as nlohmann's parser:
// strings must be valid UTF-8 with no raw control characters and no lone surrogate escapes,
// numbers follow the JSON grammar and must be finite, a UTF-8 byte order mark may lead.
// Integers keep their exact value (signed below zero, unsigned above); others become doubles.
//
// Every call returns false once the text is found wrong, and stays failed: the caller checks
// failed() where "false" could also mean the end of an array or object.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorv {

class JsonReader {
public:
    enum class Kind { null, boolean, number, string, array, object, invalid };

    struct Number {
        enum class Type { unsignedInteger, signedInteger, floating } type = Type::floating;
        std::uint64_t u = 0;
        std::int64_t i = 0;
        double d = 0;

        bool isInteger() const { return type != Type::floating; }
        double asDouble() const;
    };

    explicit JsonReader(std::string_view text);
    // A reader of the rest of an array whose text was cut at an element boundary: as if its '['
    // (and the elements before, when first is false) had been read. No byte order mark is looked for.
    static JsonReader insideArray(std::string_view text, bool first);

    // What the next value is, from its first character; nothing is consumed.
    Kind peek();

    bool beginArray();
    bool beginObject();
    // Inside an array: true when another element follows, false at its end (consumed).
    bool nextElement();
    // Inside an object: true with the next member's key read (and its colon), false at its end.
    bool nextKey(std::string& key);

    bool readString(std::string& out);
    bool readNumber(Number& out);
    bool readBoolean(bool& out);
    bool readNull();
    // Reads over one value of any kind.
    bool skip();

    // True when only white space is left (and nothing failed).
    bool atEnd();
    bool failed() const { return failed_; }
    // How far into the text the reader has come.
    std::size_t position() const { return pos_; }

private:
    bool fail();
    void skipSpace();
    bool expect(char c);
    bool more(char close);
    bool literal(std::string_view word);
    bool escape(std::string& out);
    bool hex4(unsigned& out);

    std::string_view text_;
    std::size_t pos_ = 0;
    std::vector<bool> first_;  // per open array or object: nothing read in it yet
    bool failed_ = false;
};

}  // namespace quorv
