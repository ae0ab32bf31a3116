#include "ondra/artnet_node_map.h"

#include <cstddef>
#include <map>
#include <tuple>
#include <utility>

#include <QStringRef>
#include <QVector>

namespace ondra {

namespace {

/// The nodes of one universe while a message is applied, each with how often it is listed. Ordered as the
/// list is, so that a record costs the logarithm of their number: a message may hold a million.
using NodeCounts = std::map<ArtnetNode, std::size_t>;

NodeCounts counts_of(const std::vector<ArtnetNode>& nodes) {
    NodeCounts counts;
    for (const ArtnetNode& node : nodes) {
        ++counts.try_emplace(counts.end(), node)->second;
    }
    return counts;
}

std::vector<ArtnetNode> list_of(const NodeCounts& counts) {
    std::vector<ArtnetNode> nodes;
    for (const auto& [node, count] : counts) {
        nodes.insert(nodes.end(), count, node);
    }
    return nodes;
}

/// A message being applied to a map: takes each universe out at its first record and puts all back at the
/// end.
class Update {
public:
    explicit Update(ArtnetNodeMap& map) : map_(map) {}

    /// Applies one record; anything but four fields is skipped.
    void apply(const QStringRef& record) {
        const QVector<QStringRef> fields = record.split(QLatin1Char(':'));
        if (fields.size() != 4) {
            return;
        }
        const bool present = fields[0] == QLatin1String("1");
        // toInt() gives 0 for what is not a number. A removal, too, creates the universe's list.
        NodeCounts& nodes = universe(fields[1].toInt());
        ArtnetNode node{fields[2].toUtf8().toStdString(), fields[3].toInt()};
        if (present) {
            ++nodes[std::move(node)];
        } else if (const auto gone = nodes.find(node); gone != nodes.end() && --gone->second == 0) {
            nodes.erase(gone);
        }
    }

    void finish() {
        for (const auto& [universe, nodes] : touched_) {
            map_[universe] = list_of(nodes);
        }
    }

private:
    NodeCounts& universe(int number) {
        const auto [entry, added] = touched_.try_emplace(number);
        if (added) {
            if (const auto known = map_.find(number); known != map_.end()) {
                entry->second = counts_of(known->second);
            }
        }
        return entry->second;
    }

    ArtnetNodeMap& map_;
    std::unordered_map<int, NodeCounts> touched_;
};

}  // namespace

bool ArtnetNode::operator<(const ArtnetNode& other) const {
    // std::string compares its bytes as unsigned char and lets a prefix come first.
    return std::tie(ip, port) < std::tie(other.ip, other.port);
}

void update_artnet_node_map(const QString& message, ArtnetNodeMap& map) {
    Update update(map);
    int begin = 0;
    while (begin < message.size()) {
        int end = message.indexOf(QLatin1Char(';'), begin);
        end = end == -1 ? message.size() : end;
        // An empty record has one field.
        update.apply(message.midRef(begin, end - begin));
        begin = end + 1;
    }
    update.finish();
}

}  // namespace ondra
