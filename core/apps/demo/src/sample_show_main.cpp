// cuewright-sample-show: writes a small show to play with.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "cuewright/version.h"
#include "sample_show.h"

int main(int argc, char** argv) {
    std::string directory;
    std::uint16_t port = 6454;
    CLI::App app{
        "Writes a small show: four playlists with their recordings, as the service reads them from its data\n"
        "directory. All outputs lie in 192.0.2.0/24, which is reserved for examples.",
        "cuewright-sample-show"};
    app.set_version_flag("--version", "cuewright-sample-show " CUEWRIGHT_VERSION);
    app.add_option("OUT_DIR", directory, "Directory to write into; made when it is not there")->required();
    app.add_option("--port", port, "Port of all outputs (default 6454)")
        ->check(CLI::Range(1024, 65535))
        ->type_name("PORT");
    CLI11_PARSE(app, argc, argv);
    try {
        demo::write_sample_show(directory, port);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cuewright-sample-show: %s\n", error.what());
        return 1;
    }
    return 0;
}
