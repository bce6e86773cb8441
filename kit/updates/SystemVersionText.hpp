#pragma once
// The running Mac's version text, as the system words it ("Version 14.2.1 (Build 23C71)").

#include <string>

namespace brimstell {

// On a Mac only (SystemVersionText.mm); elsewhere empty.
std::string macSystemVersionText();

}  // namespace brimstell
