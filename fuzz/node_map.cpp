// Fuzz target: the discovery service's messages.
#include <algorithm>

#include "any_text.h"
#include "ondra/artnet_node_map.h"
#include "target.h"

namespace fuzz {

namespace {

bool run(Input input) {
    const QString message = to_text(input);
    ondra::ArtnetNodeMap map;
    ondra::update_artnet_node_map(message, map);
    std::size_t nodes = 0;
    for (const auto& [universe, list] : map) {
        require(std::is_sorted(list.begin(), list.end()), "nodes are sorted");
        nodes += list.size();
    }
    ondra::ArtnetNodeMap one_by_one;
    QString record;
    std::size_t records = 0;
    for (const QChar unit : message + QLatin1Char(';')) {
        if (unit != QLatin1Char(';')) {
            record += unit;
            continue;
        }
        ondra::update_artnet_node_map(record, one_by_one);
        ++records;
        record.clear();
    }
    require(nodes <= records, "a record adds one node at most");
    require(map == one_by_one, "a message is its records, one by one");
    ondra::update_artnet_node_map(message, map);
    return !map.empty();
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds;
    int number = 0;
    for (const char* text :
         {"1:0:10.0.0.5:6454;1:1:10.0.0.5:6454;0:0:10.0.0.7:6454", "1:5:10.0.0.9:6454;1:5:10.0.0.10:6454",
          "1:5:10.0.0.9:6454;1:5:10.0.0.9:6454;0:5:10.0.0.9:6454", "0:7:10.0.0.1:6454", "1:5:10.0.0.9",
          "1:5:10.0.0.9:6454:x", ";;1:5:10.0.0.9:6454;", "1:x:10.0.0.9:y", "2:5:10.0.0.9:6454", "",
          ":::", ";", "1:-2147483648:a:2147483647", "1:99999999999:\xC3\xA9:-1", " 1: 5 :10.0.0.9: 6454 "}) {
        seeds.push_back(with_choice("utf8_" + std::to_string(number++), 0, text));
    }
    seeds.push_back(with_choice("lone_surrogates", 1, std::string("1\0:\0001\0:\0\0\xD8:\0005\0", 14)));
    return seeds;
}

}  // namespace

Target node_map() {
    return {
        "node_map",
        run,
        seeds,
        300,
        "add=\"1:5:10.0.0.9:6454;\"\nremove=\"0:5:10.0.0.9:6454;\"\nempty=\":::\"\nunits=\"1\\x00:\\x00\"\n",
        "core/libs/ondra/artnet_node_map.cpp"};
}

}  // namespace fuzz
