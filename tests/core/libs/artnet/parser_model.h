#pragma once
// What a recording means, told a second time: slow, plain, and sharing nothing with the parser but its
// records.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Everything that parser and model can tell about one packet.
struct ModelEvent {
    /// "dmx", "ms", "ns", "poll", "pollreply", "trigger", "unknown" or "error".
    std::string kind;
    /// Index of the packet in the recording.
    std::uint32_t counter = 0;
    /// The record's defined bytes, converted fields in host order; the code alone for an error.
    std::vector<std::uint8_t> bytes;

    bool operator==(const ModelEvent&) const = default;
};

/// The outcome of one parse.
struct ModelOutcome {
    std::vector<ModelEvent> events;
    /// 0, or a fatal code.
    int error = 0;
    std::uint32_t packets = 0;

    bool operator==(const ModelOutcome&) const = default;
};

/**
 * Parses recordings byte by byte, without any regard for speed.
 *
 * The input is looked at as a row of blocks. Each is the picture of a 512-byte memory after the next 512
 * input bytes, or the fewer that are left, were laid over what it held; so the last block ends in old bytes.
 * A model that parses several recordings remembers the last picture, as one parser does.
 */
class ParserModel {
public:
    static constexpr std::size_t kBlock = 512;

    /**
     * @param kinds  the kinds that are listened to, each letter one of "dmnprtue" (dmx, ms, ns, poll,
     *               pollreply, trigger, unknown, error)
     * @param stop_after  the number of the event, from 1, whose receiver ends the parse; 0 for none
     */
    ModelOutcome parse(const std::vector<std::uint8_t>& input, const std::string& kinds = "dmnprtue",
                       std::size_t stop_after = 0);

    /// How often each peculiarity was met since the model was made; the names are literals.
    [[nodiscard]] const std::map<std::string_view, int>& met() const { return met_; }

private:
    struct Block {
        std::array<std::uint8_t, kBlock> bytes{};
        /// Bytes of it that come from the input.
        std::size_t count = 0;
    };
    enum class Take {
        Whole,
        /// The input ends before.
        Cut,
        /// They would lie behind old bytes.
        Gone,
    };

    void lay_out(const std::vector<std::uint8_t>& input);
    /// Steps to the byte behind the next identifier; false at the end.
    bool find_identifier();
    Take take(std::size_t n, std::vector<std::uint8_t>& to);
    /// Reads the packet behind a header. False when parsing has to end.
    bool packet(std::vector<std::uint8_t>& record);
    bool body(std::size_t n, std::vector<std::uint8_t>& record);
    bool end_of(Take taken);
    void tell(char letter, std::string_view kind, const std::vector<std::uint8_t>& bytes);

    std::vector<Block> blocks_;
    std::array<std::uint8_t, kBlock> memory_{};
    std::size_t block_ = 0;
    std::size_t offset_ = 0;
    std::size_t matched_ = 0;
    /// Where the identifier being matched begins: block and offset.
    std::size_t begin_block_ = 0;
    std::size_t begin_offset_ = 0;
    std::string kinds_;
    std::size_t stop_after_ = 0;
    bool stopped_ = false;
    ModelOutcome outcome_;
    std::map<std::string_view, int> met_;
};
