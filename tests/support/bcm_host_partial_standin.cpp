// A host library of an image that offers commands, but neither initialisation nor the addresses but one.

#include <cstdio>

extern "C" {

unsigned bcm_host_get_peripheral_size();
int vc_gencmd(char* response, int size, const char* format, ...) __attribute__((format(printf, 3, 4)));

unsigned bcm_host_get_peripheral_size() {
    return 0x1800000;
}

int vc_gencmd(char* response, int size, const char* /*format*/, ...) {
    std::snprintf(response, static_cast<std::size_t>(size), "%s", "28:0000000000000001\narm=1M");
    return 0;
}
}
