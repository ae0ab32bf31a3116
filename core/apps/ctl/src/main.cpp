// cuewrightctl: controls the playback service from a shell.

#include <QCoreApplication>

#include "command_line.h"

int main(int argc, char** argv) {
    // Qt gets no word of the command line, which it would search for options of its own.
    int count = 1;
    const QCoreApplication application(count, argv);
    return ctl::run(argc, argv);
}
