#pragma once
// Arguments of types that a method does not take.

#include <string>

#include <QList>
#include <QVariant>

#include "random.h"

namespace stress {

/**
 * An argument list, of whatever types the bus can carry, that does not begin as the signature does: what
 * comes behind fitting arguments is the bus library's to judge.
 */
[[nodiscard]] QList<QVariant> misfit(model::Random& random, const std::string& signature);

}  // namespace stress
