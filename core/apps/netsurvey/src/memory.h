#pragma once
// What a run of the discovery has announced, kept for the next one.

#include <span>
#include <string>
#include <vector>

#include "node_record.h"

namespace netsurvey {

/**
 * A small file with the records that are present.
 *
 * The player keeps its nodes when the discovery ends, so that the show goes on. The next run must know them
 * to take those out that left in the meantime; nobody else can. Belongs to one bus, since a bus that has been
 * started anew has players that know nothing.
 */
class Memory {
public:
    /// @param path  file; need not exist
    explicit Memory(std::string path) : path_(std::move(path)) {}

    /// The file of a bus: in the user's runtime directory, or the directory for temporary files.
    [[nodiscard]] static std::string default_path(const std::string& bus_id);

    [[nodiscard]] const std::string& path() const { return path_; }
    /// What the last run left; nothing when there is no file, or one that is not ours. Lines that hold no
    /// record are skipped.
    [[nodiscard]] std::vector<NodeRecord> load() const;
    /// Replaces the file's content, whole or not at all. Empty, or why that failed.
    [[nodiscard]] std::string store(std::span<const NodeRecord> records) const;

private:
    std::string path_;
};

}  // namespace netsurvey
