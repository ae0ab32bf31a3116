#include "ondra/artnet_node_map.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include <QStringList>

namespace ondra {

namespace {

/// Applies one record; anything but four fields is skipped.
void apply_record(const QString& record, ArtnetNodeMap& map) {
    const QStringList fields = record.split(QLatin1Char(':'));
    if (fields.size() != 4) {
        return;
    }
    const bool present = fields[0] == QLatin1String("1");
    // toInt() gives 0 for what is not a number. A removal, too, creates the universe's list.
    std::vector<ArtnetNode>& nodes = map[fields[1].toInt()];
    ArtnetNode node{fields[2].toStdString(), fields[3].toInt()};
    if (present) {
        nodes.push_back(std::move(node));
    } else if (const auto gone = std::find(nodes.begin(), nodes.end(), node); gone != nodes.end()) {
        nodes.erase(gone);
    }
    // Sorted here, so that sending needs only to skip equal neighbours.
    std::sort(nodes.begin(), nodes.end());
}

}  // namespace

bool ArtnetNode::operator<(const ArtnetNode& other) const {
    // std::string compares its bytes as unsigned char and lets a prefix come first.
    return std::tie(ip, port) < std::tie(other.ip, other.port);
}

void update_artnet_node_map(const QString& message, ArtnetNodeMap& map) {
    const QStringList records = message.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString& record : records) {
        apply_record(record, map);
    }
}

}  // namespace ondra
