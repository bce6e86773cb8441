#pragma once
// Reads the history file's text as it comes, piece by piece, so that a history of thousands of
// entries is never held as text and as entries at once: what is kept is the entries read so far
// and the text of the one entry that a piece cut in two.
//
// The result is exactly decodeHistory's over the whole text. An entry that doesn't read is read
// again once more text has come, and counts as wrong only when the text has ended.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/files/HistoryEntry.hpp"

namespace brimstell {

class HistoryDecoder {
public:
    // The text's length, when known, so the list is made room for once.
    void expect(std::size_t bytes) { expected_ = bytes; }
    // Takes the next piece of the text; false once the text can no longer be a history.
    bool feed(std::string_view piece);
    // After the last piece: the entries, or nullopt when the text as a whole isn't a history.
    std::optional<std::vector<HistoryEntry>> finish();
    // How much more to read before the next try: at least what the unread text already holds, so
    // a long entry cut again and again is still read in time proportional to its length.
    std::size_t wanted(std::size_t piece) const { return std::max(piece, buffer_.size()); }

private:
    enum class Stage { opening, elements, closed, wrong };
    // Reads what it can of text (the unread text so far); how many bytes it used.
    std::size_t advance(std::string_view text, bool last);
    std::size_t readElements(std::string_view text, bool last);

    Stage stage_ = Stage::opening;
    std::string buffer_;       // text not yet read into entries
    bool first_ = true;        // no element read yet
    std::size_t expected_ = 0;
    std::vector<HistoryEntry> entries_;
};

}  // namespace brimstell
