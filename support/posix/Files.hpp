#pragma once
// Whole-file reads and atomic whole-file writes, and folder creation.

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quorv::files {

// durable syncs the file before the rename and the folder after it, so the new text survives a
// power cut; cache leaves that to the system, for a file that is only a copy of what can be
// worked out again, rewritten often (after a crash it may read as empty, never as a part).
enum class Sync { durable, cache };

// The whole file; nullopt when it can't be opened, is not a regular file or is larger than
// maxBytes. Follows no final link, and opens without blocking, so a FIFO or a device put in a
// file's place is refused at once instead of hanging the reader. On nullopt errno tells why:
// ENOENT when nothing is there, EINVAL for a non-regular file, EFBIG for one that is too large.
std::optional<std::string> read(const std::string& path, std::size_t maxBytes = 64u << 20);
// The same for the entry name in the open folder dirFd.
std::optional<std::string> readAt(int dirFd, const std::string& name, std::size_t maxBytes = 64u << 20);
// The file at path handed to take in pieces, the first of firstPiece bytes and each next of the
// size take returns, with the file's size when opened; false (errno set as for read) when it
// can't be read whole. No more than a piece of it is ever held here.
bool readInPieces(const std::string& path, std::size_t maxBytes, std::size_t firstPiece,
                  const std::function<std::size_t(std::string_view, std::size_t)>& take);

// Writes all of data to fd, going on after interrupted and short writes; false on an error.
bool writeAll(int fd, std::string_view data);

// Writes a temporary file in the same folder, syncs it, renames it over path and syncs the folder,
// so a reader sees the old file or the new one, never a part. Creates missing parent folders.
bool writeAtomically(const std::string& path, std::string_view data, mode_t mode = 0644, Sync sync = Sync::durable);

// Creates the folder and any missing parents. True when it exists as a folder afterwards.
bool makeFolders(const std::string& path, mode_t mode = 0755);

// Appends one record with a single write on an O_APPEND descriptor, so that lines from several
// processes never interleave.
bool appendRecord(const std::string& path, std::string_view record, mode_t mode = 0644);

std::string parentOf(const std::string& path);
// The path without slashes at its end ("/" stays "/").
std::string trimTrailingSlashes(std::string path);
std::string nameOf(const std::string& path);

}  // namespace quorv::files
