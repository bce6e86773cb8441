#include "kit/insight/Autostart.hpp"

#include <cctype>

namespace brimstell {

namespace {

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

template <class F>
void eachLine(std::string_view text, F&& f) {
    while (!text.empty()) {
        const auto feed = text.find('\n');
        f(trimmed(text.substr(0, feed)));
        text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
    }
}

std::vector<std::string> listOf(std::string_view text, char separator) {
    std::vector<std::string> out;
    while (!text.empty()) {
        const auto cut = text.find(separator);
        const auto piece = trimmed(text.substr(0, cut));
        if (!piece.empty()) out.emplace_back(piece);
        text.remove_prefix(cut == std::string_view::npos ? text.size() : cut + 1);
    }
    return out;
}

}  // namespace

bool Autostart::startsIn(const Entry& entry, std::string_view desktops) {
    const auto current = listOf(desktops, ':');
    if (current.empty()) return true;
    const auto named = [&current](const std::vector<std::string>& list) {
        for (const auto& d : current)
            for (const auto& l : list)
                if (lower(d) == lower(l)) return true;
        return false;
    };
    if (named(entry.notShowIn)) return false;
    return entry.onlyShowIn.empty() || named(entry.onlyShowIn);
}

std::optional<std::string> Autostart::firstWord(std::string_view command) {
    command = trimmed(command);
    std::string word;
    char quote = 0;
    for (std::size_t i = 0; i < command.size(); ++i) {
        const char c = command[i];
        if (quote) {
            if (c == quote) quote = 0;
            else if (c == '\\' && i + 1 < command.size()) word += command[++i];
            else word += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            break;
        } else {
            word += c;
        }
    }
    if (word.empty()) return std::nullopt;
    return word;
}

std::optional<Autostart::Entry> Autostart::desktopEntry(std::string_view text) {
    Entry entry;
    bool inGroup = false, seen = false, application = true;
    eachLine(text, [&](std::string_view line) {
        if (line.empty() || line.front() == '#') return;
        if (line.front() == '[') {
            inGroup = line == "[Desktop Entry]";
            seen = seen || inGroup;
            return;
        }
        const auto eq = line.find('=');
        if (!inGroup || eq == std::string_view::npos) return;
        const auto key = trimmed(line.substr(0, eq));
        const auto value = lower(trimmed(line.substr(eq + 1)));
        const auto raw = std::string(trimmed(line.substr(eq + 1)));
        if (key == "Name" && entry.name.empty()) entry.name = raw;
        else if (key == "Exec" && !entry.program) entry.program = firstWord(raw);
        else if (key == "Type") application = value == "application";
        else if (key == "OnlyShowIn") entry.onlyShowIn = listOf(raw, ';');
        else if (key == "NotShowIn") entry.notShowIn = listOf(raw, ';');
        else if (key == "Hidden" && value == "true") entry.enabled = false;
        else if (lower(key).ends_with("autostart-enabled") && value == "false") entry.enabled = false;
    });
    if (!seen || !application) return std::nullopt;
    return entry;
}

namespace {
bool isSwitchKey(std::string_view line) {
    const auto eq = line.find('=');
    if (eq == std::string_view::npos) return false;
    const auto key = lower(trimmed(line.substr(0, eq)));
    return key == "hidden" || key.ends_with("-autostart-enabled");
}
}  // namespace

std::optional<std::string> Autostart::switched(std::string_view text, bool on) {
    std::string out;
    bool inGroup = false, seen = false;
    while (!text.empty()) {
        const auto feed = text.find('\n');
        const auto raw = text.substr(0, feed);
        text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
        const auto line = trimmed(raw);
        if (!line.empty() && line.front() == '[') inGroup = line == "[Desktop Entry]";
        const bool header = !line.empty() && line.front() == '[';
        if (inGroup && !header && !line.starts_with("#") && isSwitchKey(line)) continue;
        out.append(raw).push_back('\n');
        if (inGroup && header && !seen) {
            seen = true;
            if (!on) out += "Hidden=true\n";
        }
    }
    if (!seen) return std::nullopt;
    return out;
}

std::vector<std::vector<std::string>> Autostart::unitSwitch(const std::string& unit, BackgroundItem::Scope scope, bool on) {
    if (scope == BackgroundItem::Scope::allUsers) {
        if (!on) return {{"--user", "mask", "--now", unit}};
        return {{"--user", "unmask", unit}, {"--user", "enable", "--now", unit}};
    }
    return {{"--user", on ? "enable" : "disable", "--now", unit}};
}

std::optional<std::string> Autostart::unitProgram(std::string_view text) {
    std::optional<std::string> program;
    bool inService = false;
    eachLine(text, [&](std::string_view line) {
        if (program || line.empty() || line.front() == '#' || line.front() == ';') return;
        if (line.front() == '[') {
            inService = line == "[Service]";
            return;
        }
        if (!inService || !line.starts_with("ExecStart")) return;
        const auto eq = line.find('=');
        if (eq == std::string_view::npos || trimmed(line.substr(0, eq)) != "ExecStart") return;
        auto command = trimmed(line.substr(eq + 1));
        while (!command.empty() && std::string_view("-@+!:").find(command.front()) != std::string_view::npos)
            command.remove_prefix(1);
        program = firstWord(command);
    });
    return program;
}

}  // namespace brimstell
