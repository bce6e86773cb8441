#include "kit/health/HealthTypes.hpp"

#include <algorithm>
#include <cctype>

namespace brimstell {

bool DiskHealth::failing() const {
    std::string lower = smart;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower.find("fail") != std::string::npos;
}

}  // namespace brimstell
