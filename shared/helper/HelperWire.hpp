#pragma once
// The bytes that travel between the root helper and its clients over a Unix-domain socket.
//
// One connection carries one request. Three frames, in this order:
//
//   1. challenge, helper → client, as soon as the helper has accepted the caller:
//        "BRH1"  nonce (16 random bytes)                                    20 bytes in all
//   2. request, client → helper:
//        "BRQ1"  u32 bodyLength  body
//        body =  nonce (the 16 bytes of the challenge, echoed)
//                u8 kind          0 = "version", 1 = run
//                u32 opLength     op bytes
//                u32 argLength    arg bytes
//                u32 count        count × (u32 length, bytes)      the list
//   3. reply, helper → client:
//        "BRR1"  u32 length  bytes                                          the reply string
//
// Every integer is an unsigned 32-bit little-endian number. Strings are bytes with their length in
// front: any byte may appear, line feeds and NULs included (the helper, not the wire, decides what
// it accepts). A "version" request has an empty op, an empty arg and no list.
//
// Hard limits, checked on the header before anything is allocated: a request body of at most
// maxRequestBytes, a list of at most maxListEntries, a reply of at most maxReplyBytes. A frame
// that breaks a limit, has a wrong magic, a length that runs past its body or bytes left over is
// invalid as a whole; nothing in it is used.
//
// The nonce ties the request to the accepted connection: the helper checks who is writing only
// after it has sent the challenge, so bytes written into the socket before that (by a process
// that then turned into something else) can't form a valid request.
//
// Encoders and decoders are pure functions over byte strings.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell::HelperWire {

inline constexpr std::string_view challengeMagic = "BRH1";
inline constexpr std::string_view requestMagic = "BRQ1";
inline constexpr std::string_view replyMagic = "BRR1";

inline constexpr std::size_t nonceSize = 16;
inline constexpr std::size_t challengeSize = 4 + nonceSize;
// Magic and u32 length of a request or a reply.
inline constexpr std::size_t headerSize = 8;

inline constexpr std::uint32_t maxRequestBytes = 16u << 20;   // 16 MiB
inline constexpr std::uint32_t maxListEntries = 100'000;
inline constexpr std::uint32_t maxReplyBytes = 128u << 20;    // 128 MiB

using Nonce = std::array<std::uint8_t, nonceSize>;

struct Request {
    bool version = false;  // the "version" message; op, arg and list are then empty
    std::string op;
    std::string arg;
    std::vector<std::string> list;

    bool operator==(const Request&) const = default;
};

enum class Parse {
    complete,    // the frame is whole and valid
    incomplete,  // nothing wrong so far; more bytes are needed
    invalid,     // the bytes can never form a valid frame: close the connection
};

template <class T>
struct Decoded {
    Parse status = Parse::incomplete;
    T value{};
    // The frame's whole size once its header has been read (0 before): a reader reads up to this
    // many bytes and no more.
    std::size_t frameSize = 0;
};

std::string encodeChallenge(const Nonce& nonce);
Decoded<Nonce> decodeChallenge(std::string_view bytes);

// nullopt when the request breaks a limit (the client never sends such a frame).
std::optional<std::string> encodeRequest(const Nonce& nonce, const Request& request);
struct NoncedRequest {
    Nonce nonce{};
    Request request;
};
Decoded<NoncedRequest> decodeRequest(std::string_view bytes);

// nullopt when the reply is longer than maxReplyBytes.
std::optional<std::string> encodeReply(std::string_view reply);
Decoded<std::string> decodeReply(std::string_view bytes);

}  // namespace brimstell::HelperWire
