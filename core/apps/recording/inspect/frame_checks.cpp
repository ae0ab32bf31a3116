#include "inspect/frame_checks.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

#include "inspect/wording.h"

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

namespace inspect {

namespace {

/// While a frame stands, the service's bus calls that change something may wait for its end; callers
/// usually give up after 25 s.
constexpr nanoseconds kLongFrame = 10s;
/// A DMX line of 512 channels carries 44 frames a second. One in a hundred is left for what a capture
/// jitters.
constexpr nanoseconds kShortestFrame{22'500'000};
/// So many frames, about a second, must be too fast together; single ones are jitter.
constexpr std::size_t kRateFrames = 44;
/// Sources repeat what does not change once a second at least; receivers fall back some seconds later.
constexpr nanoseconds kSilence = 1s;
constexpr int kSilentIntervals = 3;
/// The loader's own time of a recording's last frame, which differs from a recorded one by more than this
/// when somebody has meant it to stand.
constexpr nanoseconds kHeldFrame = 100ms;
/// A jump of fewer levels (a tenth) is not seen as one.
constexpr int kVisibleJump = 26;
/// The seam jumps when it changes this many times as much as any step within the recording.
constexpr std::uint64_t kJumpFactor = 2;
/// Checks that tell how far they have come.
constexpr std::uint64_t kPasses = 3;

}  // namespace

struct FrameChecks::Look {
    std::vector<unsigned char> first;
    std::vector<unsigned char> last;
    /// Largest sum of level changes from one packet to the next.
    std::uint64_t largest_step = 0;
    std::size_t last_packet = 0;

    /// Sum of the changes between two looks, and the largest change with its channel from 1.
    struct Change {
        std::uint64_t sum = 0;
        int largest = 0;
        std::size_t channel = 0;
    };
    static Change change(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b) {
        Change change;
        const std::size_t count = std::min(a.size(), b.size());
        for (std::size_t channel = 0; channel < count; ++channel) {
            const int difference = std::abs(int{a[channel]} - int{b[channel]});
            change.sum += static_cast<std::uint64_t>(difference);
            if (difference > change.largest) {
                change.largest = difference;
                change.channel = channel + 1;
            }
        }
        return change;
    }
};

void FrameChecks::run(const std::function<void(std::uint64_t, std::uint64_t)>& progress) {
    progress_ = progress;
    if (timeline_.packets() == 0) {
        return;
    }
    if (!check_timing()) {
        return;
    }
    if (!fixed_fps()) {
        check_lengths();
        check_rate();
        check_last_frame();
    }
    check_repetitions();
    ++passes_;
    check_endings();
    ++passes_;
    if (options_.loops) {
        check_seam();
    }
}

bool FrameChecks::check_timing() {
    if (fixed_fps() || walk_.timings() != 0) {
        return true;
    }
    std::unordered_set<int> seen;
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        if (!seen.insert(timeline_.universe(packet)).second) {
            add("no-timing", Level::Error, 0, timeline_.packets(),
                "the recording has no timing packet: all its " + counted(timeline_.packets(), "packet") +
                    " are sent at once, and a loop repeats that every 30 ms; give its effect an \"fps\", or "
                    "record it with timing");
            return false;
        }
    }
    // One look without timing stands as long as the loader's last frame, again and again: nothing to mend.
    return true;
}

void FrameChecks::check_lengths() {
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        if (!timeline_.ends_frame(packet)) {
            continue;
        }
        const nanoseconds length = timeline_.length(timeline_.frame_of(packet));
        if (length > kLongFrame) {
            add("huge-frame", Level::Warning, packet, 1,
                "this frame stands " + time_text(length) +
                    ": while the service waits for its end, bus calls that change something wait as well, "
                    "and "
                    "receivers may fall back; repeat the frame at least once a second, or mend its time");
        }
    }
}

std::vector<std::uint64_t> FrameChecks::frame_offsets() const {
    std::vector<std::uint64_t> offsets;
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        if (timeline_.ends_frame(packet)) {
            offsets.push_back(offset(packet));
        }
    }
    return offsets;
}

void FrameChecks::check_rate() {
    // The last frame's time is the loader's own.
    const std::size_t frames = timeline_.frames() - 1;
    const std::size_t window = std::min(frames, kRateFrames);
    const std::vector<std::uint64_t> offsets = frame_offsets();
    /// Frames that belong to a window that is too fast as a whole.
    struct Range {
        std::size_t begin;
        std::size_t end;
    };
    std::vector<Range> fast;
    for (std::size_t frame = 0; window != 0 && frame + window <= frames; ++frame) {
        if (timeline_.start(frame + window) - timeline_.start(frame) >=
            kShortestFrame * static_cast<std::int64_t>(window)) {
            continue;
        }
        if (!fast.empty() && frame <= fast.back().end) {
            fast.back().end = frame + window;
        } else {
            fast.push_back({frame, frame + window});
        }
    }
    const auto is_short = [&](std::size_t frame) { return timeline_.length(frame) < kShortestFrame; };
    for (Range& range : fast) {
        // A window reaches into what is slow on both sides. Some frame in it is short, or it were not fast.
        while (!is_short(range.begin)) {
            ++range.begin;
        }
        while (!is_short(range.end - 1)) {
            --range.end;
        }
        const std::size_t count = range.end - range.begin;
        const nanoseconds mean =
            (timeline_.start(range.end) - timeline_.start(range.begin)) / static_cast<std::int64_t>(count);
        findings_.add({"fast-frames", Level::Warning, offsets[range.begin], range.begin, count,
                       counted(count, "frame") + " from here on " + (count == 1 ? "stands " : "stand ") +
                           time_text(mean) + (count == 1 ? "" : " in the mean") +
                           ": more than the 44 frames a second that a full DMX line carries, so receivers "
                           "leave frames out; record or generate at 44 or less"});
    }
    Finding jitter{"frame-jitter", Level::Note, 0, 0, 0, ""};
    nanoseconds shortest = nanoseconds::max();
    std::size_t next_fast = 0;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        while (next_fast < fast.size() && frame >= fast[next_fast].end) {
            ++next_fast;
        }
        if (!is_short(frame) || (next_fast < fast.size() && frame >= fast[next_fast].begin)) {
            continue;
        }
        ++jitter.count;
        if (timeline_.length(frame) < shortest) {
            shortest = timeline_.length(frame);
            jitter.offset = offsets[frame];
            jitter.frame = frame;
        }
    }
    if (jitter.count != 0) {
        jitter.text =
            counted(jitter.count, "frame") + " among slower ones, this the shortest with " +
            time_text(shortest) +
            ", come faster than 44 a second: jitter of a capture; a receiver may not show every one";
        findings_.add(std::move(jitter));
    }
}

void FrameChecks::check_last_frame() {
    const std::optional<nanoseconds> recorded = walk_.last_timing();
    const nanoseconds played = timeline_.length(timeline_.frames() - 1);
    if (!recorded || *recorded == played || played == 0ns) {
        return;
    }
    const bool held = *recorded > played + kHeldFrame;
    add("last-frame", held ? Level::Warning : Level::Note, timeline_.packets() - 1, 1,
        "the recording gives its last frame " + time_text(*recorded) + ", but the loader always makes it " +
            time_text(played) +
            (held ? ": to hold it, repeat the frame, with the time before the repetition"
                  : ": the duration here counts that"));
}

void FrameChecks::check_repetitions() {
    FindingRun run(findings_);
    const auto end_run = [&] {
        run.end("universe-repeats", Level::Warning, [&](std::uint64_t count) {
            return "in " + counted(count, "frame") + " from here on a universe comes more than once: " +
                   (fixed_fps()
                        ? "\"ppf\" does not fit the recording, and frames are sent together; leave it "
                          "out to have it found"
                        : "timing packets are missing between frames, which are sent at once; put one "
                          "after each frame's last ArtDmx packet");
        });
    };
    // Per universe, the number of the last frame with it, counted from 1.
    std::unordered_map<int, std::size_t> last_frame;
    std::size_t told = 0;
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        tick(packet);
        const std::size_t frame = timeline_.frame_of(packet) + 1;
        std::size_t& last = last_frame[timeline_.universe(packet)];
        // Once a frame; and where a timing packet without a time is the reason, that has been said.
        if (last == frame && told != frame && !walk_.untimed_frames().contains(frame - 1)) {
            told = frame;
            if (run.breaks(frame)) {
                end_run();
            }
            run.add(frame, offset(packet), frame - 1);
        }
        last = frame;
    }
    end_run();
}

void FrameChecks::check_endings() {
    struct Presence {
        nanoseconds last{0};
        nanoseconds longest_interval{0};
        std::size_t last_packet = 0;
    };
    std::map<int, Presence> universes;
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        tick(packet);
        const nanoseconds time = timeline_.start(timeline_.frame_of(packet));
        const auto [place, is_new] = universes.try_emplace(timeline_.universe(packet));
        Presence& presence = place->second;
        if (!is_new) {
            presence.longest_interval = std::max(presence.longest_interval, time - presence.last);
        }
        presence.last = time;
        presence.last_packet = packet;
    }
    for (const auto& [universe, presence] : universes) {
        // Up to the last frame's start: how long that one stands is the same for all.
        const nanoseconds silence = timeline_.start(timeline_.frames() - 1) - presence.last;
        if (silence > kSilence && silence / kSilentIntervals > presence.longest_interval) {
            add("universe-stops", Level::Warning, presence.last_packet, 1,
                "universe " + std::to_string(universe) + " stops here, " + time_text(silence) +
                    " before the last frame: receivers keep its look or fall back; repeat its last packet at "
                    "least once a second, or record it to the end");
        }
    }
}

void FrameChecks::check_seam() {
    std::map<int, Look> looks;
    for (std::size_t packet = 0; packet < timeline_.packets(); ++packet) {
        tick(packet);
        const std::vector<unsigned char>& levels = timeline_.levels(packet);
        const auto [place, is_new] = looks.try_emplace(timeline_.universe(packet));
        Look& look = place->second;
        if (is_new) {
            look.first = levels;
        } else {
            look.largest_step = std::max(look.largest_step, Look::change(look.last, levels).sum);
        }
        look.last = levels;
        look.last_packet = packet;
    }
    for (const auto& [universe, look] : looks) {
        const Look::Change seam = Look::change(look.last, look.first);
        if (seam.largest >= kVisibleJump && seam.sum > kJumpFactor * look.largest_step) {
            add("loop-seam", Level::Warning, look.last_packet, 1,
                "where the loop begins again, universe " + std::to_string(universe) + " jumps by up to " +
                    std::to_string(seam.largest) + " levels (channel " + std::to_string(seam.channel) +
                    "), at least twice as far as anywhere within the recording; end it where it begins, "
                    "fade, "
                    "or play it without loop");
        }
    }
}

void FrameChecks::tick(std::size_t packet) {
    if (progress_) {
        progress_(passes_ * timeline_.packets() + packet, kPasses * timeline_.packets());
    }
}

void FrameChecks::add(const char* kind, Level level, std::size_t packet, std::uint64_t count,
                      std::string text) {
    findings_.add({kind, level, offset(packet), timeline_.frame_of(packet), count, std::move(text)});
}

}  // namespace inspect
