#include "kit/files/SizeReport.hpp"

#include <sys/stat.h>

#include "support/posix/LinkSafe.hpp"

namespace brimstell {

namespace {

// Whether one of the places is another, or lies inside another, by their paths as given.
bool anyNested(const std::vector<std::string>& paths) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
        for (std::size_t j = 0; j < paths.size(); ++j) {
            if (i != j && quorv::LinkSafe::isInside(paths[i], paths[j])) return true;
        }
    }
    return false;
}

}  // namespace

SizeReport measurePlaces(const std::vector<std::string>& paths) {
    SizeReport report;
    std::vector<std::string> present;
    for (const auto& path : paths) {
        SizedPlace place{path, false, {}};
        struct stat st{};
        place.exists = !path.empty() && ::lstat(path.c_str(), &st) == 0;
        if (place.exists) present.push_back(path);
        report.missing += place.exists ? 0 : 1;
        report.places.push_back(std::move(place));
    }
    const auto shared = SizeWalker::walkMany(present);
    for (const auto& part : shared) {
        report.total.bytes += part.bytes;
        report.total.files += part.files;
        report.total.folders += part.folders;
        report.total.unreadable += part.unreadable;
    }
    const bool nested = anyNested(present);
    std::size_t k = 0;
    for (auto& place : report.places) {
        if (!place.exists) continue;
        place.size = nested ? SizeWalker::walk(place.path) : shared[k];
        ++k;
    }
    return report;
}

}  // namespace brimstell
