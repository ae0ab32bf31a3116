#pragma once
// What to do about a file that is in the way.

#include <string>
#include <system_error>

#include "cli/failure.h"

namespace recording {

/// Runs a step that makes a file; where one is in the way, the failure names the option that replaces it.
template <typename Step>
auto naming_force(const Step& step) {
    try {
        return step();
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::file_exists) {
            throw cli::Failure(std::string(error.what()) + " (--force replaces it)");
        }
        throw;
    }
}

}  // namespace recording
