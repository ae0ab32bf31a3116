#pragma once
// Reads Art-Net recordings: plain concatenations of Art-Net packets.

#include <cstdint>
#include <functional>
#include <istream>
#include <system_error>
#include <vector>

#include "artnet/errors.h"
#include "artnet/records.h"

// The destructor is not virtual on purpose: a parser is a local object of the one who parses and is never
// owned through a base, so the one virtual operation is all that a derived class needs.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/**
 * Finds every packet of a recording by its identifier and hands it, decoded, to a callback.
 *
 * Assign the callbacks, then call parse(). It returns when the input is exhausted, at a fatal error, or after
 * the record whose callback called stop(). All callbacks run within parse(), in file order; their exceptions
 * pass through it. One parser per recording; no threads, no locks. This library reports by std::error_code.
 *
 * The input is read in blocks of 512 bytes, and nothing is allocated per packet. Two properties of the
 * scanning are kept on purpose, since recordings are made for them:
 * - A byte that breaks a match is not tried as a first byte: the letter A right before an identifier hides
 * it.
 * - After a short last block the rest of the buffer (the block before, or zeros) is scanned too. A packet
 * that lies whole in there is delivered again; one that would run past the buffer's last byte is dropped and
 * ends the parsing like the end of the input, without an error.
 */
class ArtNetParser {
public:
    ArtNetParser();
    ArtNetParser(const ArtNetParser&) = delete;
    ArtNetParser& operator=(const ArtNetParser&) = delete;

    // One slot per record type. Records whose slot is empty are read and dropped.
    std::function<void(ArtPoll&)> on_artpoll;
    std::function<void(ArtPollReply&)> on_artpollreply;
    std::function<void(ArtDmx&)> on_artdmx;
    std::function<void(ArtOemVfps&)> on_artoemvfps;
    std::function<void(ArtOemVfpsNs&)> on_artoemvfpsns;
    std::function<void(ArtTrigger&)> on_trigger;
    /// Packets of any other type; only their header is read.
    std::function<void(ArtHeader&)> on_unknown;
    /// Errors that do not end the parsing.
    std::function<void(const std::error_code&)> on_error;

    /// Within a callback, the index of the current packet, counting every identifier found; from 0 in each
    /// parse().
    std::uint32_t packet_counter = 0;

    /**
     * Offset of the identifier of the packet found last, from where parse() began; 0 before any.
     *
     * Within a callback that is the current packet; after parse(), the last one, also where it was cut short.
     * A packet that repeats from the stale tail has no place in the input: its offset is at or beyond the
     * input's size, by as much as it lies behind the last block's end in the buffer.
     */
    [[nodiscard]] std::uint64_t packet_offset() const noexcept { return packet_offset_; }

    /// Within a callback: whether the packet, or the end of it, was taken from the stale tail.
    [[nodiscard]] bool packet_is_stale() const noexcept { return buffer_pos_ > filled_; }

    /// Bytes read from the input so far, for showing progress.
    [[nodiscard]] std::uint64_t bytes_read() const noexcept { return block_begin_ + filled_; }

    /**
     * Parses a file, or anything else that can be opened and read; a FIFO is parsed as its data arrive.
     *
     * @param ec  clear on entry; input_file_not_found when the file cannot be opened, otherwise as below.
     * What opens but yields no byte (an empty file, a directory) is header_not_found.
     */
    void parse(const char* path, std::error_code& ec);

    /**
     * Parses a stream from where it stands to its end.
     *
     * @param ec  clear on entry; unexpected_end_of_input when the input ends within a record, which is not
     *            delivered; header_not_found when it holds no packet. Records before that stay delivered.
     */
    void parse(std::istream& in, std::error_code& ec);

    /// Ends parse() after the current record, without an error. For callbacks.
    void stop() noexcept { running_ = false; }

    /// Puts Length back into wire order: the first 18 + Length bytes are a packet again. Once per parsed
    /// record.
    static void convert_to_raw(ArtDmx& dmx) noexcept;

protected:
    /// Called with the header of a packet whose type is not known; a derived class may read its body from
    /// `in`.
    virtual void parse_unknown(ArtHeader& header, std::istream& in, std::error_code& ec);

private:
    /// Reads the next block, 512 bytes or what is left. Bytes behind it keep what they held.
    void fill_buffer_without_check(std::istream& in);
    /// The same, when there must be more: unexpected_end_of_input when there is not.
    void populate_buffer(std::istream& in, std::error_code& ec);
    /// Moves buffer_pos_ behind the next identifier. A match may begin in one block and end in the next.
    [[nodiscard]] bool search();
    /**
     * Takes the next `n` bytes, 0 to 512, from the buffer and, when that ends, from the next block.
     *
     * False when they are not to be had: at the end of the input `ec` is set; in the buffer's stale tail the
     * parsing is ended without an error.
     */
    [[nodiscard]] bool copy_with_populate(char* dst, unsigned n, std::istream& in, std::error_code& ec);
    /// Takes `n` bytes of the body of `record`, whose header is filled in from `header`.
    template <typename Record>
    [[nodiscard]] bool read_record(const ArtHeader& header, Record& record, unsigned n, std::istream& in,
                                   std::error_code& ec);

    void dispatch(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_artpoll(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_artpollreply(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_artdmx(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_artoemvfps(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_artoemvfpsns(ArtHeader& header, std::istream& in, std::error_code& ec);
    void parse_trigger(ArtHeader& header, std::istream& in, std::error_code& ec);

    bool running_ = false;
    /// Read position in buffer_, 0 to 512.
    std::uint32_t buffer_pos_ = 0;
    /// Identifier bytes matched so far, 0 to 8.
    std::uint32_t header_matched_ = 0;
    /// Where the current block begins, from where parse() began.
    std::uint64_t block_begin_ = 0;
    /// Bytes of the current block that the last fill has read, 0 to 512; what follows is stale.
    std::uint32_t filled_ = 0;
    std::uint64_t packet_offset_ = 0;
    /// The current block, always 512 bytes.
    std::vector<char> buffer_;
    /// The identifier bytes as they were matched, always 8 bytes.
    std::vector<char> header_;
};

#pragma GCC diagnostic pop
