#pragma once
// Prints a recording packet by packet.

#include <cstdio>
#include <string>

namespace recording {

/// How "dump" prints.
struct DumpOptions {
    /// One object a line.
    bool json = false;
    /// With the channel levels of ArtDmx packets.
    bool levels = false;
};

/**
 * Prints a line for each packet that the service's parser finds, with its offset and the time at which it
 * plays; each line as soon as its packet is read.
 *
 * Throws cli::Failure when the file cannot be read or ends within a packet, after what could be read.
 */
void dump_recording(const std::string& path, const DumpOptions& options, std::FILE* out);

}  // namespace recording
