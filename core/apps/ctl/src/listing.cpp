#include "listing.h"

#include <cstdio>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "cli/program.h"
#include "show.h"

namespace ctl {

int list_playlists(const std::string& directory, bool json) {
    const Show show = read_show(directory);
    QJsonArray array;
    for (const ShowPlaylist& playlist : show.playlists) {
        QJsonArray recordings;
        for (const Playlist::Effect& effect : playlist.effects) {
            recordings.append(effect.path);
        }
        array.append(QJsonObject{{QStringLiteral("playlist_id"), playlist.id},
                                 {QStringLiteral("loop"), playlist.loop},
                                 {QStringLiteral("recordings"), recordings}});
        if (!json) {
            std::printf("%d\t%s\teffects: %d\n", playlist.id, playlist.loop ? "loops" : "ends",
                        static_cast<int>(recordings.size()));
        }
    }
    if (json) {
        std::printf("%s\n", QJsonDocument(array).toJson(QJsonDocument::Compact).constData());
    }
    for (const std::string& problem : show.problems) {
        std::fprintf(stderr, "cuewrightctl: %s\n", problem.c_str());
    }
    return show.problems.empty() ? cli::kExitGood : cli::kExitProblem;
}

}  // namespace ctl
