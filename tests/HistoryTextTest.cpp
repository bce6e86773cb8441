// The history file's writer and reader, which work on text directly: the text they write is what
// a JSON tree of the entries dumps, byte for byte, and what they accept and turn away is what the
// tree reader (nlohmann plus HistoryEntry::fromJson) accepts and turns away.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

#include "kit/files/HistoryDecoder.hpp"
#include "kit/files/HistoryEntry.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/TextHash.hpp"
#include "support/text/Utf8.hpp"

namespace {

using brimstell::FileID;
using brimstell::HistoryEntry;
using Json = nlohmann::ordered_json;

const std::string id = "6F1C2B7E-1111-4222-8333-444455556666";
const std::string session = "0e8a9b10-aaaa-4bbb-8ccc-ddddeeeeffff";

// The rules the history was read by before: a tree, then each entry from it.
std::optional<std::vector<HistoryEntry>> treeDecode(const std::string& text) {
    const Json list = Json::parse(text, nullptr, false);
    if (list.is_discarded() || !list.is_array()) return std::nullopt;
    std::vector<HistoryEntry> out;
    for (const auto& item : list) {
        auto e = HistoryEntry::fromJson(item);
        if (!e) return std::nullopt;
        out.push_back(std::move(*e));
    }
    return out;
}

std::string treeEncode(const std::vector<HistoryEntry>& list) {
    Json j = Json::array();
    for (const auto& e : list) j.push_back(e.toJson());
    return j.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

TEST(HistoryText, WritesWhatTheTreeDumpsAndReadsBackEveryField) {
    const auto i64max = std::numeric_limits<std::int64_t>::max();
    const auto i64min = std::numeric_limits<std::int64_t>::min();
    const struct {
        const char* what;
        HistoryEntry e;
    } cases[] = {
        {"every key", {id, "/Users/ann/a.pdf", "/Users/ann/.Trash/a.pdf", 4096, 1790000000.25, session, "User Caches",
                       "/Users/ann/a (restored).pdf", FileID{16777232, 18446744073709551615ull}, true}},
        {"optionals left out", {id, "/x", {}, 0, 0, session, {}, {}, {}, {}}},
        {"root false, extreme numbers", {id, "/x", "/t", i64max, 1e21, session, {}, {}, FileID{i64min, 0}, false}},
        {"negative size, tiny date", {id, "/x", "/t", -1, 5e-324, session, "", {}, FileID{-1, 1}, {}}},
        {"escapes", {id, "/q\"b\\s/\b\f\n\r\t\x01\x1f\x7f end", "/t/\xC3\xA9\xF0\x9F\x98\x80", 1, 1.5, session,
                     "tab\there", "/r/\"", {}, {}}},
        {"bytes that are not UTF-8", {id, "/bad\xff\xfe name", "/.Trash/\xC3(", 2, 2, session, "src\xff",
                                      "/back\x80", {}, {}}},
        {"a bad byte and a newline", {id, "/line\nfeed\xc0\xaf", {}, 3, 3, session, {}, {}, {}, {}}},
    };
    std::vector<HistoryEntry> all;
    for (const auto& c : cases) {
        const std::vector<HistoryEntry> one{c.e};
        const std::string text = brimstell::encodeHistory(one);
        EXPECT_EQ(text, treeEncode(one)) << c.what;
        const auto back = treeDecode(text);
        ASSERT_TRUE(back) << c.what;
        HistoryEntry expected = c.e;
        if (expected.source) expected.source = quorv::validUtf8(*expected.source);  // sources are shown, not restored
        EXPECT_EQ(back->front(), expected) << c.what;
        EXPECT_EQ(brimstell::decodeHistory(text), back) << c.what;
        all.push_back(c.e);
    }
    EXPECT_EQ(brimstell::encodeHistory(all), treeEncode(all));
    EXPECT_EQ(brimstell::encodeHistory({}), "[]\n");
}

// Text is looked at eight bytes at a time: a character to escape, or one beyond ASCII, at every
// place within and across those words is written as the tree dumps it and read back.
TEST(HistoryText, EscapesAtEveryPlaceOfAWord) {
    for (const std::string& odd : std::vector<std::string>{"\"", "\\", "\n", std::string(1, '\0'), "\x1f", "\x7f", "\xC3\xA9", "\xff"}) {
        for (std::size_t at = 0; at <= 17; ++at) {
            const std::string path = "/" + std::string(at, 'a') + odd + std::string(17 - at, 'b');
            const std::vector<HistoryEntry> one{{id, path, {}, 1, 1, session, {}, {}, {}, {}}};
            const std::string text = brimstell::encodeHistory(one);
            ASSERT_EQ(text, treeEncode(one)) << at;
            ASSERT_EQ(brimstell::decodeHistory(text), one) << at;
        }
    }
}

TEST(HistoryText, TheFileLooksAsItDid) {
    const HistoryEntry e{id, "/a\"b", {}, 7, 1790000000, session, {}, {}, FileID{1, 2}, {}};
    EXPECT_EQ(brimstell::encodeHistory({e}),
              "[\n  {\n    \"id\": \"6F1C2B7E-1111-4222-8333-444455556666\",\n    \"original\": \"/a\\\"b\",\n"
              "    \"size\": 7,\n    \"date\": 1790000000.0,\n    \"session\": \"0e8a9b10-aaaa-4bbb-8ccc-ddddeeeeffff\",\n"
              "    \"fileID\": {\n      \"volume\": 1,\n      \"file\": 2\n    }\n  }\n]\n");
    quorv::JsonWriter compact(-1);
    compact.beginObject().key("a").beginArray().endArray().key("b").beginObject().endObject();
    compact.key("c").null().key("d").number(-0.0).key("e").number(std::nan("")).endObject();
    EXPECT_EQ(compact.text(), R"({"a":[],"b":{},"c":null,"d":-0.0,"e":null})");
}

// The text read by the decoder as pieces cut at these places.
std::optional<std::vector<HistoryEntry>> inPieces(std::string_view text, const std::vector<std::size_t>& cuts) {
    brimstell::HistoryDecoder decoder;
    std::size_t from = 0;
    for (const std::size_t cut : cuts) {
        decoder.feed(text.substr(from, cut - from));
        from = cut;
    }
    decoder.feed(text.substr(from));
    return decoder.finish();
}

// One entry whose members are `members`, after the required ones.
std::string entryWith(const std::string& members, const std::string& size = "1", const std::string& date = "1") {
    return "[{\"id\":\"" + id + "\",\"original\":\"/x\",\"size\":" + size + ",\"date\":" + date + ",\"session\":\"" +
           session + "\"" + members + "}]";
}

TEST(HistoryText, AcceptsAndRefusesWhatTheTreeReaderDid) {
    const struct {
        const char* what;
        std::string text;
        bool readable;
    } cases[] = {
        {"plain", entryWith(""), true},
        {"a byte order mark first", "\xEF\xBB\xBF" + entryWith(""), true},
        {"half a byte order mark", "\xEF\xBB" + entryWith(""), false},
        {"white space everywhere", " \r\n\t" + entryWith("") + " \n", true},
        {"an empty list", "[]", true},
        {"a key given twice: the last counts", entryWith(R"(,"root":"x","root":true)"), true},
        {"a key given twice, the last bad", entryWith(R"(,"root":true,"root":"x")"), false},
        {"unknown keys of every kind", entryWith(R"(,"z":[{"a":[1,2.5,-3e2,null,true,"\u00e9"]}],"y":{})"), true},
        {"nulls for optionals", entryWith(R"(,"trashed":null,"source":null,"restored":null,"fileID":null,"root":null)"), true},
        {"bytes beside a null path are not looked at", entryWith(R"(,"trashed":null,"trashedBytes":5)"), true},
        {"bytes beside a path must be base64", entryWith(R"(,"trashed":"/t","trashedBytes":5)"), false},
        {"escapes: pair, slash, unicode", entryWith(R"(,"source":"\ud83d\ude00\/\u00E9\u0000")"), true},
        {"a lone low surrogate", entryWith(R"(,"source":"\udc00")"), false},
        {"a high surrogate then a letter", entryWith(R"(,"source":"\ud800\u0041")"), false},
        {"a short \\u", entryWith(R"(,"source":"\u12")"), false},
        {"an unknown escape", entryWith(R"(,"source":"\x")"), false},
        {"an overlong UTF-8 slash", entryWith(",\"source\":\"\xC0\xAF\""), false},
        {"a raw DEL is fine", entryWith(",\"source\":\"\x7F\""), true},
        {"minus zero inode", entryWith(R"(,"fileID":{"volume":-5,"file":-0})"), true},
        {"an inode beyond 64 bits", entryWith(R"(,"fileID":{"volume":1,"file":18446744073709551616})"), false},
        {"a volume above int64", entryWith(R"(,"fileID":{"volume":9223372036854775808,"file":1})"), false},
        {"a fractional volume", entryWith(R"(,"fileID":{"volume":1.0,"file":1})"), false},
        {"fileID without file", entryWith(R"(,"fileID":{"volume":1})"), false},
        {"fileID as a list", entryWith(R"(,"fileID":[1,2])"), false},
        {"root as a number", entryWith(R"(,"root":1)"), false},
        {"the smallest size", entryWith("", "-9223372036854775808"), true},
        {"below the smallest size", entryWith("", "-9223372036854775809"), false},
        {"size minus zero", entryWith("", "-0"), true},
        {"size with an exponent", entryWith("", "1e2"), false},
        {"a date as a big integer", entryWith("", "1", "18446744073709551615"), true},
        {"a date with an exponent", entryWith("", "1", "1.79E+9"), true},
        {"a date too small to tell from zero", entryWith("", "1", "1e-400"), true},
        {"a date that overflows", entryWith("", "1", "-1e400"), false},
        {"a date of text", entryWith("", "1", "\"1\""), false},
        {"a number with a plus", entryWith("", "+1"), false},
        {"a number ending in a dot", entryWith("", "1."), false},
        {"a number starting with a dot", entryWith("", ".5"), false},
        {"a bare minus", entryWith("", "-"), false},
        {"true spelled wrong", entryWith(R"(,"root":tru)"), false},
        {"a comment", "[] // note", false},
        {"single quotes", "['x']", false},
        {"an entry that is a list", "[[]]", false},
        {"a key that is no string", "[{1:2}]", false},
        {"a missing colon", "[{\"id\" \"x\"}]", false},
        {"two lists", "[][]", false},
        {"nothing", "", false},
        {"a NUL in a path", entryWith(",\"source\":\"a" + std::string(1, '\0') + "\""), false},
    };
    for (const auto& c : cases) {
        const auto ours = brimstell::decodeHistory(c.text);
        EXPECT_EQ(ours.has_value(), c.readable) << c.what;
        EXPECT_EQ(ours, treeDecode(c.text)) << c.what;
        // The file is read in pieces: cut anywhere, the answer is the same.
        for (std::size_t cut = 0; cut <= c.text.size(); ++cut) {
            EXPECT_EQ(inPieces(c.text, {cut}), ours) << c.what << ", cut at " << cut;
        }
    }
}

TEST(HistoryText, ReadInPiecesOfAnySizeGivesTheWholeTextsEntries) {
    std::vector<HistoryEntry> list;
    for (int n = 0; n < 5; ++n) {
        list.push_back({id, "/Users/ann/\xC3\xA9 " + std::to_string(n), "/t\"" + std::to_string(n), n, 1790000000.5 + n,
                        session, n % 2 ? std::optional<std::string>("Auto Clean") : std::nullopt, {}, FileID{n, 7u}, {}});
    }
    const std::string text = brimstell::encodeHistory(list);
    for (const std::size_t size : {1, 2, 3, 7, 64, 100000}) {
        std::vector<std::size_t> cuts;
        for (std::size_t at = size; at < text.size(); at += size) cuts.push_back(at);
        EXPECT_EQ(inPieces(text, cuts), list) << "pieces of " << size;
    }
    // Cut in two anywhere, and the last entry torn off: never read, whatever the cut.
    const std::string torn = text.substr(0, text.size() - 20);
    for (std::size_t cut = 0; cut <= torn.size(); ++cut) EXPECT_FALSE(inPieces(torn, {cut})) << cut;
}

TEST(HistoryText, TheTextsHashDoesNotDependOnItsPieces) {
    std::string text;
    for (int n = 0; n < 100; ++n) text += static_cast<char>(n * 37);
    const std::uint64_t whole = quorv::TextHash::of(text);
    for (std::size_t a = 0; a <= text.size(); a += 3) {
        for (std::size_t b = a; b <= text.size(); b += 5) {
            quorv::TextHash h;
            h.update(text.substr(0, a));
            h.update(text.substr(a, b - a));
            h.update(text.substr(b));
            ASSERT_EQ(h.value(), whole) << a << " " << b;
        }
    }
    // Length counts: a text and the same with a NUL more differ, as do two one-byte changes.
    EXPECT_NE(quorv::TextHash::of(text + '\0'), whole);
    std::string changed = text;
    changed[50] ^= 1;
    EXPECT_NE(quorv::TextHash::of(changed), whole);
    EXPECT_NE(quorv::TextHash::of(""), quorv::TextHash::of(std::string(1, '\0')));
}

}  // namespace
