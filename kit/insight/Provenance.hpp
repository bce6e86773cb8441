#pragma once
// Where a Linux program came from: the package that installed it. Linux programs carry no code
// signature that says who made them; what the package database knows stands in for one, and a
// program that no package owns is what deserves a look.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell {

struct Provenance {
    std::optional<std::string> package;  // "coreutils", or "a, b" for a file of two packages;
                                         // absent: no package owns the program

    bool operator==(const Provenance&) const = default;

    // "From the package coreutils", "From the packages a, b", "Not from any package".
    std::string summary() const;

    // dpkg-query -S's answer (standard output) read into path → owning packages. Diversion
    // lines say nothing about ownership and are passed over; a path dpkg-query found nothing for
    // is absent (that message goes to standard error).
    static std::map<std::string, std::string> fromDpkg(std::string_view output);
    // rpm -qf --queryformat '%{NAME}\n' over one path: the packages, joined by ", "; nothing when
    // rpm answers that the file "is not owned by any package" (or only with errors).
    static std::optional<std::string> fromRpm(std::string_view output);
    // The names a package database may know a program by: the path, the path with its links
    // resolved, and each under its other name on a merged /usr (/bin and /usr/bin, /sbin, /lib…),
    // in that order, without repeats.
    static std::vector<std::string> aliases(const std::string& path, const std::string& resolved);
    // A bare command (an autostart entry's "notes") as the program a session would start, from
    // the usual program folders; nothing when none holds it. Paths come back unchanged.
    static std::optional<std::string> located(const std::string& program);

    // The provenance of each program (system paths), from dpkg-query, else rpm; a program that
    // can't be asked about (relative, not there, no package tool, the tool failed) is absent.
    static std::map<std::string, Provenance> of(const std::vector<std::string>& programs);
};

}  // namespace brimstell
