#pragma once
// Recordings in a temporary directory, and what they play, as texts that a test can compare.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <QTemporaryDir>

#include "artnet/opcodes.h"
#include "artnet/recording_reader.h"
#include "artnet/recording_writer.h"
#include "support/recording.h"

namespace tests {

/// A temporary directory, removed with the object.
class RecordingFiles {
public:
    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_.filePath(QString::fromStdString(name)).toStdString();
    }

    /// Writes a recording as it is; returns its path.
    [[nodiscard]] std::string raw(const std::string& name, const Recording& recording) const {
        if (!recording.write(path(name))) {
            throw std::runtime_error("cannot write " + path(name));
        }
        return path(name);
    }

    /// The same, filled up to whole blocks.
    [[nodiscard]] std::string padded(const std::string& name, Recording recording) const {
        return raw(name, recording.fill_to(recording.size() + recording_padding(recording.size())));
    }

    /// Names of all files, hidden ones included.
    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path(""))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    QTemporaryDir directory_;
};

/// What a recording plays: "UNIVERSE@BEGIN" with the begin in microseconds and the first channel's level
/// after a colon, and the sum of all delays as "=MICROSECONDS" at the end.
inline std::vector<std::string> played(const std::string& path) {
    std::vector<std::string> packets;
    std::chrono::nanoseconds end{0};
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        std::string text =
            std::to_string(packet.universe) + "@" + std::to_string(packet.begin.count() / 1000);
        if (packet.bytes.size() > kDmxHeaderSize) {
            text += ":" + std::to_string(packet.bytes[kDmxHeaderSize]);
        }
        packets.push_back(text + (packet.is_stale ? " stale" : ""));
        end = packet.begin + packet.delay;
    };
    std::error_code error;
    reader.read(path.c_str(), error);
    packets.push_back(error ? error.message() : "=" + std::to_string(end.count() / 1000));
    return packets;
}

/// Types of the packets of a recording, in their order.
inline std::vector<int> types_of(const std::string& path) {
    std::vector<int> types;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx&) { types.push_back(opcode::kDmx); };
    parser.on_artoemvfps = [&](ArtOemVfps&) { types.push_back(opcode::kOemVfps); };
    parser.on_artoemvfpsns = [&](ArtOemVfpsNs&) { types.push_back(opcode::kOemVfpsNs); };
    parser.on_unknown = [&](ArtHeader& header) { types.push_back(header.OpCode); };
    std::error_code error;
    parser.parse(path.c_str(), error);
    return types;
}

/// What a step throws; empty when it does not.
template <typename Exception, typename Step>
std::string refusal_of(const Step& step) {
    try {
        step();
    } catch (const Exception& error) {
        return error.what();
    }
    return {};
}

}  // namespace tests
