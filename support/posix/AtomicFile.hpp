#pragma once
// A file written in pieces that appears whole or not at all: the pieces go to a temporary file
// in the same folder, and commit syncs it, renames it over the path and syncs the folder. A
// reader sees the old file or the new one, never a part; dropped uncommitted, nothing is left.

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"

namespace quorv::files {

class AtomicFile {
public:
    // Creates missing parent folders (0755) and the temporary file; nullopt when either fails.
    static std::optional<AtomicFile> create(const std::string& path, mode_t mode);

    AtomicFile(AtomicFile&& other) noexcept;
    AtomicFile& operator=(AtomicFile&&) = delete;
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    // False once any write failed; the file then never commits.
    bool write(std::string_view data);
    // Puts the written file in place; false (and nothing changed) when it can't be.
    bool commit(Sync sync = Sync::durable);

private:
    AtomicFile(std::string path, std::string temp, UniqueFd fd);

    std::string path_;
    std::string temp_;  // empty once committed or handed on
    UniqueFd fd_;
    bool failed_ = false;
};

}  // namespace quorv::files
