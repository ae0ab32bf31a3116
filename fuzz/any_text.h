#pragma once
// Texts as Qt's strings, for targets whose code takes them.

#include <QString>

#include "target.h"

namespace fuzz {

/// A text of any kind: the first byte chooses between UTF-8 and plain 16-bit units.
[[nodiscard]] QString to_text(Input input);

}  // namespace fuzz
