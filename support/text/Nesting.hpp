#pragma once
// How deep a text nests, measured without recursion, so that a hostile state file (an array in an
// array 200,000 times) is turned away before a recursive parser or destructor ever sees it.

#include <string_view>

namespace quorv::nesting {

// Arrays, objects, dictionaries and elements nested deeper than this make a file unreadable.
// Brimstell's own files nest fewer than ten levels; anything deeper than this is hostile.
inline constexpr int maxDepth = 512;

// True when the JSON text opens no more than limit arrays and objects inside each other. Strings
// (with their escapes) are skipped. It doesn't validate: the parser still rejects what is wrong.
bool jsonWithin(std::string_view text, int limit = maxDepth);

// True when the XML text nests no more than limit elements inside each other. Comments, CDATA
// sections and processing instructions are skipped; empty-element tags ("<true/>") don't nest.
// An end tag that doesn't close the innermost open element makes the text refused.
bool xmlWithin(std::string_view text, int limit = maxDepth);

}  // namespace quorv::nesting
