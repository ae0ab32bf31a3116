#pragma once
// The board's firmware, reached through the vendor's host library where there is one.

#include <cstddef>
#include <optional>
#include <string>

namespace ondra::device {

/**
 * Facts and general commands of the board's firmware.
 *
 * The vendor's library is loaded at run time: building needs no board, and on other machines every query
 * simply has no answer. Once loaded it stays loaded, since it keeps threads of its own. Main thread.
 */
class BoardFirmware {
public:
    /// Looks for the vendor's library.
    BoardFirmware();

    /**
     * Sends a general command within one initialisation of the host interface.
     *
     * @param reply_size  bytes of the reply buffer, with the terminating zero
     * Returns the reply; none when the command fails or there is no host interface.
     */
    [[nodiscard]] std::optional<std::string> command(const std::string& text, std::size_t reply_size) const;

    /// Base and size of the peripherals and base of the SDRAM, in bytes; none without the library.
    [[nodiscard]] std::optional<unsigned> peripheral_address() const;
    [[nodiscard]] std::optional<unsigned> peripheral_size() const;
    [[nodiscard]] std::optional<unsigned> sdram_address() const;

private:
    using Action = void();
    using Query = unsigned();
    /// Reply buffer, its size, printf format; 0 on success.
    using GeneralCommand = int(char*, int, const char*, ...);

    // Each may be null: images differ in what their library offers.
    Action* init_ = nullptr;
    Action* deinit_ = nullptr;
    Query* peripheral_address_ = nullptr;
    Query* peripheral_size_ = nullptr;
    Query* sdram_address_ = nullptr;
    GeneralCommand* general_command_ = nullptr;
};

}  // namespace ondra::device
