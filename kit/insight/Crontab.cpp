#include "kit/insight/Crontab.hpp"

#include <cctype>

#include "kit/insight/Autostart.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

namespace {

bool space(char c) { return c == ' ' || c == '\t'; }

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (space(s.front()) || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (space(s.back()) || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// cron takes "NAME = value" (the name may be quoted) for a variable; a schedule's first field is
// a minute ("*", "5", "*/10") or an "@" word, so a line that starts with a letter, "_" or a quote
// and holds "=" is a setting.
bool isSetting(std::string_view line) {
    const char c = line.front();
    const bool nameLike = std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '"' || c == '\'';
    return nameLike && line.find('=') != std::string_view::npos;
}

// Cuts the first whitespace-separated word off line.
std::string_view nextWord(std::string_view& line) {
    line = trimmed(line);
    std::size_t end = 0;
    while (end < line.size() && !space(line[end])) ++end;
    const auto word = line.substr(0, end);
    line.remove_prefix(end);
    return word;
}

std::optional<Crontab::Line> lineOf(std::string_view line, int number) {
    if (line.empty() || line.front() == '#' || isSetting(line)) return std::nullopt;
    Crontab::Line out;
    out.number = number;
    out.text = std::string(line);
    auto rest = line;
    const int fields = line.front() == '@' ? 1 : 5;
    for (int i = 0; i < fields; ++i) {
        const auto word = nextWord(rest);
        if (word.empty()) return std::nullopt;
        out.schedule += (i ? " " : "") + std::string(word);
    }
    out.command = std::string(trimmed(rest));
    if (out.command.empty()) return std::nullopt;
    return out;
}

}  // namespace

std::vector<Crontab::Line> Crontab::parse(std::string_view text) {
    std::vector<Line> out;
    int number = 0;
    while (!text.empty()) {
        const auto feed = text.find('\n');
        ++number;
        if (auto line = lineOf(trimmed(text.substr(0, feed)), number)) out.push_back(std::move(*line));
        text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
    }
    return out;
}

std::optional<std::string> Crontab::listed(const quorv::ShellResult& answer) {
    if (answer.succeeded()) return answer.output;
    if (answer.started && !answer.timedOut && answer.errorOutput.starts_with("no crontab for ")) return std::string();
    return std::nullopt;
}

BackgroundItem Crontab::item(const Line& line) {
    BackgroundItem item;
    item.label = "crontab:" + std::to_string(line.number);
    item.source = BackgroundItem::Source::cron;
    item.scope = BackgroundItem::Scope::user;
    item.listedName = line.text;
    // cron hands the command to the shell, where "%" starts the standard input.
    item.program = Autostart::firstWord(line.command.substr(0, line.command.find('%')));
    return item;
}

std::vector<BackgroundItem> Crontab::items() {
    const auto& h = quorv::host();
    quorv::ShellOptions options;
    options.captureErrors = true;
    options.timeLimit = 10;
    const auto text = listed(quorv::Shell::run(h.path("/usr/bin/crontab"), {"-l"}, options));
    std::vector<BackgroundItem> out;
    if (!text) return out;
    // Where Debian keeps the crontab; the user may not read that folder, so it only names the place.
    const auto where = h.path("/var/spool/cron/crontabs/" + h.userName);
    for (const auto& line : parse(*text)) {
        auto item = Crontab::item(line);
        item.plist = where;
        out.push_back(std::move(item));
    }
    return out;
}

}  // namespace brimstell
