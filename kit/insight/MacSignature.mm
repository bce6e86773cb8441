// The Security framework's answers about a program's code signature; the decisions are made by
// Signature::classify.

#import <Foundation/Foundation.h>
#include <Security/Security.h>

#include "kit/insight/Signature.hpp"

namespace brimstell {

namespace {

constexpr SecCSFlags checkFlags = 6;  // no executable, no resources validation

class MacProbe : public SignatureProbe {
public:
    explicit MacProbe(SecStaticCodeRef code) : code_(code) {}
    ~MacProbe() override { CFRelease(code_); }

    int validity() override { return SecStaticCodeCheckValidity(code_, checkFlags, nullptr); }

    std::uint32_t flags() override {
        NSDictionary* info = signingInfo();
        return [info[(__bridge NSString*)kSecCodeInfoFlags] unsignedIntValue];
    }

    std::optional<std::string> leafSummary() override {
        NSArray* certificates = signingInfo()[(__bridge NSString*)kSecCodeInfoCertificates];
        if (certificates.count == 0) return std::nullopt;
        CFStringRef summary = SecCertificateCopySubjectSummary((__bridge SecCertificateRef)certificates[0]);
        if (!summary) return std::nullopt;
        std::string text = [(__bridge_transfer NSString*)summary UTF8String];
        return text;
    }

    bool satisfies(const std::string& requirement) override {
        SecRequirementRef req = nullptr;
        NSString* text = [NSString stringWithUTF8String:requirement.c_str()];
        if (SecRequirementCreateWithString((__bridge CFStringRef)text, kSecCSDefaultFlags, &req) != errSecSuccess)
            return false;
        const bool met = SecStaticCodeCheckValidity(code_, checkFlags, req) == errSecSuccess;
        CFRelease(req);
        return met;
    }

private:
    NSDictionary* signingInfo() {
        CFDictionaryRef info = nullptr;
        if (SecCodeCopySigningInformation(code_, kSecCSSigningInformation, &info) != errSecSuccess) return @{};
        return (__bridge_transfer NSDictionary*)info;
    }
    SecStaticCodeRef code_;
};

}  // namespace

std::unique_ptr<SignatureProbe> platformSignature(const std::string& location) {
    NSURL* url = [NSURL fileURLWithPath:[NSString stringWithUTF8String:location.c_str()]];
    SecStaticCodeRef code = nullptr;
    if (SecStaticCodeCreateWithPath((__bridge CFURLRef)url, kSecCSDefaultFlags, &code) != errSecSuccess) return nullptr;
    return std::make_unique<MacProbe>(code);
}

}  // namespace brimstell
