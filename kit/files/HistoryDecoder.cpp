#include "kit/files/HistoryDecoder.hpp"

#include "support/text/JsonReader.hpp"

namespace brimstell {

using quorv::JsonReader;

bool HistoryDecoder::feed(std::string_view piece) {
    if (stage_ == Stage::wrong) return false;
    if (buffer_.empty()) {
        // Read from the piece itself; only what is left unread is kept.
        const std::size_t used = advance(piece, false);
        buffer_.assign(piece.substr(used));
    } else {
        buffer_.append(piece);
        buffer_.erase(0, advance(buffer_, false));
    }
    return stage_ != Stage::wrong;
}

std::optional<std::vector<HistoryEntry>> HistoryDecoder::finish() {
    if (stage_ != Stage::wrong) advance(buffer_, true);
    buffer_.clear();
    if (stage_ != Stage::closed) return std::nullopt;
    return std::move(entries_);
}

std::size_t HistoryDecoder::advance(std::string_view text, bool last) {
    std::size_t used = 0;
    if (stage_ == Stage::opening) {
        // The '[', and a byte order mark before it, as the whole-text reader takes them.
        if (text.size() < 3 && !last) return 0;
        JsonReader in(text);
        if (!in.beginArray()) {
            // Wrong unless only white space has come so far.
            if (last || in.position() < text.size()) stage_ = Stage::wrong;
            return 0;
        }
        entries_.reserve(expected_ / 400 + 1);
        used = in.position();
        stage_ = Stage::elements;
    }
    if (stage_ == Stage::elements) used += readElements(text.substr(used), last);
    if (stage_ == Stage::closed) {
        // Only white space may follow the array.
        if (text.find_first_not_of(" \t\r\n", used) != std::string_view::npos) stage_ = Stage::wrong;
        used = text.size();
    }
    return used;
}

std::size_t HistoryDecoder::readElements(std::string_view text, bool last) {
    JsonReader in = JsonReader::insideArray(text, first_);
    for (std::size_t done = 0;;) {
        const bool more = in.nextElement();
        if (!more && !in.failed()) {
            stage_ = Stage::closed;
            return in.position();
        }
        std::optional<HistoryEntry> e = more ? HistoryEntry::read(in) : std::nullopt;
        if (!e) {
            // Cut by the end of the piece, or wrong: only the end of the text tells.
            if (last) stage_ = Stage::wrong;
            return done;
        }
        entries_.push_back(std::move(*e));
        first_ = false;
        done = in.position();
    }
}

}  // namespace brimstell
