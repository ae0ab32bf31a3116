// cuewright-node: an Art-Net node without lamps.

#include "program.h"

int main(int argc, char** argv) {
    CLI::App app{
        "A simulated Art-Net node: answers polls, counts the frames of its universes and reports what was "
        "lost,\n"
        "what came late and how far apart the universes of a frame arrived.",
        "cuewright-node"};
    const auto options = node::add_options(app);
    return cli::run(app, argc, argv, [&] { return node::run_node(options()); });
}
