#pragma once
// Arguments of types that a method does not take.

#include <string>

#include <QList>
#include <QVariant>

#include "random.h"

namespace stress {

/// An argument list, of whatever types the bus can carry, with another signature; it may have more than fits.
[[nodiscard]] QList<QVariant> misfit(model::Random& random, const std::string& signature);

}  // namespace stress
