#include "any_text.h"

#include <cstring>

namespace fuzz {

QString to_text(Input input) {
    constexpr int kUnits = 1;
    if (take_byte(input) != kUnits) {
        return QString::fromStdString(to_string(input));
    }
    QString text(static_cast<int>(input.size() / sizeof(QChar)), QChar());
    std::memcpy(text.data(), input.data(), static_cast<std::size_t>(text.size()) * sizeof(QChar));
    return text;
}

}  // namespace fuzz
