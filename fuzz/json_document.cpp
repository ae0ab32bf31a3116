#include "json_document.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace fuzz {

namespace {

using Kind = JsonShape::Kind;

/// Deeper than any document that is expected, but not so deep that inputs are nothing else.
constexpr int kDeepest = 8;
constexpr std::size_t kMostElements = 24;

constexpr std::array kOddNumbers{
    "0",           "-0",    "-1",    "1.9",        "-1.9",       "0.5",         "29.97",      "32767",
    "32768",       "65535", "65536", "2147483647", "2147483648", "1e300",       "-1e300",     "1e-300",
    "-2147483648", "1e999", "9e18",  "1e19",       "4294967295", "-2147483649", "4294967296", "1E2"};

class Writer {
public:
    explicit Writer(Input choices) : choices_(choices) {}

    void write(const JsonShape& shape) {
        const std::uint8_t choice = choose();
        if (choice >= 0xF4) {
            anything(choice % 6);
            return;
        }
        switch (shape.kind) {
            case Kind::Text:
                text(shape.words);
                break;
            case Kind::Number:
                number(shape.words);
                break;
            case Kind::Flag:
                text_ += choice % 2 == 0 ? "true" : "false";
                break;
            case Kind::Array:
                array(shape.elements.front());
                break;
            case Kind::Object:
                object(shape.members);
                break;
        }
    }

    std::string take() { return std::move(text_); }

private:
    std::uint8_t choose() { return take_byte(choices_); }
    int choose_word() {
        // One after the other: every compiler is to make the same document of the same bytes.
        const int high = choose();
        return high << 8 | choose();
    }

    /// A value of no expected kind.
    void anything(int kind) {
        static const JsonShape kAnyElement = number_shape({});
        switch (depth_ < kDeepest ? kind : kind % 4) {
            case 0:
                text_ += "null";
                break;
            case 1:
                text_ += choose() % 2 == 0 ? "false" : "true";
                break;
            case 2:
                number({});
                break;
            case 3:
                text({});
                break;
            case 4:
                array(kAnyElement);
                break;
            default:
                object({{"a", kAnyElement}});
                break;
        }
    }

    void array(const JsonShape& element) {
        ++depth_;
        text_ += '[';
        // One byte an element says that there is another.
        for (std::size_t count = 0; count < kMostElements && choose() % 4 != 0; ++count) {
            text_ += count == 0 ? "" : ",";
            write(element);
        }
        text_ += ']';
        --depth_;
    }

    void object(const std::vector<JsonShape::Member>& members) {
        ++depth_;
        text_ += '{';
        bool first = true;
        const auto member = [&](const JsonShape::Member& expected, bool other_key) {
            text_ += first ? "" : ",";
            first = false;
            if (other_key) {
                text({expected.key});
            } else {
                quote(expected.key);
            }
            text_ += ':';
            write(expected.shape);
        };
        for (const JsonShape::Member& expected : members) {
            const std::uint8_t choice = choose();
            if (choice < 0xD0) {
                member(expected, false);
            } else if (choice < 0xF0) {
                continue;
            } else if (choice < 0xF8) {
                member(expected, false);
                member(expected, false);
            } else {
                member(expected, true);
            }
        }
        text_ += '}';
        --depth_;
    }

    void number(const std::vector<std::string>& words) {
        const std::uint8_t choice = choose();
        switch (choice % 8) {
            case 0:
            case 1:
            case 2:
                text_ += words.empty() ? std::to_string(choice / 8) : words.at(choice / 8 % words.size());
                break;
            case 3:
                text_ += kOddNumbers.at(choice / 8 % kOddNumbers.size());
                break;
            case 4:
                text_ += std::to_string(choose());
                break;
            case 5:
                text_ += std::to_string(static_cast<std::int16_t>(choose_word()));
                break;
            case 6:
                text_ += std::to_string(choose()) + '.';
                text_ += std::to_string(choose());
                break;
            default:
                text_ += std::string(choice / 8 + 1U, static_cast<char>('1' + choose() % 9));
                break;
        }
    }

    void text(const std::vector<std::string>& words) {
        const std::uint8_t choice = choose();
        std::string word = words.empty() ? std::string() : words.at(choice / 4 % words.size());
        switch (choice % 4) {
            case 0:
                quote(word);
                break;
            case 1:
                damage(word);
                quote(word);
                break;
            case 2:
                word.clear();
                for (int left = choice / 4 % 24; left > 0; --left) {
                    word += static_cast<char>(choose());
                }
                quote(word);
                break;
            default:
                text_ += '"';
                for (int left = choice / 4 % 8; left > 0; --left) {
                    escape(choose_word());
                }
                text_ += '"';
                break;
        }
    }

    /// Puts one byte in the place of another, before it, or before the end.
    void damage(std::string& word) {
        const std::size_t at = choose() % (word.size() + 1);
        const char byte = static_cast<char>(choose());
        if (choose() % 2 == 0 && at < word.size()) {
            word[at] = byte;
        } else {
            word.insert(at, 1, byte);
        }
    }

    /// Escapes what would end the string; other bytes, UTF-8 or not, stay as they are.
    void quote(const std::string& bytes) {
        text_ += '"';
        for (const char byte : bytes) {
            if (byte == '"' || byte == '\\') {
                text_ += '\\';
            }
            text_ += byte;
        }
        text_ += '"';
    }

    void escape(int unit) {
        static constexpr std::string_view kDigits = "0123456789abcdef";
        text_ += "\\u";
        for (int shift = 12; shift >= 0; shift -= 4) {
            text_ += kDigits[static_cast<std::size_t>(unit >> shift & 0xF)];
        }
    }

    Input choices_;
    std::string text_;
    int depth_ = 0;
};

/// Cuts the document, or changes, adds or takes a byte of it.
void damage_document(std::string& document, int kind, std::size_t place, char byte) {
    const std::size_t at = place % (document.size() + 1);
    switch (kind % 4) {
        case 0:
            document.insert(at, 1, byte);
            break;
        case 1:
            document.resize(at);
            break;
        case 2:
            document.erase(at, 1);
            break;
        default:
            document.replace(at, std::min<std::size_t>(1, document.size() - at), 1, byte);
            break;
    }
}

}  // namespace

JsonShape text_shape(std::vector<std::string> words) {
    return {Kind::Text, std::move(words), {}, {}};
}

JsonShape number_shape(std::vector<std::string> words) {
    return {Kind::Number, std::move(words), {}, {}};
}

JsonShape flag_shape() {
    return {Kind::Flag, {}, {}, {}};
}

JsonShape array_shape(const JsonShape& element) {
    return {Kind::Array, {}, {}, {element}};
}

JsonShape object_shape(std::vector<JsonShape::Member> members) {
    return {Kind::Object, {}, std::move(members), {}};
}

std::string json_document(Input choices, const JsonShape& shape) {
    Writer writer(choices);
    writer.write(shape);
    return writer.take();
}

std::string json_text(Input input, const JsonShape& shape) {
    if (input.empty()) {
        return {};
    }
    const int choice = take_byte(input) % 4;
    if (choice == 0) {
        return to_string(input);
    }
    if (choice < 3) {
        return json_document(input, shape);
    }
    const int kind = take_byte(input);
    const std::size_t high = take_byte(input);
    const std::size_t place = high << 8 | take_byte(input);
    const auto byte = static_cast<char>(take_byte(input));
    std::string document = json_document(input, shape);
    damage_document(document, kind, place, byte);
    return document;
}

std::vector<Seed> as_json_texts(const std::vector<Seed>& seeds) {
    std::vector<Seed> inputs;
    for (const Seed& seed : seeds) {
        inputs.push_back(with_choice(seed.name, 0, seed.bytes));
    }
    return inputs;
}

std::vector<Seed> json_seeds() {
    std::vector<Seed> seeds = as_json_texts({
        {"no_text", ""},
        {"empty_array", "[]"},
        {"empty_object", "{}"},
        {"plain_number", "3"},
        {"half_written", R"([{"Id": 3, "Lo)"},
        {"byte_order_mark", "\xEF\xBB\xBF[]"},
        {"deep", std::string(100, '[') + std::string(100, ']')},
        {"not_utf8", "[\"\xFF\xC0\x80\"]"},
        {"lone_surrogate", R"(["\ud800"])"},
        {"nul", std::string("[\"a\0b\"]", 7)},
        {"escapes", R"(["\u0000\n\"\\\/%n%s"])"},
        {"long_number", "[" + std::string(60, '9') + "]"},
    });
    seeds.push_back({"nothing", ""});
    // Ones choose another element wherever there may be one; the higher bytes stray further.
    for (const int byte : {0x00, 0x01, 0x05, 0x0A, 0x13, 0x1D, 0x26, 0x37, 0xF5, 0xF9}) {
        const std::string choices(120, static_cast<char>(byte));
        seeds.push_back(with_choice("chosen_" + std::to_string(byte), 1, choices));
        seeds.push_back(with_choice("damaged_" + std::to_string(byte), 3, choices));
    }
    return seeds;
}

}  // namespace fuzz
