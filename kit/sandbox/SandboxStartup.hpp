#pragma once
// What starts with a sandbox Mac: launch items whose programs carry recorded signatures of every
// kind, a leftover whose app is gone, login items in the background-task dump, and the fake
// "/bin/launchctl" and "/usr/bin/sfltool" that answer for them.

#include <string_view>

#include "kit/sandbox/SandboxMac.hpp"

namespace brimstell {

void addStartupItems(SandboxMac& mac);
// A recorded signature ("<program>.signature", see recordedSignature) beside the program at a
// system path.
void addSignature(SandboxMac& mac, std::string_view programPath, std::string_view record);

}  // namespace brimstell
