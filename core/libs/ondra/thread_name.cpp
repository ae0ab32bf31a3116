#include "ondra/thread_name.h"

#include <array>
#include <cstddef>
#include <cstring>

#include <pthread.h>

namespace ondra {

void name_this_thread(const char* name) noexcept {
    // The kernel refuses longer names instead of cutting them.
    std::array<char, 16> text{};
    std::strncpy(text.data(), name, text.size() - 1);
    pthread_setname_np(pthread_self(), text.data());
}

}  // namespace ondra
