#include "dump.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "artnet/artnet_parser.h"
#include "artnet/opcodes.h"
#include "cli/progress.h"
#include "input_recording.h"

namespace recording {

namespace {

using Json = nlohmann::ordered_json;

/// What a packet type adds to its line.
struct Detail {
    const char* name;
    Json value;
};

/// Prints the packets of one recording.
class Dump {
public:
    Dump(const DumpOptions& options, std::FILE* out) : options_(options), out_(out) {}

    void run(const std::string& path) {
        // Lines on the same terminal show the progress themselves.
        const bool shows_progress = isatty(fileno(out_)) == 0;
        cli::Progress progress(path, size_of_input(path));
        parser_.on_artdmx = [&](ArtDmx& dmx) {
            take_dmx(dmx);
            if (shows_progress) {
                progress.update(parser_.bytes_read());
            }
        };
        parser_.on_artoemvfps = [this](ArtOemVfps& timing) {
            const std::uint32_t milliseconds = timing.Milliseconds;
            take_timing(std::uint64_t{milliseconds} * 1'000'000);
            print(opcode::kOemVfps, {{"milliseconds", milliseconds}});
        };
        parser_.on_artoemvfpsns = [this](ArtOemVfpsNs& timing) {
            const std::uint64_t nanoseconds = timing.Nanoseconds;
            take_timing(nanoseconds);
            print(opcode::kOemVfpsNs, {{"nanoseconds", nanoseconds}});
        };
        parser_.on_artpoll = [this](ArtPoll&) { print(opcode::kPoll, {}); };
        parser_.on_artpollreply = [this](ArtPollReply& reply) {
            print(opcode::kPollReply, {{"name", std::string(reply.ShortName)}});
        };
        parser_.on_trigger = [this](ArtTrigger& trigger) {
            print(opcode::kTrigger,
                  {{"oem", trigger.OemCode}, {"key", trigger.Key}, {"subkey", trigger.SubKey}});
        };
        parser_.on_unknown = [this](ArtHeader& header) {
            const std::uint16_t code = header.OpCode;
            print(code, {{"passed_over", true}});
        };
        parser_.on_error = [this](const std::error_code&) {
            print(opcode::kDmx, {{"passed_over", true}, {"more_than_512_channels", true}});
        };
        std::error_code error;
        parser_.parse(path.c_str(), error);
        progress.clear();
        if (error) {
            std::fflush(out_);
            fail_parsing(path, error, parser_.packet_offset());
        }
    }

private:
    void take_dmx(const ArtDmx& dmx) {
        time_ = std::min(time_ + pending_, kLongestTime);
        pending_ = 0;
        std::vector<Detail> details{{"universe", universe_of(dmx)},
                                    {"sequence", dmx.Sequence},
                                    {"physical", dmx.Physical},
                                    {"channels", dmx.Length}};
        if (options_.levels) {
            details.push_back({"levels", std::vector<int>(dmx.Data.begin(), dmx.Data.begin() + dmx.Length)});
        }
        print(opcode::kDmx, details);
    }

    /// The last one before the next ArtDmx counts; above the signed range it is no delay.
    void take_timing(std::uint64_t nanoseconds) { pending_ = nanoseconds > kLongestTime ? 0 : nanoseconds; }

    void print(std::uint16_t code, const std::vector<Detail>& details) {
        const std::string_view known = opcode::name(code);
        std::array<char, 8> number{};
        std::snprintf(number.data(), number.size(), "0x%04x", unsigned{code});
        const std::string name = known.empty() ? std::string(number.data()) : std::string(known);
        if (options_.json) {
            print_json(name, number.data(), details);
        } else {
            print_text(name, details);
        }
    }

    void print_json(const std::string& name, const char* number, const std::vector<Detail>& details) {
        Json json{{"offset", parser_.packet_offset()},
                  {"index", parser_.packet_counter},
                  {"time_ns", time_},
                  {"type", name},
                  {"opcode", number}};
        if (parser_.packet_is_stale()) {
            json["repeated"] = true;
        }
        for (const Detail& detail : details) {
            json[detail.name] = detail.value;
        }
        const std::string line = json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        std::fwrite(line.data(), 1, line.size(), out_);
    }

    void print_text(const std::string& name, const std::vector<Detail>& details) {
        std::string line;
        for (const Detail& detail : details) {
            line += std::string(" ") + detail.name;
            if (!detail.value.is_boolean()) {
                line += " " + detail.value.dump(-1, ' ', false, Json::error_handler_t::replace);
            }
        }
        std::fprintf(out_, "%10llu %7u %5llu.%09llu %s%s%s\n",
                     static_cast<unsigned long long>(parser_.packet_offset()), parser_.packet_counter,
                     static_cast<unsigned long long>(time_ / 1'000'000'000),
                     static_cast<unsigned long long>(time_ % 1'000'000'000), name.c_str(), line.c_str(),
                     parser_.packet_is_stale() ? " repeated" : "");
    }

    /// Where the service's sums of times stay, too; two of them fit into the type.
    static constexpr auto kLongestTime = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

    DumpOptions options_;
    std::FILE* out_;
    ArtNetParser parser_;
    /// When the packets from here on play, in nanoseconds.
    std::uint64_t time_ = 0;
    /// What will have passed by the next ArtDmx.
    std::uint64_t pending_ = 0;
};

}  // namespace

void dump_recording(const std::string& path, const DumpOptions& options, std::FILE* out) {
    Dump(options, out).run(path);
}

}  // namespace recording
