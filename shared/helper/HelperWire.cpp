#include "shared/helper/HelperWire.hpp"

#include <cstring>

namespace brimstell::HelperWire {
namespace {

void putU32(std::string& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xFFu);
}

std::uint32_t getU32(std::string_view bytes) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<std::uint8_t>(bytes[static_cast<std::size_t>(i)]);
    return v;
}

void putString(std::string& out, std::string_view s) {
    putU32(out, static_cast<std::uint32_t>(s.size()));
    out.append(s);
}

// Reads a body front to back; every length is checked against what is left before it is used.
struct Cursor {
    std::string_view rest;

    bool u8(std::uint8_t& v) {
        if (rest.empty()) return false;
        v = static_cast<std::uint8_t>(rest[0]);
        rest.remove_prefix(1);
        return true;
    }
    bool u32(std::uint32_t& v) {
        if (rest.size() < 4) return false;
        v = getU32(rest);
        rest.remove_prefix(4);
        return true;
    }
    bool string(std::string& s) {
        std::uint32_t n = 0;
        if (!u32(n) || n > rest.size()) return false;
        s.assign(rest.substr(0, n));
        rest.remove_prefix(n);
        return true;
    }
};

// True while the bytes there are could still begin with magic.
bool magicSoFar(std::string_view bytes, std::string_view magic) {
    const std::size_t n = bytes.size() < magic.size() ? bytes.size() : magic.size();
    return bytes.substr(0, n) == magic.substr(0, n);
}

// The common start of a request or a reply: magic, then a length of at most limit. On complete,
// body is the frame's body.
template <class T>
bool header(std::string_view bytes, std::string_view magic, std::uint32_t limit, Decoded<T>& out, std::string_view& body) {
    if (!magicSoFar(bytes, magic)) {
        out.status = Parse::invalid;
        return false;
    }
    if (bytes.size() < headerSize) return false;
    const std::uint32_t length = getU32(bytes.substr(4));
    if (length > limit) {
        out.status = Parse::invalid;
        return false;
    }
    out.frameSize = headerSize + length;
    if (bytes.size() < out.frameSize) return false;
    body = bytes.substr(headerSize, length);
    return true;
}

}  // namespace

std::string encodeChallenge(const Nonce& nonce) {
    std::string out(challengeMagic);
    out.append(reinterpret_cast<const char*>(nonce.data()), nonce.size());
    return out;
}

Decoded<Nonce> decodeChallenge(std::string_view bytes) {
    Decoded<Nonce> out;
    if (!magicSoFar(bytes, challengeMagic)) {
        out.status = Parse::invalid;
        return out;
    }
    out.frameSize = challengeSize;
    if (bytes.size() < challengeSize) return out;
    std::memcpy(out.value.data(), bytes.data() + challengeMagic.size(), nonceSize);
    out.status = Parse::complete;
    return out;
}

std::optional<std::string> encodeRequest(const Nonce& nonce, const Request& request) {
    if (request.list.size() > maxListEntries) return std::nullopt;
    if (request.version && (!request.op.empty() || !request.arg.empty() || !request.list.empty())) return std::nullopt;
    // Counted before anything is built, in a type that can't overflow for any list we accept.
    std::uint64_t length = nonceSize + 1 + 4 + request.op.size() + 4 + request.arg.size() + 4;
    for (const auto& entry : request.list) length += 4 + std::uint64_t{entry.size()};
    if (length > maxRequestBytes) return std::nullopt;

    std::string out(requestMagic);
    out.reserve(headerSize + static_cast<std::size_t>(length));
    putU32(out, static_cast<std::uint32_t>(length));
    out.append(reinterpret_cast<const char*>(nonce.data()), nonce.size());
    out += static_cast<char>(request.version ? 0 : 1);
    putString(out, request.op);
    putString(out, request.arg);
    putU32(out, static_cast<std::uint32_t>(request.list.size()));
    for (const auto& entry : request.list) putString(out, entry);
    return out;
}

Decoded<NoncedRequest> decodeRequest(std::string_view bytes) {
    Decoded<NoncedRequest> out;
    std::string_view body;
    if (!header(bytes, requestMagic, maxRequestBytes, out, body)) return out;
    out.status = Parse::invalid;

    Cursor c{body};
    if (c.rest.size() < nonceSize) return out;
    std::memcpy(out.value.nonce.data(), c.rest.data(), nonceSize);
    c.rest.remove_prefix(nonceSize);
    std::uint8_t kind = 0;
    std::uint32_t count = 0;
    Request& r = out.value.request;
    if (!c.u8(kind) || kind > 1 || !c.string(r.op) || !c.string(r.arg) || !c.u32(count)) return out;
    // Each entry takes at least its 4-byte length, so a count beyond what is left is a lie; this
    // also bounds the reservation below by the bytes actually received.
    if (count > maxListEntries || count > c.rest.size() / 4) return out;
    r.list.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        std::string entry;
        if (!c.string(entry)) return out;
        r.list.push_back(std::move(entry));
    }
    if (!c.rest.empty()) return out;
    r.version = kind == 0;
    if (r.version && (!r.op.empty() || !r.arg.empty() || !r.list.empty())) return out;
    out.status = Parse::complete;
    return out;
}

std::optional<std::string> encodeReply(std::string_view reply) {
    if (reply.size() > maxReplyBytes) return std::nullopt;
    std::string out(replyMagic);
    out.reserve(headerSize + reply.size());
    putString(out, reply);
    return out;
}

Decoded<std::string> decodeReply(std::string_view bytes) {
    Decoded<std::string> out;
    std::string_view body;
    if (!header(bytes, replyMagic, maxReplyBytes, out, body)) return out;
    out.value.assign(body);
    out.status = Parse::complete;
    return out;
}

}  // namespace brimstell::HelperWire
