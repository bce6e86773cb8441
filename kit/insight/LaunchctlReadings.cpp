// What launchctl prints, read into sets of labels.

#include <cctype>

#include "kit/insight/BackgroundItems.hpp"
#include "support/text/Lines.hpp"

namespace brimstell {

using quorv::eachLine;

namespace {

// A process id: a decimal whole number above zero. launchctl's "print" shows 0 for a service
// with no process, so 0 never counts as running.
bool isProcessID(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return s.find_first_not_of('0') != std::string_view::npos;
}

std::vector<std::string_view> words(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
        const auto start = i;
        while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i]))) ++i;
        if (i > start) out.push_back(line.substr(start, i - start));
    }
    return out;
}

}  // namespace

// Newer systems print `"label" => disabled`, older ones `"label" => true`. Only what follows the
// quoted label is looked at, so a label that itself holds "true" isn't taken for switched off,
// and a quoted value (the "login item associations" block) never counts.
std::set<std::string> BackgroundItems::disabledIn(std::string_view printDisabled) {
    std::set<std::string> out;
    eachLine(printDisabled, [&](std::string_view line) {
        const auto open = line.find('"');
        const auto close = open == std::string_view::npos ? open : line.find('"', open + 1);
        if (close == std::string_view::npos) return;
        const auto rest = line.substr(close + 1);
        if (rest.find('"') != std::string_view::npos) return;
        if (rest.find("disabled") != std::string_view::npos || rest.find("true") != std::string_view::npos)
            out.insert(std::string(line.substr(open + 1, close - open - 1)));
    });
    return out;
}

std::set<std::string> BackgroundItems::runningInList(std::string_view list) {
    std::set<std::string> out;
    eachLine(list, [&](std::string_view line) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        const auto first = line.find('\t');
        const auto second = first == std::string_view::npos ? first : line.find('\t', first + 1);
        if (second == std::string_view::npos || line.find('\t', second + 1) != std::string_view::npos) return;
        if (!isProcessID(line.substr(0, first))) return;
        const auto label = line.substr(second + 1);
        if (!label.empty()) out.insert(std::string(label));
    });
    return out;
}

std::set<std::string> BackgroundItems::runningInPrintSystem(std::string_view print) {
    std::set<std::string> out;
    bool inside = false;
    eachLine(print, [&](std::string_view line) {
        const auto w = words(line);
        if (!inside) {
            inside = line.ends_with("services = {");
            return;
        }
        if (w.size() == 1 && w[0] == "}") {
            inside = false;
            return;
        }
        if (w.size() == 3 && isProcessID(w[0])) out.insert(std::string(w[2]));
    });
    return out;
}

}  // namespace brimstell
