#pragma once
// Lets a test act just before a socket is bound, as another program might. Link tests::before_bind.

#include <functional>

namespace tests {

/// Called once, just before the next socket of this program is bound.
extern std::function<void()> before_bind;

}  // namespace tests
