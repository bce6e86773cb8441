#include "kit/updates/AppcastParser.hpp"

#include <charconv>

#include "kit/updates/ExpatLibrary.hpp"
#include "kit/updates/WebAddress.hpp"
#include "support/versions/Versions.hpp"

namespace brimstell {
namespace {

std::string_view trimmed(std::string_view t) {
    constexpr std::string_view blank = " \t\n\r\v\f";
    const auto first = t.find_first_not_of(blank);
    if (first == std::string_view::npos) return {};
    return t.substr(first, t.find_last_not_of(blank) - first + 1);
}

std::optional<std::int64_t> decimal(std::string_view t) {
    std::int64_t n = 0;
    const auto* endp = t.data() + t.size();
    const auto [p, ec] = std::from_chars(t.data(), endp, n);
    if (t.empty() || ec != std::errc() || p != endp) return std::nullopt;
    return n;
}

}  // namespace

struct AppcastParser::Expat {
    const ExpatLibrary* lib = ExpatLibrary::get();
    XML_Parser parser = nullptr;
    ~Expat() {
        if (parser) lib->XML_ParserFree(parser);
    }
};

AppcastParser::AppcastParser() : expat_(std::make_unique<Expat>()) {
    const ExpatLibrary* x = expat_->lib;
    // XML_ParserCreate, not XML_ParserCreateNS: names stay as written, prefix and all.
    expat_->parser = x ? x->XML_ParserCreate("UTF-8") : nullptr;
    if (!expat_->parser) {
        refused_ = true;
        return;
    }
    x->XML_SetUserData(expat_->parser, this);
    x->XML_SetElementHandler(
        expat_->parser,
        [](void* self, const XML_Char* name, const XML_Char** atts) {
            static_cast<AppcastParser*>(self)->start(name, atts);
        },
        [](void* self, const XML_Char* name) { static_cast<AppcastParser*>(self)->end(name); });
    x->XML_SetCharacterDataHandler(expat_->parser, [](void* self, const XML_Char* s, int len) {
        static_cast<AppcastParser*>(self)->characters(std::string_view(s, static_cast<std::size_t>(len)));
    });
    // A feed has no business declaring entities: one that does is treated as an attack
    // (exponential expansion), whatever expat's own limits would let through.
    x->XML_SetEntityDeclHandler(expat_->parser, [](void* self, const XML_Char*, int, const XML_Char*, int,
                                                const XML_Char*, const XML_Char*, const XML_Char*,
                                                const XML_Char*) { static_cast<AppcastParser*>(self)->refuse(); });
}

AppcastParser::~AppcastParser() = default;

void AppcastParser::refuse() {
    if (refused_) return;
    refused_ = true;
    expat_->lib->XML_StopParser(expat_->parser, XML_FALSE);
}

bool AppcastParser::feed(std::string_view piece, bool last) {
    if (refused_ || finished_) return !refused_;
    // Expat takes an int length: a huge piece goes in slices.
    constexpr std::size_t slice = 1u << 20;
    do {
        const auto n = std::min(piece.size(), slice);
        const bool final = last && n == piece.size();
        if (expat_->lib->XML_Parse(expat_->parser, piece.data(), static_cast<int>(n), final ? 1 : 0) != XML_STATUS_OK) {
            refused_ = true;
            return false;
        }
        piece.remove_prefix(n);
    } while (!piece.empty());
    if (refused_) return false;
    finished_ = last;
    return true;
}

void AppcastParser::start(std::string_view name, const char** attributes) {
    ++depth_;
    text.clear();
    if (name == "item") {
        cur = AppcastItem{};
        itemDepth_ = depth_;
        haveEnclosure_ = false;
    } else if (name == "enclosure" && cur && depth_ == itemDepth_ + 1) {
        // Only the item's own enclosure, and only its first: the deltas' enclosures are patches.
        if (!haveEnclosure_) enclosure(attributes);
        haveEnclosure_ = true;
    }
}

void AppcastParser::enclosure(const char** a) {
    for (; a[0] && a[1]; a += 2) {
        const std::string_view key = a[0];
        const std::string_view value = a[1];
        if (key == "url") {
            if (WebAddress::isAddress(trimmed(value))) cur->url = trimmed(value);
        } else if (key == "sparkle:version") {
            if (cur->version.empty()) cur->version = value;
        } else if (key == "sparkle:shortVersionString") {
            if (cur->shortVersion.empty()) cur->shortVersion = value;
        } else if (key == "sparkle:edSignature") {
            cur->edSignature = std::string(value);
        } else if (key == "length") {
            cur->length = decimal(trimmed(value));
        }
    }
}

void AppcastParser::characters(std::string_view piece) {
    if (text.size() + piece.size() > maxTextBytes) return refuse();
    text.append(piece);
}

void AppcastParser::end(std::string_view name) {
    --depth_;
    if (!cur) return;
    const std::string value(trimmed(text));
    text.clear();
    if (name == "sparkle:version") {
        if (cur->version.empty()) cur->version = value;
    } else if (name == "sparkle:shortVersionString") {
        if (cur->shortVersion.empty()) cur->shortVersion = value;
    } else if (name == "sparkle:minimumSystemVersion") {
        cur->minimumSystem = value;
    } else if (name == "sparkle:channel") {
        cur->channel = value;
    } else if (name == "sparkle:releaseNotesLink") {
        const auto scheme = WebAddress::scheme(value);
        if (scheme == "https" || scheme == "http") cur->notes = value;
    } else if (name == "item" && depth_ + 1 == itemDepth_) {
        if (!cur->url.empty() && !cur->version.empty()) items.push_back(std::move(*cur));
        cur.reset();
        itemDepth_ = -1;
    }
}

std::optional<std::vector<AppcastItem>> AppcastParser::parse(std::string_view body) {
    AppcastParser p;
    if (!p.feed(body, true)) return std::nullopt;
    return std::move(p.items);
}

std::optional<AppcastItem> AppcastParser::newest(const std::vector<AppcastItem>& items, std::string_view os) {
    using quorv::Versions;
    const AppcastItem* best = nullptr;
    for (const auto& item : items) {
        if (item.channel) continue;
        if (item.minimumSystem && Versions::less(os, *item.minimumSystem)) continue;
        if (!best || Versions::less(best->version, item.version)) best = &item;
    }
    if (!best) return std::nullopt;
    return *best;
}

}  // namespace brimstell
