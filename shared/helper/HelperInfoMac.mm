#include "shared/helper/HelperInfo.hpp"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#include <vector>

namespace brimstell::HelperInfo {

// The running code → its static code → its signing information → the team identifier.
std::optional<std::string> ownTeamID() {
    SecCodeRef code = nullptr;
    if (SecCodeCopySelf(kSecCSDefaultFlags, &code) != errSecSuccess || code == nullptr) return std::nullopt;
    SecStaticCodeRef staticCode = nullptr;
    OSStatus status = SecCodeCopyStaticCode(code, kSecCSDefaultFlags, &staticCode);
    CFRelease(code);
    if (status != errSecSuccess || staticCode == nullptr) return std::nullopt;
    CFDictionaryRef info = nullptr;
    status = SecCodeCopySigningInformation(staticCode, kSecCSSigningInformation, &info);
    CFRelease(staticCode);
    if (status != errSecSuccess || info == nullptr) return std::nullopt;

    std::optional<std::string> team;
    CFTypeRef value = CFDictionaryGetValue(info, kSecCodeInfoTeamIdentifier);
    if (value != nullptr && CFGetTypeID(value) == CFStringGetTypeID()) {
        CFStringRef text = static_cast<CFStringRef>(value);
        const CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
        std::vector<char> buffer(static_cast<size_t>(size), '\0');
        if (CFStringGetCString(text, buffer.data(), size, kCFStringEncodingUTF8)) team = std::string(buffer.data());
    }
    CFRelease(info);
    return team;
}

}  // namespace brimstell::HelperInfo
