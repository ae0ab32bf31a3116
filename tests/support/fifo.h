#pragma once
// A named pipe in the place of a recording, for tests of what happens while one still arrives.

#include <cstdint>
#include <string>
#include <vector>

/**
 * Makes a FIFO and writes into it. A reader that opens it waits for open(), and reads its end after close().
 *
 * One thread at a time. Writing to a FIFO that nobody reads any more fails instead of ending the process.
 */
class Fifo {
public:
    /// Throws std::runtime_error when it cannot be made.
    explicit Fifo(std::string path);
    ~Fifo() { close(); }
    Fifo(const Fifo&) = delete;
    Fifo& operator=(const Fifo&) = delete;

    /// Waits for a reader.
    void open();
    /// False when nobody reads it any more.
    bool write(const std::vector<std::uint8_t>& bytes);
    /// Waits until the reader has taken all that was written, false when it does not. It has then done with
    /// what an earlier read had brought.
    [[nodiscard]] bool wait_until_taken() const;
    /// Ends the reader's input. May be called without a reader, and repeatedly.
    void close();
    /// Takes the name away; the pipe itself goes on.
    void unlink();

private:
    std::string path_;
    int descriptor_ = -1;
};
