// Baseline of the idle scenario: sleeps 10 ms, again and again. Ends by a signal.

#include <unistd.h>

int main() {
    for (;;) {
        usleep(10'000);
    }
}
