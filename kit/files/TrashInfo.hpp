#pragma once
// The .trashinfo texts live in the shared library, where the root helper writes them too.
#include "shared/trash/TrashInfo.hpp"
