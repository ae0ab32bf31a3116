#pragma once
// JSON documents made of arbitrary bytes: most of them such as a reader of JSON hopes for. Bytes that are
// changed one by one hardly ever stay JSON, so that all but the reader itself would go untested.

#include <string>
#include <vector>

#include "target.h"

namespace fuzz {

/// What is expected in one place of a document.
struct JsonShape {
    enum class Kind { Text, Number, Flag, Array, Object };
    struct Member;

    Kind kind = Kind::Object;
    /// Texts or numbers that mean something there.
    std::vector<std::string> words;
    /// Of an object.
    std::vector<Member> members;
    /// Of an array: one shape, that of its elements.
    std::vector<JsonShape> elements;
};

struct JsonShape::Member {
    std::string key;
    JsonShape shape;
};

[[nodiscard]] JsonShape text_shape(std::vector<std::string> words);
[[nodiscard]] JsonShape number_shape(std::vector<std::string> words);
[[nodiscard]] JsonShape flag_shape();
[[nodiscard]] JsonShape array_shape(const JsonShape& element);
[[nodiscard]] JsonShape object_shape(std::vector<JsonShape::Member> members);

/// The document that `choices` lead to; bytes that are missing are zeros, which choose what is expected.
[[nodiscard]] std::string json_document(Input choices, const JsonShape& shape);

/**
 * The text of a JSON file. The first byte of `input` chooses, by its two lowest bits, whether the others are
 * that text (0), are the choices of a document (1 and 2), or first damage the document that they choose (3).
 * Nothing stays nothing.
 */
[[nodiscard]] std::string json_text(Input input, const JsonShape& shape);

/// Seeds for json_text(): texts that any reader of JSON may be given, and choices of documents.
[[nodiscard]] std::vector<Seed> json_seeds();

/// `seeds` of plain texts as inputs of json_text().
[[nodiscard]] std::vector<Seed> as_json_texts(const std::vector<Seed>& seeds);

}  // namespace fuzz
