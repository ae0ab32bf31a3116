#pragma once
// A recorded ArtPollReply.

#include <string_view>

#include "support/recording.h"

/// A whole reply of 239 bytes, each field recognisable.
inline Recording poll_reply() {
    using namespace std::string_view_literals;
    Recording reply;
    reply.header(0x2100)
        .raw({10, 0, 0, 7})  // 10 IpAddress
        .raw({0x36, 0x19})   // 14 Port, low byte first
        .raw({0x01, 0x02})   // 16 VersInfo, high byte first
        .raw({3, 4})         // 18 NetSwitch, SubSwitch
        .raw({0x05, 0x06})   // 20 Oem, high byte first
        .raw({7, 8})         // 22 UbeaVersion, Status1
        .raw({0xF0, 0x7F})   // 24 EstaMan, low byte first
        .raw("short"sv)
        .fill_to(44)  // 26 ShortName
        .raw("long"sv)
        .fill_to(108)  // 44 LongName
        .raw("report"sv)
        .fill_to(172)                               // 108 NodeReport
        .raw({0x00, 0x04})                          // 172 NumPorts, high byte first
        .raw({11, 12, 13, 14})                      // 174 PortTypes
        .raw({21, 22, 23, 24})                      // 178 GoodInput
        .raw({31, 32, 33, 34})                      // 182 GoodOutput
        .raw({41, 42, 43, 44})                      // 186 SwIn
        .raw({51, 52, 53, 54})                      // 190 SwOut
        .raw({61, 62, 63})                          // 194 SwVideo, SwMacro, SwRemote
        .raw({71, 72, 73})                          // 197 Spare
        .raw({81})                                  // 200 Style
        .raw({0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5})  // 201 Mac
        .raw({10, 0, 0, 8})                         // 207 BindIp
        .raw({91, 92})                              // 211 BindIndex, Status2
        .fill_to(239, 0x99);                        // 213 Filler
    return reply;
}
