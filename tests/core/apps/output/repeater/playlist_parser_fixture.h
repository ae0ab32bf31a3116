#pragma once
// A data root with description files, for the tests of PlaylistParser.

#include <string>

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "exceptions.h"
#include "playlist_parser.h"
#include "support/captured_log.h"

class PlaylistParserFixture : public testing::Test {
protected:
    static constexpr const char* kDescPath = "playlists/playlists.json";

    PlaylistParserFixture() { QDir(root_.path()).mkdir(QStringLiteral("playlists")); }

    void write(const std::string& name, const std::string& content) const {
        QFile file(QString::fromStdString(path(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content.data(), static_cast<qint64>(content.size())),
                  static_cast<qint64>(content.size()));
    }
    void write_desc(const std::string& json) const { write(kDescPath, json); }
    void write_effects(int id, const std::string& json) const {
        write("playlists/" + std::to_string(id) + ".json", json);
    }

    [[nodiscard]] std::string path(const std::string& name) const {
        return root_.path().toStdString() + "/" + name;
    }

    void parse_desc(int id, Playlist& playlist) const {
        playlist.set_root_dir(root_.path());
        PlaylistParser().parse_desc(id, QString::fromLatin1(kDescPath), playlist);
    }
    /// Reads the effects of playlist 3 after a description that says nothing else.
    void parse_effects(Playlist& playlist) const {
        write_desc(R"([{"Id": 3}])");
        parse_desc(3, playlist);
        PlaylistParser().parse_effects(playlist);
    }

    /// The message of the exception of the expected type, else what came instead.
    template <typename Exception, typename Action>
    static std::string thrown(Action action) {
        try {
            action();
        } catch (const Exception& exception) {
            return exception.what();
        } catch (const std::exception& exception) {
            return std::string("another exception: ") + exception.what();
        }
        return "no exception";
    }
    template <typename Exception>
    std::string thrown_by_desc(int id) const {
        Playlist playlist;
        return thrown<Exception>([&] { parse_desc(id, playlist); });
    }
    template <typename Exception>
    std::string thrown_by_effects() const {
        Playlist playlist;
        return thrown<Exception>([&] { parse_effects(playlist); });
    }
    /// Level of the line that parse_desc() of playlist `id` writes; exceptions do not matter.
    int desc_level(const std::string& line, int id) const {
        return level_of(line, [&] { static_cast<void>(thrown_by_desc<std::runtime_error>(id)); });
    }
    int effects_level(const std::string& line) const {
        return level_of(line, [&] { static_cast<void>(thrown_by_effects<std::runtime_error>()); });
    }

    QTemporaryDir root_;
};
