// Writes the seed corpora: DIRECTORY/TARGET/* and DIRECTORY/TARGET.dict. With --list it prints, for each
// target, its name, the longest input, what is not under it, and the sources, separated by blanks.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "target.h"

namespace {

bool write(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    file.close();
    return !file.fail();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_corpus DIRECTORY | --list\n");
        return 2;
    }
    for (const fuzz::Target& target : fuzz::all_targets()) {
        if (std::strcmp(argv[1], "--list") == 0) {
            std::printf("%s %zu %s %s\n", target.name, target.longest, target.elsewhere, target.sources);
            continue;
        }
        const std::filesystem::path directory = std::filesystem::path(argv[1]) / target.name;
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        bool written = write(directory.string() + ".dict", target.dictionary);
        for (const fuzz::Seed& seed : target.seeds()) {
            written = write(directory / seed.name, seed.bytes) && written;
        }
        if (!written) {
            std::fprintf(stderr, "error: cannot write below %s\n", argv[1]);
            return 1;
        }
    }
    return 0;
}
