#pragma once
// Texts that name the Mac, in the words of the platform the code runs on. On macOS and in a
// sandbox Mac they are exactly the Mac's; on Linux they say what is meant there.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/host/Host.hpp"

namespace quorv {

enum class Phrase {
    startupDisk,  // "Macintosh HD": on Linux the volume's label, else its mount point
    yourMac,      // "your Mac": "your computer"
    finder,       // "Finder": "the file manager"
    yourLibrary,  // "your Library": "~/.var/app", where Flatpak apps keep their data
    wornRule,     // "Apple considers under 80% worn.": "Under 80% counts as worn."
};

struct PhraseRow {
    Phrase phrase;
    std::string_view mac;
    std::string_view linux;  // empty: worked out from the system (the volume's name)
};

// Every phrase, on both platforms.
const std::vector<PhraseRow>& phraseTable();

// The phrase on h's platform. volume names the volume of a startupDisk phrase on Linux.
std::string phrase(Phrase p, const Host& h, std::string_view volume = {});

// The name a person knows the volume holding path by, from the mount table (mountinfo's text)
// and the volume labels (device path → label): the label when it has one, else its mount point.
std::string volumeName(std::string_view mountinfo, const std::map<std::string, std::string>& labels,
                       std::string_view path);

// The same, read from the system through h: /proc/self/mountinfo and /dev/disk/by-label.
std::string volumeNameOf(const Host& h, const std::string& path);

}  // namespace quorv
