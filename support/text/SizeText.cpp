#include "support/text/SizeText.hpp"

#include <cmath>
#include <string>

#include <fmt/format.h>

namespace quorv {

// Units step by 1000. Bytes and kB show no decimals, MB at most one, GB and up at most two, with
// trailing zeros dropped. A value that rounds up to 1000 of its unit moves to the next unit, so
// 999,999 bytes is "1 MB", never "1000 kB".
std::string formatSize(std::int64_t bytes) {
    if (bytes < 0) {
        if (bytes == INT64_MIN) return fmt::format("-{}", formatSize(INT64_MAX));
        return fmt::format("-{}", formatSize(-bytes));
    }
    if (bytes < 1000) return fmt::format("{} {}", bytes, bytes == 1 ? "byte" : "bytes");

    static const char* units[] = {"kB", "MB", "GB", "TB"};
    static const int decimals[] = {0, 1, 2, 2};
    double value = static_cast<double>(bytes);
    for (int u = 0; u < 4; ++u) {
        value /= 1000.0;
        const double scale = std::pow(10.0, decimals[u]);
        const double rounded = std::round(value * scale) / scale;
        if (rounded < 1000.0 || u == 3) {
            std::string text = fmt::format("{:.{}f}", rounded, decimals[u]);
            if (text.find('.') != std::string::npos) {
                while (text.back() == '0') text.pop_back();
                if (text.back() == '.') text.pop_back();
            }
            return text + " " + units[u];
        }
    }
    return {};
}

}  // namespace quorv
