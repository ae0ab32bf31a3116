#pragma once
// Listens to the parser of description files, for the targets that feed it.

#include "playlist_parser_observer.h"
#include "target.h"

namespace fuzz {

/// Checks what an observer may rely on.
class ParserListener final : public PlaylistParserObserver {
public:
    void begin_effect(int position) override {
        require(!rejected_ && position == effects_, "effects are told of in their order");
        ++effects_;
    }
    void report(Outcome outcome, const char* key, int index, const char* reason) override {
        require(!rejected_, "a rejection is the last word");
        require(key != nullptr && index >= -1 && (index == -1 || *key != '\0'), "a report names its place");
        require(reason != nullptr && *reason != '\0', "a report gives a reason");
        rejected_ = outcome == Outcome::Rejected;
    }

    /// An exception has to follow.
    [[nodiscard]] bool rejected() const { return rejected_; }

private:
    int effects_ = 0;
    bool rejected_ = false;
};

}  // namespace fuzz
