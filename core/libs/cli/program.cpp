#include "cli/program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "cuewright/version.h"

namespace cli {

namespace {

int complain(const std::string& program, const std::string& reason, int status) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", program.c_str(), reason.c_str());
    return status;
}

/// What is still to be written shows only now whether it can be.
int finish_output(const std::string& program, int status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        // Who reads through a pipe and has seen enough goes away; that is no failure of ours.
        if (errno == EPIPE) {
            return status;
        }
        return complain(program, std::string("standard output: ") + std::strerror(errno), kExitProblem);
    }
    return status;
}

}  // namespace

int run(CLI::App& app, int argc, const char* const* argv, const std::function<int()>& body) {
    const std::string program = app.get_name();
    app.set_version_flag("--version", program + " " CUEWRIGHT_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& call) {
        std::printf("%s\n", call.what());
        return finish_output(program, kExitGood);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return finish_output(program, kExitGood);
    } catch (const CLI::ParseError& error) {
        return complain(program, std::string(error.what()) + "\nTry \"" + program + " --help\" for more.",
                        kExitUsage);
    }
    try {
        return finish_output(program, body());
    } catch (const UsageError& error) {
        return complain(program, std::string(error.what()) + "\nTry \"" + program + " --help\" for more.",
                        kExitUsage);
    } catch (const Failure& failure) {
        return complain(program, failure.what(), failure.status());
    } catch (const std::exception& error) {
        return complain(program, error.what(), kExitProblem);
    }
}

}  // namespace cli
