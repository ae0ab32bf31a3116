#include "ondra/board_firmware.h"

#include <vector>

#include <dlfcn.h>

#include "ondra/host_interface_guard.h"

namespace ondra::device {

namespace {

/// Null when none of the library's known places has it.
void* open_host_library() {
    // The last is where older images keep it, outside the loader's search path.
    for (const char* name : {"libbcm_host.so.0", "libbcm_host.so", "/opt/vc/lib/libbcm_host.so"}) {
        if (void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL); library != nullptr) {
            return library;
        }
    }
    return nullptr;
}

template <typename Function>
void resolve(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(dlsym(library, name));
}

template <typename Query>
std::optional<unsigned> ask(Query* query) {
    return query != nullptr ? std::optional<unsigned>(query()) : std::nullopt;
}

}  // namespace

BoardFirmware::BoardFirmware() {
    void* const library = open_host_library();
    if (library == nullptr) {
        return;
    }
    resolve(library, "bcm_host_init", init_);
    resolve(library, "bcm_host_deinit", deinit_);
    resolve(library, "bcm_host_get_peripheral_address", peripheral_address_);
    resolve(library, "bcm_host_get_peripheral_size", peripheral_size_);
    resolve(library, "bcm_host_get_sdram_address", sdram_address_);
    resolve(library, "vc_gencmd", general_command_);
}

std::optional<std::string> BoardFirmware::command(const std::string& text, std::size_t reply_size) const {
    if (init_ == nullptr || general_command_ == nullptr || !host_interface_accessible()) {
        return std::nullopt;
    }
    // One byte more than the firmware is told, so that a reply without its terminating zero stays inside.
    std::vector<char> reply(reply_size + 1, '\0');
    init_();
    const int result = general_command_(reply.data(), static_cast<int>(reply_size), "%s", text.c_str());
    if (deinit_ != nullptr) {
        deinit_();
    }
    return result == 0 ? std::optional<std::string>(reply.data()) : std::nullopt;
}

std::optional<unsigned> BoardFirmware::peripheral_address() const {
    return ask(peripheral_address_);
}

std::optional<unsigned> BoardFirmware::peripheral_size() const {
    return ask(peripheral_size_);
}

std::optional<unsigned> BoardFirmware::sdram_address() const {
    return ask(sdram_address_);
}

}  // namespace ondra::device
