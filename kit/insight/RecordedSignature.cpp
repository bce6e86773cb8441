// A sandbox Mac's recorded signatures: what the code-signing service would answer for a program,
// written down beside it.

#include <set>
#include <sstream>

#include "kit/insight/Signature.hpp"

namespace brimstell {

namespace {

class RecordedProbe : public SignatureProbe {
public:
    explicit RecordedProbe(const std::string& text) {
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line)) {
            const auto colon = line.find(": ");
            if (colon == std::string::npos) continue;
            const std::string key = line.substr(0, colon), value = line.substr(colon + 2);
            if (key == "status") status_ = number(value);
            if (key == "flags") flags_ = static_cast<std::uint32_t>(number(value));
            if (key == "leaf") leaf_ = value;
            if (key == "meets") meets_.insert(value);
        }
    }
    int validity() override { return status_; }
    std::uint32_t flags() override { return flags_; }
    std::optional<std::string> leafSummary() override { return leaf_; }
    bool satisfies(const std::string& requirement) override { return meets_.count(requirement) > 0; }

private:
    // A malformed number reads as a failed check, never as a valid signature.
    static long long number(const std::string& s) {
        try {
            return std::stoll(s, nullptr, 0);
        } catch (...) {
            return -1;
        }
    }
    int status_ = 0;
    std::uint32_t flags_ = 0;
    std::optional<std::string> leaf_;
    std::set<std::string> meets_;
};

}  // namespace

std::unique_ptr<SignatureProbe> recordedSignature(const std::string& text) {
    return std::make_unique<RecordedProbe>(text);
}

#ifndef __APPLE__
// Linux programs carry no code signature; their provenance is told another way.
std::unique_ptr<SignatureProbe> platformSignature(const std::string&) { return nullptr; }
#endif

}  // namespace brimstell
