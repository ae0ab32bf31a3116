#include "support/recording.h"

#include <fstream>

#include "artnet/recording_writer.h"

using namespace std::string_view_literals;

Recording& Recording::dmx(int universe, const std::vector<std::uint8_t>& levels) {
    append_artdmx(bytes_, static_cast<std::uint16_t>(universe), levels);
    return *this;
}

Recording& Recording::frame_delay(std::chrono::nanoseconds time) {
    append_artoemvfpsns(bytes_, static_cast<std::uint64_t>(time.count()));
    return *this;
}

Recording& Recording::frame_delay_ms(std::uint32_t milliseconds) {
    append_artoemvfps(bytes_, milliseconds);
    return *this;
}

Recording& Recording::header(std::uint16_t opcode) {
    return raw("Art-Net\0"sv).raw({opcode & 0xFF, opcode >> 8});
}

Recording& Recording::raw(std::initializer_list<int> bytes) {
    for (const int byte : bytes) {
        bytes_.push_back(static_cast<std::uint8_t>(byte));
    }
    return *this;
}

Recording& Recording::raw(std::string_view bytes) {
    for (const char byte : bytes) {
        bytes_.push_back(static_cast<std::uint8_t>(byte));
    }
    return *this;
}

Recording& Recording::fill_to(std::size_t size, std::uint8_t value) {
    if (size > bytes_.size()) {
        bytes_.resize(size, value);
    }
    return *this;
}

Recording& Recording::cut_to(std::size_t size) {
    if (size < bytes_.size()) {
        bytes_.resize(size);
    }
    return *this;
}

std::string Recording::text() const {
    return {bytes_.begin(), bytes_.end()};
}

bool Recording::write(const std::string& path) const {
    std::ofstream file(path, std::ios::binary);
    const std::string content = text();
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    return !file.fail();
}
