// cuewright-netsurvey: finds Art-Net nodes and tells the playback service of them.

#include <QCoreApplication>

#include "program.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Finds the Art-Net nodes of a network and tells the playback service on the session bus which of "
        "them\n"
        "listen to which universe.",
        "cuewright-netsurvey"};
    const auto read_options = netsurvey::add_options(app);
    return cli::run(app, argc, argv, [&] {
        const netsurvey::Options options = read_options();
        // Before the bus library starts its thread, which is to leave the signals alone.
        posix::StopSignals stop;
        const QCoreApplication application(argc, argv);
        return options.list ? netsurvey::run_list(options, stop) : netsurvey::run_service(options, stop);
    });
}
