#include "parser_scenario.h"

#include <algorithm>
#include <random>

namespace {

using Bytes = std::vector<std::uint8_t>;

/// The numbers of one scenario. Own arithmetic, since the standard distributions differ between libraries.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : random_(seed) {}

    std::uint8_t byte() { return static_cast<std::uint8_t>(random_()); }
    /// `low` to `high`, both included.
    std::size_t between(std::size_t low, std::size_t high) {
        return low + static_cast<std::size_t>(random_() % (high - low + 1));
    }
    bool one_in(std::size_t n) { return between(1, n) == 1; }

private:
    std::mt19937_64 random_;
};

void append(Bytes& to, const Bytes& from) {
    to.insert(to.end(), from.begin(), from.end());
}

void append_noise(Bytes& to, std::size_t n, Dice& dice) {
    // Mostly bytes of the identifier, which are what a scanner may stumble over.
    static constexpr std::uint8_t kLetters[] = {'A', 'A', 'r', 't', '-', 'N', 'e', 't', 0, 0};
    const bool letters = dice.one_in(2);
    for (std::size_t i = 0; i < n; ++i) {
        to.push_back(letters ? kLetters[dice.between(0, 9)] : dice.byte());
    }
}

std::size_t channel_count(Dice& dice) {
    switch (dice.between(0, 7)) {
        case 0:
            return 0;
        case 1:
            return 512;
        case 2:
            return dice.between(480, 512);
        case 3:
            return dice.one_in(3) ? dice.between(513, 65535) : dice.between(513, 530);
        default:
            return dice.between(1, 40);
    }
}

Bytes make_packet(Dice& dice) {
    static constexpr int kOpcodes[] = {0x5000, 0x5000, 0x5000, 0x5000, 0x00FF,
                                       0x00FE, 0x2000, 0x2100, 0x9900};
    const bool known = !dice.one_in(10);
    const int opcode = known ? kOpcodes[dice.between(0, 8)] : static_cast<int>(dice.between(0, 0xFFFF));
    Bytes packet{'A',
                 'r',
                 't',
                 '-',
                 'N',
                 'e',
                 't',
                 0,
                 static_cast<std::uint8_t>(opcode & 0xFF),
                 static_cast<std::uint8_t>(opcode >> 8)};
    std::size_t n = 0;
    switch (opcode) {
        case 0x5000: {
            append_noise(packet, 6, dice);
            const std::size_t channels = channel_count(dice);
            packet.push_back(static_cast<std::uint8_t>(channels >> 8));
            packet.push_back(static_cast<std::uint8_t>(channels & 0xFF));
            n = std::min<std::size_t>(channels, 600);
            break;
        }
        case 0x2100:
            n = 229;
            break;
        case 0x00FE:
        case 0x9900:
            n = 8;
            break;
        case 0x00FF:
        case 0x2000:
            n = 4;
            break;
        default:
            n = dice.between(0, 12);
    }
    append_noise(packet, n, dice);
    return packet;
}

/// A size near a multiple of the block, or any.
std::size_t some_size(Dice& dice) {
    if (dice.one_in(6)) {
        return dice.between(0, 2200);
    }
    const std::size_t size = dice.between(0, 4) * 512 + dice.between(0, 48);
    return size - std::min<std::size_t>(size, 24);
}

Bytes make_recording(Dice& dice) {
    Bytes bytes;
    if (dice.one_in(2)) {
        // Brings the packets to any place relative to the blocks.
        append_noise(bytes, dice.one_in(2) ? dice.between(0, 24) : dice.between(480, 530), dice);
    }
    const std::size_t wanted = some_size(dice);
    while (bytes.size() < wanted) {
        if (dice.one_in(12)) {
            bytes.push_back('A');
        }
        append(bytes, make_packet(dice));
        if (dice.one_in(12)) {
            append_noise(bytes, dice.between(1, 30), dice);
        }
    }
    if (!dice.one_in(3)) {
        bytes.resize(std::min(bytes.size(), wanted));
    }
    return bytes;
}

void mutate(Bytes& bytes, Dice& dice) {
    for (std::size_t times = dice.between(1, 4); times > 0 && !bytes.empty(); --times) {
        const std::size_t at = dice.between(0, bytes.size() - 1);
        const auto where = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t n = std::min<std::size_t>(dice.between(1, 40), bytes.size() - at);
        switch (dice.between(0, 5)) {
            case 0:
                *where = dice.byte();
                break;
            case 1:
                *where = static_cast<std::uint8_t>(*where ^ 1U << dice.between(0, 7));
                break;
            case 2:
                bytes.erase(where, where + static_cast<std::ptrdiff_t>(n));
                break;
            case 3: {
                const Bytes again(where, where + static_cast<std::ptrdiff_t>(n));
                bytes.insert(where, again.begin(), again.end());
                break;
            }
            case 4: {
                Bytes noise;
                append_noise(noise, n, dice);
                bytes.insert(where, noise.begin(), noise.end());
                break;
            }
            default: {
                const Bytes packet = make_packet(dice);
                bytes.insert(where, packet.begin(), packet.end());
            }
        }
    }
}

/// Has the input end within an identifier where the memory goes on with the rest of one.
void end_in_a_stale_identifier(Bytes& bytes, Dice& dice) {
    const std::size_t blocks = bytes.size() / 512;
    const std::size_t at = dice.between(0, 502);
    Bytes header = make_packet(dice);
    header.resize(10);
    if (blocks == 0) {
        // A fresh memory goes on with zeros.
        header.resize(7);
        append(bytes, header);
        return;
    }
    bytes.resize(blocks * 512 + at, 0);
    std::copy(header.begin(), header.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>((blocks - 1) * 512 + at));
    header.resize(dice.between(1, 7));
    append(bytes, header);
}

Bytes make_input(Dice& dice) {
    Bytes bytes;
    if (dice.one_in(25)) {
        append_noise(bytes, some_size(dice), dice);
        return bytes;
    }
    bytes = make_recording(dice);
    if (dice.one_in(2)) {
        mutate(bytes, dice);
    }
    if (dice.one_in(20)) {
        end_in_a_stale_identifier(bytes, dice);
    }
    return bytes;
}

}  // namespace

ParserScenario make_parser_scenario(std::uint64_t seed) {
    Dice dice(seed);
    ParserScenario scenario;
    if (dice.one_in(8)) {
        scenario.earlier = make_input(dice);
    }
    scenario.input = make_input(dice);
    scenario.piece = dice.one_in(3) ? 0 : dice.one_in(2) ? dice.between(1, 9) : dice.between(10, 700);
    scenario.resumes = dice.one_in(8);
    for (const char kind : std::string("dmnprtue")) {
        if (!dice.one_in(20)) {
            scenario.kinds += kind;
        }
    }
    scenario.stop_after = dice.one_in(6) ? dice.between(1, 12) : 0;
    return scenario;
}

PiecewiseBuffer::PiecewiseBuffer(const std::vector<std::uint8_t>& bytes, std::size_t piece, bool resumes)
    : bytes_(bytes.begin(), bytes.end()), piece_(piece), resumes_(resumes) {}

PiecewiseBuffer::int_type PiecewiseBuffer::underflow() {
    if (given_ == bytes_.size()) {
        if (!resumes_ || !ended_) {
            ended_ = true;
            return traits_type::eof();
        }
        bytes_ += std::string("Art-Net\0\x34\x12", 10);
    }
    const std::size_t rest = bytes_.size() - given_;
    random_ = random_ * 6'364'136'223'846'793'005U + 1;
    const std::size_t n =
        piece_ == 0 ? rest : std::min(rest, 1 + static_cast<std::size_t>((random_ >> 33) % piece_));
    char* const begin = bytes_.data() + given_;
    setg(begin, begin, begin + n);
    given_ += n;
    return traits_type::to_int_type(*gptr());
}
