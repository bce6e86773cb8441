#include "support/versions/Versions.hpp"

#include <algorithm>
#include <utility>

#include "support/text/Unicode.hpp"

namespace quorv {

namespace {

bool isSeparator(std::string_view text, std::size_t i) {
    const char c = text[i];
    return c == '.' || c == '-' || c == '_' || c == ' ';
}

// The value of a numeric run: its first numberLength characters as a decimal number, or 0 when
// any of them is not an ASCII digit (a numeric character of another script, a fraction, …).
std::int64_t runValue(std::string_view run) {
    std::int64_t value = 0;
    std::size_t taken = 0;
    for (std::size_t i = 0; i < run.size() && taken < Versions::numberLength; ++taken) {
        const auto ch = utf8CharAt(run, i);
        if (ch.codePoint < '0' || ch.codePoint > '9') return 0;
        value = value * 10 + static_cast<std::int64_t>(ch.codePoint - '0');
        i += ch.length;
    }
    return value;
}

struct Splitter {
    std::vector<Versions::Part> parts;
    std::string run;
    bool numeric = false;

    void end() {
        if (run.empty()) return;
        if (numeric) {
            parts.push_back(Versions::Part::number(runValue(run)));
        } else {
            parts.push_back(Versions::Part::text(lowerCased(run)));
        }
        run.clear();
    }
};

// -1, 0 or 1 for a part that only one side has, seen from that side: a text makes it older, a
// non-zero number newer, a zero nothing.
int aloneOrder(const Versions::Part& p) {
    if (!p.isNumber) return -1;
    return p.n != 0 ? 1 : 0;
}

int partOrder(const Versions::Part& a, const Versions::Part& b) {
    if (a.isNumber && b.isNumber) return a.n < b.n ? -1 : a.n > b.n ? 1 : 0;
    if (!a.isNumber && !b.isNumber) {
        // UTF-8 compared byte by byte orders as the code points do.
        const int c = a.s.compare(b.s);
        return c < 0 ? -1 : c > 0 ? 1 : 0;
    }
    return a.isNumber ? 1 : -1;
}

}  // namespace

std::vector<Versions::Part> Versions::parts(std::string_view text) {
    Splitter s;
    for (std::size_t i = 0; i < text.size();) {
        if (isSeparator(text, i)) {
            s.end();
            ++i;
            continue;
        }
        const auto ch = utf8CharAt(text, i);
        const bool numeric = ch.valid && isNumeric(ch.codePoint);
        if (!s.run.empty() && numeric != s.numeric) s.end();
        s.numeric = numeric;
        s.run.append(text.substr(i, ch.length));
        i += ch.length;
    }
    s.end();
    return std::move(s.parts);
}

Versions::Order Versions::compare(std::string_view a, std::string_view b) {
    const auto pa = parts(a);
    const auto pb = parts(b);
    const std::size_t n = std::max(pa.size(), pb.size());
    for (std::size_t i = 0; i < n; ++i) {
        int order = 0;
        if (i < pa.size() && i < pb.size()) {
            order = partOrder(pa[i], pb[i]);
        } else if (i < pa.size()) {
            order = aloneOrder(pa[i]);
        } else {
            order = -aloneOrder(pb[i]);
        }
        if (order != 0) return order < 0 ? Order::ascending : Order::descending;
    }
    return Order::same;
}

std::string osNumber(std::string_view text) {
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t space = text.find(' ', start);
        const std::size_t end = space == std::string_view::npos ? text.size() : space;
        if (end > start) {
            const auto first = utf8CharAt(text, start);
            if (first.valid && isNumeric(first.codePoint)) return std::string(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return std::string(text);
}

}  // namespace quorv
