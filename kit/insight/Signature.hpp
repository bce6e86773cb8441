#pragma once
// Who signed a program file and how far it can be trusted. The platform's code-signing service
// answers a few plain questions (SignatureProbe); the order of the checks, the requirements asked
// and the classification are decided here, the same on every platform.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace brimstell {

// The code-signing service's answers about one program file.
class SignatureProbe {
public:
    virtual ~SignatureProbe() = default;
    // The status of the basic validity check (executable and resources not validated): 0 when
    // valid, unsignedStatus for unsigned code, another failure code otherwise.
    virtual int validity() = 0;
    // The signing information's flags.
    virtual std::uint32_t flags() = 0;
    // The subject summary of the leaf certificate, when there is one.
    virtual std::optional<std::string> leafSummary() = 0;
    // Whether the code meets the requirement written in the requirement language.
    virtual bool satisfies(const std::string& requirement) = 0;

    static constexpr int unsignedStatus = -67062;   // errSecCSUnsigned
    static constexpr std::uint32_t adhocFlag = 0x2; // kSecCodeSignatureAdhoc
};

struct Signature {
    enum class Kind { apple, appStore, developerID, otherCert, adhoc, unsignedCode, broken };

    Kind kind = Kind::unsignedCode;
    std::optional<std::string> developer;
    bool notarised = false;

    bool operator==(const Signature&) const = default;

    // The requirements tried, in this order.
    static constexpr const char* appleRequirement = "anchor apple";
    static constexpr const char* appStoreRequirement =
        "anchor apple generic and certificate leaf[field.1.2.840.113635.100.6.1.9] exists";
    static constexpr const char* developerIDRequirement =
        "anchor apple generic and certificate 1[field.1.2.840.113635.100.6.2.6] exists and "
        "certificate leaf[field.1.2.840.113635.100.6.1.13] exists";
    static constexpr const char* notarisedRequirement = "notarized";

    // The signature of the program at a location; nothing when no file is there or the platform
    // can't read signatures. In a sandbox Mac, the one recorded beside the program.
    static std::optional<Signature> of(const std::string& location);
    // The classification from the service's answers.
    static Signature classify(SignatureProbe& probe);
    // The developer named by a leaf certificate's summary: "Developer ID Application: Jane Roe
    // (AB12CD34EF)" → "Jane Roe".
    static std::string developerFrom(const std::string& leafSummary);

    // The text shown under an item.
    std::string summary() const;
    // apple, appStore and developerID are trusted; the others make an item worth a look.
    bool trusted() const { return kind == Kind::apple || kind == Kind::appStore || kind == Kind::developerID; }
    // "apple", "appStore", "developerID", "otherCert", "adhoc", "unsigned", "broken".
    static const char* kindName(Kind kind);
};

// A probe over a recorded signature: a small text file of "key: value" lines, written beside a
// sandbox Mac's programs as "<program>.signature" ("status", "flags", "leaf", and one "meets" line
// per requirement that the code meets).
std::unique_ptr<SignatureProbe> recordedSignature(const std::string& text);

// The macOS Security framework probe for a location; null where no static code object can be
// made (or off macOS).
std::unique_ptr<SignatureProbe> platformSignature(const std::string& location);

}  // namespace brimstell
