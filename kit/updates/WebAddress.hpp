#pragma once
// Addresses as feeds hand them over: a text is an address when it has a scheme ("name:") and
// holds nothing an address can't hold as it stands (blanks, controls, non-ASCII bytes, "<>\"{}|\\^`").

#include <optional>
#include <string>
#include <string_view>

namespace brimstell {

struct WebAddress {
    // Whether the text is an address.
    static bool isAddress(std::string_view text);
    // Its scheme in lower case; empty when the text is no address.
    static std::string scheme(std::string_view text);
    // Percent-encodes a query value (everything but letters, digits and "-._~").
    static std::string queryValue(std::string_view text);
};

}  // namespace brimstell
