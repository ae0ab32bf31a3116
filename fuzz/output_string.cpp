// Fuzz target: one output of an effect, "universe:ip:port".
#include "output_string.h"

#include <variant>

#include <arpa/inet.h>

#include "any_text.h"
#include "target.h"

namespace fuzz {

namespace {

bool run(Input input) {
    const auto result = parse_output_string(to_text(input));
    if (const auto* const error = std::get_if<OutputError>(&result)) {
        return *error != OutputError::Format;
    }
    const auto& output = std::get<ParsedOutput>(result);
    const Playlist::Address& address = output.address;
    require(output.universe >= -1 && output.universe <= 32767, "a universe is in range");
    require(address.port >= 1024 && address.port <= 65535, "a port is in range");
    in_addr binary{};
    require(inet_pton(AF_INET, address.ip.c_str(), &binary) == 1, "an address is stored in dotted form");
    require(ntohl(binary.s_addr) == address.ipv4, "text and number of an address agree");
    require(address.ipv4 >= 0x01000000 && address.ipv4 >> 24 != 127, "an address is another host's");
    const QString universe = output.universe == -1 ? QStringLiteral("*") : QString::number(output.universe);
    const auto again = parse_output_string(universe + QLatin1Char(':') + QString::fromStdString(address.ip) +
                                           QLatin1Char(':') + QString::number(address.port));
    const auto* const same = std::get_if<ParsedOutput>(&again);
    require(same != nullptr && same->universe == output.universe && same->address.ip == address.ip &&
                same->address.port == address.port,
            "what is stored reads back");
    return true;
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds;
    int number = 0;
    for (const char* text : {"*:10.0.0.5:6454",
                             "0:1.0.0.0:1024",
                             "32767:255.255.255.255:65535",
                             "32768:10.0.0.5:6454",
                             "-1:10.0.0.5:6454",
                             " 1 :10.0.0.5: 6454",
                             "+1:10.5:6454",
                             "1:127.0.0.1:6454",
                             "1:0.1.2.3:6454",
                             "1:10.0.0.5:1023",
                             "1:10.0.0.5:65536",
                             "1:10.0.0.5",
                             "1:10.0.0.5:6454:x",
                             "::",
                             "",
                             "1:0x0a.1:6454",
                             "1:010.0.0.1:6454",
                             "1:::ffff:10.0.0.5:6454",
                             "1:10.0.0.5%eth0:6454",
                             "99999999999:1.2.3.4:6454",
                             "1:4294967295:6454",
                             "1:\xD9\xA1.2.3.4:6454"}) {
        seeds.push_back(with_choice("utf8_" + std::to_string(number++), 0, text));
    }
    seeds.push_back(with_choice("utf16", 1, std::string("*\0:\0001\0.\0002\0:\0001\0000\0002\0004\0", 20)));
    seeds.push_back(with_choice("lone_surrogates", 1, "\x01\xD8:\xDC:\xD8"));
    return seeds;
}

}  // namespace

Target output_string() {
    return {"output_string",
            run,
            seeds,
            80,
            "all=\"*:\"\naddress=\"10.0.0.5\"\nport=\":6454\"\nv6=\"::1\"\nmapped=\"::ffff:10.0.0.5\"\n"
            "hex=\"0x\"\nscope=\"%eth0\"\nunits=\"*\\x00:\\x00\"\n",
            "core/apps/output/repeater/src/output_string.cpp"};
}

}  // namespace fuzz
