// cuewright-demo: shows the service at work and checks what comes out.

#include <cstdio>
#include <exception>
#include <memory>

#include <QCoreApplication>

#include "failure.h"
#include "options.h"
#include "performance.h"

namespace {

constexpr int kDisagrees = 1;
constexpr int kSignalBase = 128;

int complain(const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "\nerror: %s\n", error.what());
    return kDisagrees;
}

/// A call fails when its receiver has gone; then that is what the user wants to know.
int explain(const demo::Failure& failure, demo::Stage& stage) {
    try {
        stage.check();
    } catch (const demo::Failure& reason) {
        return complain(reason);
    }
    return complain(failure);
}

int run(const demo::Options& options) {
    const demo::SignalWatch signals;
    demo::Screen screen;
    demo::Stage stage(options, signals);
    try {
        return demo::Performance(options, stage, screen).run() ? 0 : kDisagrees;
    } catch (const demo::Failure& failure) {
        return explain(failure, stage);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const demo::ParsedOptions parsed = demo::parse_options(argc, argv, demo::Performance::calls());
    if (parsed.exit_status) {
        std::fputs(parsed.message.c_str(), *parsed.exit_status == 0 ? stdout : stderr);
        return *parsed.exit_status;
    }
    const QCoreApplication application(argc, argv);
    try {
        return run(parsed.options);
    } catch (const demo::Interrupted& interruption) {
        std::fprintf(stderr, "\n%s; everything that was started has been stopped\n", interruption.what());
        return kSignalBase + interruption.signal();
    } catch (const std::exception& error) {
        return complain(error);
    }
}
