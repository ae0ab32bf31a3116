// Fuzz target: the firmware's replies to "otp_dump" and "get_mem".
#include "ondra/firmware_reply.h"

#include <array>
#include <cstdio>
#include <string>

#include "target.h"

namespace fuzz {

namespace {

/// A reply is a C string: it ends with its first NUL.
std::string reply_of(Input input) {
    const std::string text = to_string(input);
    return text.substr(0, text.find('\0'));
}

/// Whether any run of digits is longer than what the C library's conversion is defined for.
bool has_long_number(const std::string& text) {
    std::size_t digits = 0;
    for (const char character : text) {
        digits = character >= '0' && character <= '9' ? digits + 1 : 0;
        if (digits > 9) {
            return true;
        }
    }
    return false;
}

/// The row's value by the C library's scanner.
std::string scanned(const std::string& reply, int row) {
    std::size_t begin = 0;
    for (std::size_t end = reply.find('\n'); end != std::string::npos; end = reply.find('\n', begin)) {
        int number = 0;
        std::array<char, 17> value{};
        // NOLINTNEXTLINE(cert-err34-c): no number here is too long
        if (std::sscanf(reply.substr(begin, end - begin).c_str(), "%d:%16s", &number, value.data()) == 2 &&
            number == row) {
            return value.data();
        }
        begin = end + 1;
    }
    return {};
}

bool run(Input input) {
    const int row = take_byte(input) % 4 + 27;
    const std::string reply = reply_of(input);
    const std::string value = ondra::device::parse_otp_reply(reply, row);
    require(value.size() <= 16, "a value has 16 characters at most");
    require(value.find_first_of(" \t\n\v\f\r") == std::string::npos, "a value has no white space");
    require(reply.find(value) != std::string::npos, "a value stands in the reply");
    if (!has_long_number(reply)) {
        require(value == scanned(reply, row), "a row reads as the C library scans it");
    }
    const std::string memory = ondra::device::parse_memory_reply(reply);
    const std::size_t equals = reply.find('=');
    require(memory == (equals == std::string::npos ? "" : reply.substr(equals + 1)),
            "a memory size is what follows the first equals sign");
    return !value.empty() || !memory.empty();
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds;
    int number = 0;
    for (const char* text : {"08:00000000\n28:a1b2c3d4\n30:00a02082\n",
                             "28:00000000a1b2c3d4ffff\n",
                             "28:\n28:x\n",
                             "28:cut off",
                             "arm=948M",
                             "gpu=76M",
                             "arm=",
                             "=",
                             "",
                             "\n\n\n",
                             " +28: \tvalue here\n",
                             "-28:x\n",
                             "028:y\n",
                             "28 :z\n",
                             "99999999999999:28\n28:1\n",
                             "28:\xFF\xFE\n",
                             "+-28:x\n",
                             "++28:x\n",
                             "28:28:28\n",
                             "28:\r\n"}) {
        seeds.push_back(with_choice("reply_" + std::to_string(number++), 1, text));
    }
    return seeds;
}

}  // namespace

Target firmware_reply() {
    return {"firmware_reply",
            run,
            seeds,
            200,
            "row28=\"28:\"\nrow30=\"30:\"\nline=\"\\x0a28:\"\nend=\"\\x0a\"\nequals=\"=\"\nsign=\"+28:\"\n",
            "core/libs/ondra/firmware_reply.cpp"};
}

}  // namespace fuzz
