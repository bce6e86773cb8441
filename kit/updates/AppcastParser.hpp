#pragma once
// Reads an app's update feed (a Sparkle appcast) as it streams in, and picks the release to offer.
//
// Names are matched as written ("sparkle:version"): namespace processing is off, as the feeds in
// the wild all use that prefix. A feed that declares entities, isn't well-formed, or holds an
// element text over maxTextBytes is refused whole: nothing of it is used.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/updates/AppcastItem.hpp"

namespace brimstell {

class AppcastParser {
public:
    AppcastParser();
    ~AppcastParser();
    AppcastParser(const AppcastParser&) = delete;
    AppcastParser& operator=(const AppcastParser&) = delete;

    // Hands the parser the next piece of the feed; `last` for the final one. False once the
    // feed is known to be malformed or hostile (later pieces are then ignored).
    bool feed(std::string_view piece, bool last);
    // Whether the whole feed was read and found sound.
    bool finished() const { return finished_; }

    // A whole feed at once: its items, or nullopt when it is malformed or hostile.
    static std::optional<std::vector<AppcastItem>> parse(std::string_view body);
    // The release to offer on a system of version os: no channel, a minimum system not newer
    // than os, the greatest version; on a tie the earliest in the feed.
    static std::optional<AppcastItem> newest(const std::vector<AppcastItem>& items, std::string_view os);

    // No element's text (a release's description among them) may be longer than this.
    static constexpr std::size_t maxTextBytes = 1u << 20;

    std::vector<AppcastItem> items;   // the releases read so far
    std::optional<AppcastItem> cur;   // the release being read
    std::string text;                 // the characters of the current element

private:
    struct Expat;
    void start(std::string_view name, const char** attributes);
    void end(std::string_view name);
    void characters(std::string_view piece);
    void enclosure(const char** attributes);
    void refuse();

    std::unique_ptr<Expat> expat_;
    int depth_ = 0;           // elements open
    int itemDepth_ = -1;      // depth_ at which the current item opened
    bool haveEnclosure_ = false;
    bool urlFromEnclosure_ = false;
    bool refused_ = false;
    bool finished_ = false;
};

}  // namespace brimstell
