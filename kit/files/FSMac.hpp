#pragma once
// The macOS side of FS (FSMac.mm). Built only on macOS.

#include <string>

namespace brimstell::mac {

// NSURLIsUbiquitousItemKey of the location; false when it can't be read.
bool isUbiquitousItem(const std::string& path);

}  // namespace brimstell::mac
