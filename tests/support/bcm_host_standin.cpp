// Stands in for the board's host library; found by the program's own loading code.

#include "support/bcm_host_standin.h"

#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>
#include <utility>

namespace {

std::string& calls() {
    static std::string log;
    return log;
}

std::map<std::string, std::pair<int, std::string>>& replies() {
    static std::map<std::string, std::pair<int, std::string>> table;
    return table;
}

}  // namespace

extern "C" {

void bcm_standin_reply(const char* command, int result, const char* reply) {
    if (reply == nullptr) {
        replies().clear();
        calls().clear();
        return;
    }
    replies()[command] = {result, reply};
}

const char* bcm_standin_calls() {
    return calls().c_str();
}

void bcm_host_init();
void bcm_host_deinit();
unsigned bcm_host_get_peripheral_address();
unsigned bcm_host_get_peripheral_size();
unsigned bcm_host_get_sdram_address();
int vc_gencmd(char* response, int size, const char* format, ...) __attribute__((format(printf, 3, 4)));

void bcm_host_init() {
    calls() += "init\n";
}

void bcm_host_deinit() {
    calls() += "deinit\n";
}

unsigned bcm_host_get_peripheral_address() {
    calls() += "peripheral address\n";
    return 0x3f000000;
}

unsigned bcm_host_get_peripheral_size() {
    calls() += "peripheral size\n";
    return 0x01000000;
}

unsigned bcm_host_get_sdram_address() {
    calls() += "sdram address\n";
    return 0xc0000000;
}

int vc_gencmd(char* response, int size, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    calls() += std::string("command ") + format + " " + text + " " + std::to_string(size) + "\n";
    const auto found = replies().find(text);
    if (found == replies().end()) {
        return -1;
    }
    // As the firmware: no more than fits, zero included.
    std::snprintf(response, static_cast<std::size_t>(size), "%s", found->second.second.c_str());
    return found->second.first;
}
}
