// The helper's wire format: frames as bytes, and what a decoder makes of cut, oversized and
// garbage input.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "shared/helper/HelperWire.hpp"

namespace {

using namespace std::string_literals;
namespace wire = brimstell::HelperWire;
using wire::Parse;

wire::Nonce nonceOf(std::uint8_t first) {
    wire::Nonce n{};
    for (std::size_t i = 0; i < n.size(); ++i) n[i] = static_cast<std::uint8_t>(first + i);
    return n;
}

std::string u32(std::size_t v) {
    std::string s;
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
    return s;
}

std::string nonceBytes(const wire::Nonce& n) { return std::string(reinterpret_cast<const char*>(n.data()), n.size()); }
std::string withBody(const std::string& body) { return "BRQ1" + u32(body.size()) + body; }

// A request frame written out by hand: the layout is the contract with the other side.
std::string handRequest(const wire::Nonce& n, char kind, const std::string& op, const std::vector<std::string>& list) {
    std::string body = nonceBytes(n) + kind + u32(op.size()) + op + u32(0) + u32(list.size());
    for (const auto& e : list) body += u32(e.size()) + e;
    return withBody(body);
}

TEST(HelperWire, EncoderWritesTheDocumentedBytesWithinTheLimits) {
    const auto n = nonceOf(1);
    EXPECT_EQ(wire::encodeChallenge(n), "BRH1" + nonceBytes(n));
    EXPECT_EQ(wire::encodeReply("OK\n"), "BRR1\x03\0\0\0OK\n"s);
    EXPECT_EQ(wire::encodeReply(""), "BRR1\0\0\0\0"s);
    EXPECT_EQ(wire::encodeRequest(n, {false, "trash", "", {"/Users/ann/x", "/Library/Caches/y"}}),
              handRequest(n, 1, "trash", {"/Users/ann/x", "/Library/Caches/y"}));
    EXPECT_EQ(wire::encodeRequest(n, {true, "", "", {}}), handRequest(n, 0, "", {}));
    EXPECT_EQ(wire::encodeRequest(n, {true, "junk", "", {}}), std::nullopt);  // a version request carries nothing else

    wire::Request many{false, "trash", "", std::vector<std::string>(wire::maxListEntries, "")};
    const auto atLimit = wire::encodeRequest(n, many);
    ASSERT_TRUE(atLimit);
    EXPECT_EQ(wire::decodeRequest(*atLimit).status, Parse::complete);
    many.list.push_back("");
    EXPECT_EQ(wire::encodeRequest(n, many), std::nullopt);
    // The body: nonce, kind, three lengths, "trash", then the entry with its own length.
    wire::Request big{false, "trash", "", {std::string(wire::maxRequestBytes - (16 + 1 + 3 * 4 + 5) - 4, 'x')}};
    const auto justFits = wire::encodeRequest(n, big);
    ASSERT_TRUE(justFits);
    EXPECT_EQ(justFits->size(), wire::headerSize + wire::maxRequestBytes);
    EXPECT_EQ(wire::decodeRequest(*justFits).status, Parse::complete);
    big.list[0] += 'x';
    EXPECT_EQ(wire::encodeRequest(n, big), std::nullopt);
}

TEST(HelperWire, RequestsRoundTripAnyBytesAndEveryCutAsksForMore) {
    const std::vector<wire::Request> requests = {
        {true, "", "", {}},
        {false, "svc", "disable com.example.x", {}},
        {false, "trash", "", {"/Users/ann/line\nfeed", "/Users/ann/tab\there", "nul\0inside"s, "\xff\xfe not utf-8", ""}},
        {false, "not-an-op\0"s, "\n", {std::string(70000, 'x')}},
    };
    for (const auto& request : requests) {
        const auto frame = wire::encodeRequest(nonceOf(9), request);
        ASSERT_TRUE(frame);
        const auto decoded = wire::decodeRequest(*frame);
        ASSERT_EQ(decoded.status, Parse::complete) << request.op;
        EXPECT_EQ(decoded.value.request, request);
        EXPECT_EQ(decoded.value.nonce, nonceOf(9));
        EXPECT_EQ(decoded.frameSize, frame->size());
    }
    const std::string request = *wire::encodeRequest(nonceOf(3), {false, "restore", "", {"/Users/ann/.Trash/a\t/x/y/a", "b"}});
    const std::string reply = *wire::encodeReply("OK\t/x\n");
    const std::string challenge = wire::encodeChallenge(nonceOf(3));
    for (std::size_t cut = 0; cut < request.size(); ++cut) {
        const auto d = wire::decodeRequest(std::string_view(request).substr(0, cut));
        EXPECT_EQ(d.status, Parse::incomplete) << cut;
        // Once the header is there, the reader knows exactly how much to read.
        EXPECT_EQ(d.frameSize, cut >= wire::headerSize ? request.size() : 0u) << cut;
        if (cut < reply.size()) {
            EXPECT_EQ(wire::decodeReply(std::string_view(reply).substr(0, cut)).status, Parse::incomplete) << cut;
        }
        if (cut < challenge.size()) {
            EXPECT_EQ(wire::decodeChallenge(std::string_view(challenge).substr(0, cut)).status, Parse::incomplete) << cut;
        }
    }
}

TEST(HelperWire, BadFramesAreInvalidAsAWhole) {
    const auto n = nonceOf(5);
    const std::string good = handRequest(n, 1, "junk", {"a"});
    const std::string run = nonceBytes(n) + '\1';
    const std::vector<std::pair<const char*, std::string>> rows = {
        {"wrong magic", "XRQ1" + good.substr(4)},
        {"wrong magic seen in its first byte", "X"},
        {"a reply where a request belongs", *wire::encodeReply("x")},
        {"a challenge where a request belongs", wire::encodeChallenge(n)},
        {"a body over 16 MiB", "BRQ1" + u32(wire::maxRequestBytes + 1)},
        {"a body of 4 GiB", "BRQ1\xff\xff\xff\xff"s},
        {"a body too short for the nonce", withBody("short")},
        {"an unknown kind", handRequest(n, 2, "junk", {})},
        {"a version request with an op", handRequest(n, 0, "junk", {})},
        {"a version request with a list", handRequest(n, 0, "", {"x"})},
        {"an op length past the body", withBody(run + u32(1000) + "junk")},
        {"an arg length of 4 GiB", withBody(run + u32(4) + "junk" + u32(0xFFFFFFFF))},
        {"more entries than the limit", withBody(run + u32(0) + u32(0) + u32(wire::maxListEntries + 1))},
        {"more entries than bytes to hold them", withBody(run + u32(0) + u32(0) + u32(50000))},
        {"an entry cut short", withBody(run + u32(0) + u32(0) + u32(1) + u32(5) + "abc")},
        {"bytes left over", withBody(good.substr(8) + "x")},
    };
    for (const auto& [name, bytes] : rows) EXPECT_EQ(wire::decodeRequest(bytes).status, Parse::invalid) << name;
    EXPECT_EQ(wire::decodeReply("BRR1" + u32(wire::maxReplyBytes + 1)).status, Parse::invalid);
    EXPECT_EQ(wire::decodeReply("BRQ1" + u32(0)).status, Parse::invalid);
    EXPECT_EQ(wire::decodeChallenge("BRR1" + nonceBytes(n)).status, Parse::invalid);
}

// Random bytes and random damage to good frames: the decoder never crashes, never reads past what
// it was given, and calls nothing complete that doesn't re-encode to the same bytes.
TEST(HelperWire, GarbageNeverDecodesIntoSomethingElse) {
    std::mt19937 random(20261121);
    const std::string good = *wire::encodeRequest(nonceOf(7), {false, "emptytrash", "", {"/Users/ann/.Trash/a", "b"}});
    for (int round = 0; round < 4000; ++round) {
        std::string bytes = round % 2 == 0 ? good : round % 4 == 1 ? "BRQ1" : "";
        if (round % 2 == 0) {
            for (int i = 0, flips = 1 + static_cast<int>(random() % 4); i < flips; ++i) {
                bytes[random() % bytes.size()] = static_cast<char>(random() & 0xFF);
            }
        } else {
            for (std::size_t i = 0, length = random() % 64; i < length; ++i) bytes += static_cast<char>(random() & 0xFF);
        }
        const auto d = wire::decodeRequest(bytes);
        if (d.status == Parse::complete) {
            ASSERT_LE(d.frameSize, bytes.size());
            EXPECT_EQ(wire::encodeRequest(d.value.nonce, d.value.request), bytes.substr(0, d.frameSize));
        }
        const auto r = wire::decodeReply(bytes);
        if (r.status == Parse::complete) {
            EXPECT_EQ(wire::encodeReply(r.value), bytes.substr(0, r.frameSize));
        }
    }
}

}  // namespace
