// What a recording may come from: files, directories, FIFOs, streams that give little at a time.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <streambuf>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "parsed.h"

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

class ArtNetParserInputTest : public testing::Test {
protected:
    ArtNetParserInputTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "artnet-XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
    }
    ~ArtNetParserInputTest() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] std::string path(const std::string& name) const { return (directory_ / name).string(); }

    std::filesystem::path directory_;
};

/// Gives the bytes of a text in pieces of 1 to 7 bytes.
class SmallPieces final : public std::streambuf {
public:
    explicit SmallPieces(std::string text) : text_(std::move(text)) {}

private:
    int_type underflow() override {
        if (begin_ == text_.size()) {
            return traits_type::eof();
        }
        const std::size_t size = std::min(1 + refills_++ % 7, text_.size() - begin_);
        setg(&text_[begin_], &text_[begin_], &text_[begin_] + size);
        begin_ += size;
        return traits_type::to_int_type(*gptr());
    }

    std::string text_;
    std::size_t begin_ = 0;
    std::size_t refills_ = 0;
};

/// Fails in the middle, as a medium that is pulled out.
class FailingMedium final : public std::streambuf {
public:
    explicit FailingMedium(std::string text) : text_(std::move(text)) {
        setg(&text_[0], &text_[0], &text_[0] + text_.size());
    }

private:
    int_type underflow() override { throw std::ios_base::failure("medium error"); }

    std::string text_;
};

}  // namespace

TEST_F(ArtNetParserInputTest, AMissingFileIsInputFileNotFoundAndCallsNothing) {
    const Parsed parsed = parse_file(path("missing.bin"));
    EXPECT_EQ(parsed.ec, errc::input_file_not_found);
    EXPECT_EQ(parsed.ec.value(), 1);
    EXPECT_THAT(parsed.events, IsEmpty());
}

TEST_F(ArtNetParserInputTest, AnEmptyFileIsHeaderNotFound) {
    ASSERT_TRUE(Recording{}.write(path("empty.bin")));
    EXPECT_EQ(parse_file(path("empty.bin")).ec.value(), 3);
}

TEST_F(ArtNetParserInputTest, ADirectoryIsHeaderNotFound) {
    const Parsed parsed = parse_file(directory_.string());
    EXPECT_EQ(parsed.ec.value(), 3);
    EXPECT_THAT(parsed.events, IsEmpty());
}

TEST_F(ArtNetParserInputTest, AFileIsReadAsBytesUnchanged) {
    ASSERT_TRUE(Recording{}.dmx(1, {13, 10, 26, 0, 255}).frame_delay(40ms).write(path("show.bin")));
    const Parsed parsed = parse_file(path("show.bin"));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 13 10 26 0 255", "1 ns 40000000"));
    EXPECT_FALSE(parsed.ec);
}

TEST_F(ArtNetParserInputTest, AStreamThatGivesLittleAtATimeDeliversTheSame) {
    Recording recording;
    for (int packet = 0; packet < 90; ++packet) {
        recording.dmx(packet, std::vector<std::uint8_t>(static_cast<std::size_t>(packet), 1))
            .frame_delay_ms(5);
    }
    const Parsed whole = parse_recording(recording);
    ASSERT_GE(whole.events.size(), 180U);
    SmallPieces pieces(recording.text());
    std::istream in(&pieces);
    const Parsed parsed = parse_stream(in);
    EXPECT_EQ(parsed.events, whole.events);
    EXPECT_EQ(parsed.ec, whole.ec);
}

TEST_F(ArtNetParserInputTest, AStreamThatFailsHasEndedThere) {
    FailingMedium medium(Recording{}.dmx(1, {1}).fill_to(508, 0x55).raw("Art-").raw("Net").text());
    std::istream in(&medium);
    const Parsed parsed = parse_stream(in);
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 1"));
    EXPECT_FALSE(parsed.ec);
}

TEST_F(ArtNetParserInputTest, PacketsOfAFifoAreDeliveredBeforeTheFollowingBlockIsWritten) {
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    std::promise<void> first_delivered;
    std::future<void> delivered = first_delivered.get_future();
    std::future_status while_open = std::future_status::deferred;
    std::thread writer([&] {
        std::ofstream out(path("fifo"), std::ios::binary);
        const std::string block = Recording{}.dmx(1, {1}).fill_to(512, 0x55).text();
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
        out.flush();
        // The rest is written only once the first packet has come out at the other end.
        while_open = delivered.wait_for(60s);
        const std::string rest = Recording{}.dmx(2, {2}).fill_to(512, 0x55).text();
        out.write(rest.data(), static_cast<std::streamsize>(rest.size()));
    });
    std::vector<int> universes;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx& dmx) {
        universes.push_back(universe_of(dmx));
        if (universes.size() == 1) {
            first_delivered.set_value();
        }
    };
    std::error_code ec;
    parser.parse(path("fifo").c_str(), ec);
    writer.join();
    EXPECT_EQ(while_open, std::future_status::ready);
    EXPECT_THAT(universes, ElementsAre(1, 2));
    EXPECT_FALSE(ec);
}
