// cuewright-forwarder: delivers the packets that the playback service hands over on the loopback interface.

#include "program.h"

int main(int argc, char** argv) {
    return forwarder::run_program(argc, argv);
}
