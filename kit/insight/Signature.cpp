#include "kit/insight/Signature.hpp"

#include <sys/stat.h>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

std::string Signature::developerFrom(const std::string& leafSummary) {
    const auto colon = leafSummary.find(": ");
    std::string name = colon == std::string::npos ? leafSummary : leafSummary.substr(colon + 2);
    if (name.ends_with(")")) {
        const auto bracket = name.rfind(" (");
        if (bracket != std::string::npos) name.erase(bracket);
    }
    return name;
}

Signature Signature::classify(SignatureProbe& probe) {
    const int status = probe.validity();
    if (status == SignatureProbe::unsignedStatus) return {Kind::unsignedCode, std::nullopt, false};
    if (probe.flags() & SignatureProbe::adhocFlag) return {Kind::adhoc, std::nullopt, false};
    if (status != 0) return {Kind::broken, std::nullopt, false};
    std::optional<std::string> developer;
    if (const auto leaf = probe.leafSummary()) developer = developerFrom(*leaf);
    if (probe.satisfies(appleRequirement)) return {Kind::apple, "Apple", true};
    if (probe.satisfies(appStoreRequirement)) return {Kind::appStore, developer, true};
    if (probe.satisfies(developerIDRequirement))
        return {Kind::developerID, developer, probe.satisfies(notarisedRequirement)};
    return {Kind::otherCert, developer, false};
}

std::string Signature::summary() const {
    switch (kind) {
        case Kind::apple: return "Apple";
        case Kind::appStore: return developer.value_or("App Store") + " · App Store";
        case Kind::developerID:
            return developer.value_or("Identified developer") + (notarised ? " · Notarised" : " · Not notarised");
        case Kind::otherCert:
            return "Signed by “" + developer.value_or("?") + "”, not a developer Apple has identified";
        case Kind::adhoc:
        case Kind::unsignedCode: return "Not signed";
        case Kind::broken: return "Signature doesn't check out";
    }
    return "";
}

const char* Signature::kindName(Kind kind) {
    switch (kind) {
        case Kind::apple: return "apple";
        case Kind::appStore: return "appStore";
        case Kind::developerID: return "developerID";
        case Kind::otherCert: return "otherCert";
        case Kind::adhoc: return "adhoc";
        case Kind::unsignedCode: return "unsigned";
        case Kind::broken: return "broken";
    }
    return "";
}

std::optional<Signature> Signature::of(const std::string& location) {
    struct stat st {};
    if (::stat(location.c_str(), &st) != 0) return std::nullopt;
    std::unique_ptr<SignatureProbe> probe;
    if (quorv::host().sandbox) {
        const auto text = quorv::files::read(location + ".signature", 64 * 1024);
        if (!text) return std::nullopt;
        probe = recordedSignature(*text);
    } else {
        probe = platformSignature(location);
    }
    if (!probe) return std::nullopt;
    return classify(*probe);
}

}  // namespace brimstell
