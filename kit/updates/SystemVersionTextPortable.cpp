#include "kit/updates/SystemVersionText.hpp"

namespace brimstell {

#ifndef __APPLE__
// Only a Mac has a Mac's version; SystemVersionText.mm gives it there.
std::string macSystemVersionText() { return {}; }
#endif

}  // namespace brimstell
