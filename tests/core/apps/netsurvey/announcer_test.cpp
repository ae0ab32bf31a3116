// What a player's own map of nodes makes of the messages, whatever comes, goes and begins anew.
#include "announcer.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "models/random.h"
#include "node_table.h"
#include "ondra/artnet_node_map.h"
#include "replies.h"

namespace netsurvey {
namespace {

using namespace std::chrono_literals;

/// The records of a player's map, a record that is listed twice being there twice.
std::multiset<NodeRecord> records_of(const ondra::ArtnetNodeMap& map) {
    std::multiset<NodeRecord> records;
    for (const auto& [universe, nodes] : map) {
        for (const ondra::ArtnetNode& node : nodes) {
            records.insert(
                {static_cast<std::uint16_t>(universe), ip(node.ip), static_cast<std::uint16_t>(node.port)});
        }
    }
    return records;
}

/// A player, as far as nodes go.
struct Player {
    ondra::ArtnetNodeMap map;

    void hear(const std::string& message) {
        ondra::update_artnet_node_map(QString::fromStdString(message), map);
    }
};

Changes change(bool present, const NodeRecord& record) {
    return {{present, record}};
}

TEST(AnnouncerTest, ChangesAreWordedAsTheyAreToAPlayerOfOurTime) {
    Announcer announcer;
    EXPECT_EQ(announcer.announce(change(true, record(3, "10.0.0.5"))), "1:3:10.0.0.5:6454");
    EXPECT_EQ(announcer.announce(change(false, record(3, "10.0.0.5"))), "0:3:10.0.0.5:6454");
    EXPECT_EQ(announcer.announce({}), "");
}

TEST(AnnouncerTest, AllRecordsGoOutAsRemovalAndAdditionInOneMessage) {
    Announcer announcer;
    const std::vector<NodeRecord> present{record(0, "10.0.0.5"), record(1, "10.0.0.5")};
    EXPECT_EQ(announcer.announce_all(present),
              "0:0:10.0.0.5:6454;1:0:10.0.0.5:6454;0:1:10.0.0.5:6454;1:1:10.0.0.5:6454");
    EXPECT_EQ(announcer.announce_all({}), "");
}

TEST(AnnouncerTest, APlayerThatWasThereBeforeUsHearsOfNothingTwiceEvenWhenNothingIsRemembered) {
    Player player;
    player.hear("1:3:10.0.0.5:6454");
    Announcer announcer;
    announcer.player_was_there();
    player.hear(announcer.announce(change(true, record(3, "10.0.0.5"))));
    EXPECT_EQ(records_of(player.map), (std::multiset<NodeRecord>{record(3, "10.0.0.5")}));
    // From then on each record's changes are what they are.
    EXPECT_EQ(announcer.announce(change(false, record(3, "10.0.0.5"))), "0:3:10.0.0.5:6454");
    EXPECT_EQ(announcer.announce(change(true, record(3, "10.0.0.5"))), "1:3:10.0.0.5:6454");
    announcer.player_has_gone();
    EXPECT_EQ(announcer.announce(change(true, record(4, "10.0.0.5"))), "1:4:10.0.0.5:6454");
}

/// Nodes, a discovery and a player that come and go at random, beside a plain account of what is there.
class World {
public:
    explicit World(std::uint64_t seed) : random_(seed) { start_discovery(); }

    void step() {
        now_ += std::chrono::milliseconds(random_.between(0, 1500));
        if (now_ >= next_poll_) {
            next_poll_ = now_ + 2750ms;
            table_->count_poll();
            ++polls_;
        }
        switch (random_.between(0, 11)) {
            case 0:
                stop_player();
                break;
            case 1:
                start_player();
                break;
            case 2:
                restart_discovery();
                break;
            case 3:
                add_static();
                break;
            case 4:
            case 5:
                answer_ping();
                break;
            default:
                answer_poll();
        }
        expire();
    }

    /// Nothing where no player is to be compared.
    [[nodiscard]] std::optional<std::multiset<NodeRecord>> players_view() const {
        return player_ && in_order_ ? std::optional(records_of(player_->map)) : std::nullopt;
    }
    [[nodiscard]] std::multiset<NodeRecord> truth() const {
        std::set<NodeRecord> records = static_;
        for (const auto& [key, heard] : heard_) {
            for (const std::uint16_t universe : heard.universes) {
                records.insert({universe, std::get<0>(key), artnet::kPort});
            }
        }
        return {records.begin(), records.end()};
    }
    [[nodiscard]] std::multiset<NodeRecord> tables_view() const {
        const std::vector<NodeRecord> records = table_->present();
        return {records.begin(), records.end()};
    }

private:
    /// Node, bind index, and what distinguishes replies without one, or a memory.
    using Key = std::tuple<std::uint32_t, int, std::vector<std::uint16_t>>;
    struct Heard {
        std::vector<std::uint16_t> universes;
        NodeTable::Clock::time_point time;
        int polls;
    };
    static constexpr int kMemory = -1;

    void start_discovery() {
        table_ = std::make_unique<NodeTable>(10s);
        announcer_ = std::make_unique<Announcer>();
    }

    /// Leaves nothing behind but its memory and what the player holds.
    void restart_discovery() {
        const std::vector<NodeRecord> memory = table_->present();
        start_discovery();
        heard_.clear();
        static_.clear();
        for (const NodeRecord& record : memory) {
            static_cast<void>(table_->remember(record, now_));
            heard_[{record.address, kMemory, {record.universe}}] = {{record.universe}, now_, polls_};
        }
        if (player_) {
            announcer_->player_was_there();
            pinged_ = true;
        }
    }

    void start_player() {
        if (!player_) {
            player_ = std::make_unique<Player>();
            pinged_ = true;
            in_order_ = false;
            // Whether it hears what is sent until it has answered is a matter of microseconds.
            listens_ = random_.chance(50);
        }
    }

    void stop_player() {
        if (player_) {
            player_.reset();
            announcer_->player_has_gone();
            pinged_ = false;
        }
    }

    void answer_ping() {
        if (player_ && pinged_) {
            pinged_ = false;
            listens_ = true;
            in_order_ = true;
            player_->hear(announcer_->announce_all(table_->present()));
        }
    }

    void announce(const Changes& changes) {
        const std::string message = announcer_->announce(changes);
        if (player_ && listens_) {
            player_->hear(message);
        }
    }

    void add_static() {
        const std::uint32_t address = ip("10.0.0.1") + static_cast<std::uint32_t>(random_.between(0, 2));
        const auto universe = static_cast<std::uint16_t>(random_.between(0, 5));
        static_.insert({universe, address, artnet::kPort});
        announce(table_->add_static({address, artnet::kPort, "", {universe}}));
    }

    void answer_poll() {
        const std::uint32_t address = ip("10.0.0.1") + static_cast<std::uint32_t>(random_.between(0, 3));
        const int bind_index = random_.between(0, 2);
        std::vector<std::uint16_t> universes;
        for (std::uint16_t universe = 0; universe < 6 && universes.size() < 4; ++universe) {
            if (random_.chance(35)) {
                universes.push_back(universe);
            }
        }
        heard_[{address, bind_index, bind_index == 0 ? universes : std::vector<std::uint16_t>{}}] = {
            universes, now_, polls_};
        announce(table_->hear(
            reply_of(posix::ipv4_text(address), universes, static_cast<std::uint8_t>(bind_index)), address,
            now_));
    }

    void expire() {
        std::erase_if(heard_, [this](const auto& item) {
            return now_ - item.second.time >= 10s && polls_ - item.second.polls >= 2;
        });
        announce(table_->expire(now_));
    }

    model::Random random_;
    NodeTable::Clock::time_point now_{1000h};
    NodeTable::Clock::time_point next_poll_{};
    int polls_ = 0;
    std::unique_ptr<NodeTable> table_;
    std::unique_ptr<Announcer> announcer_;
    std::unique_ptr<Player> player_;
    /// The player has been asked and has not answered yet.
    bool pinged_ = false;
    /// It hears what is sent.
    bool listens_ = false;
    /// It has been told of everything once.
    bool in_order_ = false;
    std::map<Key, Heard> heard_;
    std::set<NodeRecord> static_;
};

TEST(AnnouncerTest, ThePlayersMapIsThePlainSetOfPresentNodesWhateverBeginsAnew) {
    const model::Seeds seeds("NETSURVEY", 60);
    std::size_t compared = 0;
    for (std::uint64_t seed = seeds.first; seed < seeds.first + seeds.count; ++seed) {
        World world(seed);
        for (int i = 0; i < 400; ++i) {
            world.step();
            ASSERT_EQ(world.tables_view(), world.truth()) << "step " << i << ", " << seeds.replay(seed);
            if (const auto view = world.players_view()) {
                ASSERT_EQ(*view, world.truth()) << "step " << i << ", " << seeds.replay(seed);
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, seeds.count * 50) << "a player is there most of the time";
}

}  // namespace
}  // namespace netsurvey
