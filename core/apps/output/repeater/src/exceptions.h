#pragma once
// What the parser of the description files throws. Caught by whoever loads a playlist.

#include <stdexcept>

namespace Exceptions {

/// A file, or what was looked for in it, is not there.
class InvalidPath final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file does not hold what it must.
class InvalidFileFormat final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace Exceptions
