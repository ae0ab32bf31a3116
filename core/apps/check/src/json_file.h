#pragma once
// Reads JSON files as the service reads them, and says where they are broken.

#include <string>
#include <variant>

#include <QJsonArray>

namespace datacheck {

/// Why a file does not give an array.
struct JsonProblem {
    enum class Kind { Unreadable, Broken, NoArray };
    Kind kind = Kind::Unreadable;
    /// Part of a sentence.
    std::string reason;
    /// Place of a syntax error, from 1; 0: none. The column counts bytes.
    int line = 0;
    int column = 0;
};

/// The array that a file holds, or what is wrong with the file.
[[nodiscard]] std::variant<QJsonArray, JsonProblem> read_json_array(const std::string& path);

/// "FILE:LINE:COLUMN: reason", or "FILE: reason" where there is no place.
[[nodiscard]] std::string problem_text(const std::string& path, const JsonProblem& problem);

}  // namespace datacheck
