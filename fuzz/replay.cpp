// Gives files to a fuzz target, in any build: fuzz_replay TARGET FILE|DIRECTORY...
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "target.h"

namespace {

const fuzz::Target* find(const char* name) {
    for (const fuzz::Target& target : fuzz::all_targets()) {
        if (std::strcmp(target.name, name) == 0) {
            return &target;
        }
    }
    return nullptr;
}

struct Count {
    std::size_t inputs = 0;
    std::size_t past = 0;
};

void replay(const fuzz::Target& target, const std::filesystem::path& path, Count& count) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    ++count.inputs;
    count.past += target.run(bytes) ? 1U : 0U;
}

}  // namespace

int main(int argc, char** argv) {
    const fuzz::Target* const target = argc < 3 ? nullptr : find(argv[1]);
    if (target == nullptr) {
        std::fprintf(stderr, "usage: fuzz_replay TARGET FILE|DIRECTORY...\n");
        return 2;
    }
    Count count;
    for (int i = 2; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(*target, argv[i], count);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(*target, entry.path(), count);
        }
    }
    std::printf("%s: %zu inputs, %zu past the first check\n", target->name, count.inputs, count.past);
    return 0;
}
