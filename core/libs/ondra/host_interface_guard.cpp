#include "ondra/host_interface_guard.h"

#include <unistd.h>

namespace ondra::device {

bool host_interface_accessible() {
    return access("/dev/vchiq", R_OK | W_OK) == 0;
}

}  // namespace ondra::device
