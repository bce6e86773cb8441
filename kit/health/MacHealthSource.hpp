#pragma once
// A Mac's battery and disk facts from IOKit (macOS only).

#include <memory>

#include "support/host/HealthSource.hpp"

namespace brimstell {

std::shared_ptr<quorv::HealthSource> makeMacHealthSource();

}  // namespace brimstell
