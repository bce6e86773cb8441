#include "cli/Output.hpp"

#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iostream>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/text/Utf8.hpp"

namespace cli {

Json toJson(const quorv::Value& value) {
    struct Visitor {
        Json operator()(bool b) const { return b; }
        Json operator()(std::int64_t i) const { return i; }
        Json operator()(double d) const { return d; }
        Json operator()(const std::string& s) const { return s; }
        Json operator()(const quorv::Date& d) const { return dateJson(d.since1970); }
        Json operator()(const quorv::Value::Data& d) const { return Json{{"bytes", d.size()}}; }
        Json operator()(const quorv::Value::Array& a) const {
            Json out = Json::array();
            for (const auto& v : a) out.push_back(toJson(v));
            return out;
        }
        Json operator()(const quorv::Value::Dict& d) const {
            Json out = Json::object();
            for (const auto& [k, v] : d) out[k] = toJson(v);
            return out;
        }
    };
    return std::visit(Visitor{}, value.storage);
}

void printJson(const Json& j) {
    const std::string text = j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

std::string shellQuote(const std::string& s) {
    if (!s.empty() && s.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+=:,@") ==
                          std::string::npos) {
        return s;
    }
    std::string out = "'";
    for (char c : s) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

void error(const std::string& message) { std::fprintf(stderr, "brimstell: %s\n", message.c_str()); }

std::string timeText(double t) {
    if (t <= 0) return "never";
    return quorv::host().calendar.shortText(t);
}

std::string shownPath(const std::string& path) {
    bool plain = quorv::isValidUtf8(path) && path.rfind("$'", 0) != 0;
    for (unsigned char c : path) {
        if (c < 0x20 || c == 0x7F) plain = false;
    }
    if (plain) return path;
    const bool utf8 = quorv::isValidUtf8(path);
    std::string out = "$'";
    for (unsigned char c : path) {
        switch (c) {
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            case '\\': out += "\\\\"; break;
            case '\'': out += "\\'"; break;
            default:
                if (c < 0x20 || c == 0x7F || (c >= 0x80 && !utf8)) {
                    out += fmt::format("\\x{:02x}", c);
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "'";
}

void printCleanResult(std::int64_t freed, std::size_t moved, const std::vector<std::string>& skipped,
                      const std::string& message, bool json) {
    if (!json) {
        for (const auto& location : skipped) fmt::print("{}: not moved\n", shownPath(location));
        fmt::print("{}\n", message);
        return;
    }
    Json list = Json::array();
    for (const auto& location : skipped) {
        Json s = Json::object();
        putPath(s, "path", location);
        list.push_back(std::move(s));
    }
    printJson(Json{{"dryRun", false}, {"freedBytes", freed}, {"movedItems", moved}, {"skipped", std::move(list)},
                   {"message", message}});
}

void putPath(Json& object, const std::string& key, const std::string& path) {
    if (quorv::isValidUtf8(path)) {
        object[key] = path;
        return;
    }
    object[key] = quorv::validUtf8(path);
    object[key + "Base64"] = quorv::base64Encode(path);
}

std::string isoDate(double secondsSince1970) {
    if (!(secondsSince1970 > 0) || secondsSince1970 > 253402300799.0) return {};  // up to 9999-12-31
    const std::time_t t = static_cast<std::time_t>(std::floor(secondsSince1970));
    std::tm parts{};
    if (!::gmtime_r(&t, &parts)) return {};
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

Json dateJson(double secondsSince1970) {
    const std::string text = isoDate(secondsSince1970);
    return text.empty() ? Json(nullptr) : Json(text);
}

std::string stateWord(std::string_view text) {
    std::string out;
    bool wordStarts = false;
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (!std::isalnum(u)) {
            wordStarts = true;
            continue;
        }
        if (out.empty()) {
            out += static_cast<char>(std::tolower(u));
        } else {
            out += wordStarts ? static_cast<char>(std::toupper(u)) : c;
        }
        wordStarts = false;
    }
    return out;
}

std::string itemsText(std::size_t n) { return n == 1 ? "1 item" : std::to_string(n) + " items"; }

std::optional<bool> confirmed(const std::string& question, bool yes) {
    if (yes) return true;
    if (!::isatty(STDIN_FILENO)) return std::nullopt;
    fmt::print("{} [y/N] ", question);
    std::fflush(stdout);
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

bool goAhead(const std::string& question, bool yes, const std::string& doing, const std::string& declined, int& exitCode) {
    const auto go = confirmed(question, yes);
    if (!go) {
        error("not " + doing + " without --yes: there is no terminal to ask on");
        exitCode = 2;
        return false;
    }
    if (!*go) fmt::print("{}\n", declined);
    return *go;
}

}  // namespace cli
