#pragma once
// Small pieces of path and line handling shared by the helper's file jobs.

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell::helperpaths {

struct Split {
    std::string folder;  // "/" for an item at the top
    std::string name;
};

// Folder and last name of an absolute path; nullopt when it doesn't begin with "/", or the name
// is empty, "." or "..".
std::optional<Split> split(std::string_view path);

// True when s holds a byte that would break a reply or log line apart: line feed, carriage
// return, tab or NUL.
bool breaksLines(std::string_view s);

// s with line feeds, carriage returns and NULs written as "?", for echoing a refused entry.
std::string echo(std::string_view s);

// "device:inode" of a file, as the moved log records it.
std::string identity(const struct stat& st);

// Lines of a text, split on line feeds; empty lines are dropped.
std::vector<std::string> lines(std::string_view text);

// Shell-style matching of * and ? over bytes, with * also matching "/".
bool globMatch(std::string_view pattern, std::string_view text);

}  // namespace brimstell::helperpaths
