// One fuzz target as a libFuzzer program; libfuzzer_name.cpp names it.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "libfuzzer_name.h"
#include "target.h"

namespace {

const fuzz::Target* target = nullptr;
std::atomic<unsigned long long> inputs{0};
std::atomic<unsigned long long> past{0};

void print_inputs() {
    const unsigned long long all = inputs.load();
    std::printf("%s: %llu inputs, %llu past the first check (%llu in 100)\n", fuzz_target_name, all,
                past.load(), all == 0 ? 0 : past.load() * 100 / all);
}

}  // namespace

/// Qt's JSON reader loses an array or object that a later one of the same key replaces (Qt 5.15.8). Nothing
/// here can free it. Only the targets that read JSON are excused, and only for what Qt itself allocates:
/// without frame pointers such a stack ends within Qt, at a function whose name is stripped. The replay of
/// the seeds (tests/fuzz/replays_json.cpp) unwinds further and excuses the reader alone, which would be too
/// slow here.
extern "C" const char* __lsan_default_suppressions() {
    return fuzz::reads_json(fuzz_target_name) ? "leak:libQt5Core.so.5\n" : "";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    for (const fuzz::Target& candidate : fuzz::all_targets()) {
        if (std::strcmp(candidate.name, fuzz_target_name) == 0) {
            target = &candidate;
        }
    }
    fuzz::require(target != nullptr, "the target of this program is in the list");
    std::atexit(print_inputs);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ++inputs;
    if (target->run({data, size})) {
        ++past;
    }
    return 0;
}
