#pragma once
// What a fuzz target is: a piece of the product that is fed with arbitrary bytes, and inputs to begin with.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

using Input = std::span<const std::uint8_t>;

/// One input of a corpus; the name is that of its file.
struct Seed {
    std::string name;
    std::string bytes;
};

struct Target {
    const char* name;
    /**
     * Feeds one input and checks what can be said of every outcome; ends the process where that does not
     * hold.
     *
     * True when the input got past the first check that refuses inputs as a whole.
     */
    bool (*run)(Input input);
    std::vector<Seed> (*seeds)();
    /// Longest input that is worth trying.
    std::size_t longest;
    /// Words that inputs are made of, a dictionary in libFuzzer's own form.
    const char* dictionary;
    /// The code under the target, relative to the top of the sources, separated by blanks.
    const char* sources;
    /// Functions in there that are not under this target but under another, as an extended regular expression
    /// for parts of their mangled names; "-" for none.
    const char* elsewhere = "-";
};

/// Whether the target of that name reads JSON. May be asked before anything is initialised.
[[nodiscard]] constexpr bool reads_json(std::string_view name) {
    return name.ends_with("_file");
}

/// All targets, in the order of the list in docs/fuzzing.md.
[[nodiscard]] const std::vector<Target>& all_targets();

Target recording_parser();
Target recording_loader();
Target description_file();
Target effects_file();
Target output_string();
Target node_map();
Target brand_file();
Target firmware_reply();
Target forwarder_datagram();

/// Ends the process, naming `rule`, unless it holds. Not an assertion: targets check in every build.
void require(bool holds, const char* rule);

/// Sends the log nowhere, but has every line formatted. For targets whose code logs.
void format_log_lines();

/// Takes the first byte off `input`; 0 when there is none.
std::uint8_t take_byte(Input& input);

[[nodiscard]] std::string to_string(Input input);

/// A seed whose first byte is a choice that the target makes.
[[nodiscard]] Seed with_choice(const std::string& name, int choice, std::string_view bytes);

}  // namespace fuzz
