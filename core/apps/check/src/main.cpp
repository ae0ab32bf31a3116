// cuewright-check: says what is wrong with a data directory of the playback service.

#include <clocale>

#include "program.h"

int main(int argc, char** argv) {
    // The service reads file names as its unit sets them, whatever the shell's locale is.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    return datacheck::run_program(argc, argv);
}
