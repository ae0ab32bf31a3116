// cuewright-monitor: shows the Art-Net on the wire, and how late it is.

#include "program.h"

int main(int argc, char** argv) {
    return monitor::run_program(argc, argv);
}
