#pragma once
// The names an item gets in a Trash when its own is taken, cut to fit the file system's limit.

#include <cstddef>
#include <string>

namespace brimstell {

struct TrashNames {
    // The freedesktop.org Trash, in gio's style: the number goes before the extension, which
    // starts at the first "." after the first byte: "rep.tar.gz", "rep.2.tar.gz", "rep.3.tar.gz";
    // "notes", "notes.2"; ".bashrc", ".bashrc.2". n = 1 is the name itself.
    static std::string freedesktop(const std::string& name, int n, std::size_t maxBytes);

    // A Mac's Trash, in Finder's style: the name itself, then the time of the move before the
    // extension (the part after the last "." that isn't the first byte), then that with " 2",
    // " 3"…: "report.pdf", "report 14.05.31.pdf", "report 14.05.31 2.pdf". n = 1 is the name
    // itself; time is "HH.MM.SS".
    static std::string finder(const std::string& name, const std::string& time, int n, std::size_t maxBytes);

    // stem + tail + extension in at most maxBytes: the stem is cut first (never inside a UTF-8
    // sequence), then, when even that can't make room, the extension is treated as stem.
    static std::string fit(const std::string& stem, const std::string& tail, const std::string& extension,
                           std::size_t maxBytes);
};

}  // namespace brimstell
