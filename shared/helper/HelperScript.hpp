#pragma once
// The helper's table of operations and the bash script that root runs for every operation that
// is not a file job.
//
// How the helper runs the script: `bash -c <dispatch> <name> <me> <op> <arg> <list>` (or the text
// written to a root-only file, `bash <file> <me> <op> <arg> <list>`), so that $1 is the caller's
// home, $2 the operation, $3 its argument and $4 the list; the script's standard output is the
// reply. The script is written for the bash that ships with macOS (3.2): no bash 4 features.
//
// Tools: the two that the script names by absolute path, /usr/bin/profiles and /usr/bin/sfltool,
// are run by that path; every other tool (du, find, stat, launchctl, dscacheutil, killall, mdutil,
// tmutil, sleep) is run by name through PATH. The helper must therefore start bash with a fixed
// environment of its own (PATH=/usr/bin:/bin:/usr/sbin:/sbin, nothing from the caller); tests put
// recording stand-ins first on PATH. The flags are those of the BSD tools on macOS: `du -skx`,
// `find -x`, `stat -f %b` (GNU stat has no -f format; the script never runs on GNU tools).
//
// The script sets LC_ALL=C for itself so that its globs, ranges and the label check compare
// bytes, whatever locale bash inherits and whatever bytes a file name holds. `emit` skips a path
// that holds a line feed or a tab: the "junk" reply is one tab-separated line per item, and such a
// name could otherwise fake an entry.

#include <array>
#include <string_view>

namespace brimstell::HelperScript {

// Every operation of the protocol. A request for anything else is refused before anything runs.
inline constexpr std::array<std::string_view, 11> operations = {
    "junk", "large", "trash", "emptytrash", "svc", "flushdns", "reindex", "thin", "profiles", "restore", "btm"};

// The operations done in-process by HelperFiles, never by the shell.
inline constexpr std::array<std::string_view, 3> fileJobs = {"trash", "emptytrash", "restore"};

// The whole script: the argument assignments on its first line, the shell options, the functions
// real, emit, do_junk, do_large and do_svc, and the final `case` over the operation.
extern const std::string_view dispatch;

// The same text without its first line and without its final `case`: the shell options and the
// functions only, for a caller that runs one of them itself.
extern const std::string_view functions;

bool isOperation(std::string_view op);
bool isFileJob(std::string_view op);

}  // namespace brimstell::HelperScript
