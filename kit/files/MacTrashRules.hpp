#pragma once
// What the macOS Trash adapter decides, kept out of the adapter so that it is tested everywhere:
// the sentence for an error the file manager reports, what a path must be before it is handed
// over, and which entries of a Trash folder are items.

#include <sys/types.h>

#include <string>
#include <string_view>

namespace brimstell::macTrash {

// Where a reported error comes from: none reported, an errno value, a Foundation file error, or
// anything else.
enum class ErrorDomain { none, posix, cocoa, other };

// Foundation's file error codes the sentences tell apart (NSFileNoSuchFileError and so on).
namespace cocoa {
inline constexpr long noSuchFile = 4;
inline constexpr long readNoPermission = 257;
inline constexpr long readNoSuchFile = 260;
inline constexpr long writeNoPermission = 513;
inline constexpr long featureUnsupported = 3328;  // a volume without a Trash
}  // namespace cocoa

// The sentence shown for a failed move.
const char* sentence(ErrorDomain domain, long code);

// Why path can't be handed to the file manager at all (not a full path, "/", ending in "." or
// ".."); nullptr when it can. Trailing slashes are ignored.
const char* refusal(const std::string& path);

// Whether location lies directly in a Trash of the user: <home>/.Trash, or a volume's
// <volume>/.Trashes/<uid>.
bool isInTrash(const std::string& location, const std::string& home, uid_t uid);

// The Trash folder's own files, which are not items: Finder's ".DS_Store" and ".localized".
bool isBookkeeping(std::string_view name);

}  // namespace brimstell::macTrash
