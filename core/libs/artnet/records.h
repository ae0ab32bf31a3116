#pragma once
// The Art-Net packets that a recording may hold, as structures that lie over their wire bytes.
//
// Field names are those of the protocol document. Nothing has an initialiser, so that a 530-byte record can
// be built on the stack without being zeroed first. Only the records whose natural layout would differ from
// the wire's are packed; their wide fields are not to be bound to references.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

static_assert(std::endian::native == std::endian::little,
              "the records lie over little-endian wire fields; a big-endian target needs conversions");

inline constexpr std::size_t kMaxDmxChannels = 512;
/// Bytes of an ArtDmx packet before its channel data.
inline constexpr std::size_t kDmxHeaderSize = 18;
/// Protocol version of every packet that carries one.
inline constexpr std::uint8_t kProtocolVersion = 14;

/// What every packet begins with: "Art-Net" and its terminating zero.
inline constexpr std::array<std::uint8_t, 8> kArtNetIdentifier{'A', 'r', 't', '-', 'N', 'e', 't', 0};

/// Recordings are read in blocks of this size, and what an incomplete last one leaves of the block before is
/// read again: a recording is to be filled up to a multiple of it.
inline constexpr std::uint32_t kRecordingBlockSize = 512;

/// Common front of every packet.
struct ArtHeader {
    /// "Art-Net" and its terminating zero.
    char ID[8];
    /// Little-endian; see opcodes.h.
    std::uint16_t OpCode;
};

/// Asks nodes to report. Nothing is converted.
struct ArtPoll {
    ArtHeader Header;
    std::uint8_t ProtVerHi;
    std::uint8_t ProtVerLo;
    std::uint8_t Flags;
    std::uint8_t DiagPriority;
};

#pragma pack(push, 1)
/// A node's report. The texts are terminated: at most 17, 63 and 63 characters.
struct ArtPollReply {
    ArtHeader Header;
    std::array<std::uint8_t, 4> IpAddress;
    /// As stored, low byte first.
    std::uint16_t Port;
    /// Host order.
    std::uint16_t VersInfo;
    std::uint8_t NetSwitch;
    std::uint8_t SubSwitch;
    /// Host order.
    std::uint16_t Oem;
    std::uint8_t UbeaVersion;
    std::uint8_t Status1;
    /// As stored, low byte first.
    std::uint16_t EstaMan;
    char ShortName[18];
    char LongName[64];
    char NodeReport[64];
    /// Host order.
    std::uint16_t NumPorts;
    std::array<std::uint8_t, 4> PortTypes;
    std::array<std::uint8_t, 4> GoodInput;
    std::array<std::uint8_t, 4> GoodOutput;
    std::array<std::uint8_t, 4> SwIn;
    std::array<std::uint8_t, 4> SwOut;
    std::uint8_t SwVideo;
    std::uint8_t SwMacro;
    std::uint8_t SwRemote;
    std::array<std::uint8_t, 3> Spare;
    std::uint8_t Style;
    std::array<std::uint8_t, 6> Mac;
    std::array<std::uint8_t, 4> BindIp;
    std::uint8_t BindIndex;
    std::uint8_t Status2;
    std::array<std::uint8_t, 26> Filler;
};
#pragma pack(pop)

/// Channel levels of one universe.
struct ArtDmx {
    ArtHeader Header;
    std::uint8_t ProtVerHi;
    std::uint8_t ProtVerLo;
    std::uint8_t Sequence;
    std::uint8_t Physical;
    /// Low byte of the port-address.
    std::uint8_t SubUni;
    /// High byte of the port-address.
    std::uint8_t Net;
    /// Number of channels: high byte first on the wire, host order once parsed.
    std::uint16_t Length;
    /// The first Length bytes are valid, the others undefined.
    std::array<std::uint8_t, kMaxDmxChannels> Data;
};

/// Asks nodes to put out together what they have received of a frame. Nothing is converted.
struct ArtSync {
    ArtHeader Header;
    std::uint8_t ProtVerHi;
    std::uint8_t ProtVerLo;
    std::uint8_t Aux1;
    std::uint8_t Aux2;
};

#pragma pack(push, 1)
/// Maker-defined timing: how long the frame before it stands, in milliseconds.
struct ArtOemVfps {
    ArtHeader Header;
    std::uint32_t Milliseconds;
};

/// Maker-defined timing: how long the frame before it stands, in nanoseconds.
struct ArtOemVfpsNs {
    ArtHeader Header;
    std::uint64_t Nanoseconds;
};
#pragma pack(pop)

/// Remote trigger.
struct ArtTrigger {
    ArtHeader Header;
    /// Host order. One number here, two raw bytes in ArtPoll and ArtDmx: on purpose, users rely on each.
    std::uint16_t ProtVer;
    std::uint8_t Filler1;
    std::uint8_t Filler2;
    /// Host order.
    std::uint16_t OemCode;
    std::uint8_t Key;
    std::uint8_t SubKey;
    /// Never read from a recording; the parser leaves it zero.
    std::array<std::uint8_t, 512> Data;
};

/// Port-address of a packet, all 16 bits of it: SubUni + 256 * Net.
[[nodiscard]] inline std::uint16_t universe_of(const ArtDmx& dmx) noexcept {
    return static_cast<std::uint16_t>(dmx.SubUni | dmx.Net << 8);
}

// The layouts are what the wire holds.
#define ARTNET_AT(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "::" #field " lies elsewhere on the wire")

static_assert(sizeof(ArtHeader) == 10);
ARTNET_AT(ArtHeader, ID, 0);
ARTNET_AT(ArtHeader, OpCode, 8);

static_assert(sizeof(ArtPoll) == 14);
ARTNET_AT(ArtPoll, ProtVerHi, 10);
ARTNET_AT(ArtPoll, ProtVerLo, 11);
ARTNET_AT(ArtPoll, Flags, 12);
ARTNET_AT(ArtPoll, DiagPriority, 13);

static_assert(sizeof(ArtPollReply) == 239);
ARTNET_AT(ArtPollReply, IpAddress, 10);
ARTNET_AT(ArtPollReply, Port, 14);
ARTNET_AT(ArtPollReply, VersInfo, 16);
ARTNET_AT(ArtPollReply, NetSwitch, 18);
ARTNET_AT(ArtPollReply, SubSwitch, 19);
ARTNET_AT(ArtPollReply, Oem, 20);
ARTNET_AT(ArtPollReply, UbeaVersion, 22);
ARTNET_AT(ArtPollReply, Status1, 23);
ARTNET_AT(ArtPollReply, EstaMan, 24);
ARTNET_AT(ArtPollReply, ShortName, 26);
ARTNET_AT(ArtPollReply, LongName, 44);
ARTNET_AT(ArtPollReply, NodeReport, 108);
ARTNET_AT(ArtPollReply, NumPorts, 172);
ARTNET_AT(ArtPollReply, PortTypes, 174);
ARTNET_AT(ArtPollReply, GoodInput, 178);
ARTNET_AT(ArtPollReply, GoodOutput, 182);
ARTNET_AT(ArtPollReply, SwIn, 186);
ARTNET_AT(ArtPollReply, SwOut, 190);
ARTNET_AT(ArtPollReply, SwVideo, 194);
ARTNET_AT(ArtPollReply, SwMacro, 195);
ARTNET_AT(ArtPollReply, SwRemote, 196);
ARTNET_AT(ArtPollReply, Spare, 197);
ARTNET_AT(ArtPollReply, Style, 200);
ARTNET_AT(ArtPollReply, Mac, 201);
ARTNET_AT(ArtPollReply, BindIp, 207);
ARTNET_AT(ArtPollReply, BindIndex, 211);
ARTNET_AT(ArtPollReply, Status2, 212);
ARTNET_AT(ArtPollReply, Filler, 213);

static_assert(sizeof(ArtDmx) == 530);
ARTNET_AT(ArtDmx, ProtVerHi, 10);
ARTNET_AT(ArtDmx, ProtVerLo, 11);
ARTNET_AT(ArtDmx, Sequence, 12);
ARTNET_AT(ArtDmx, Physical, 13);
ARTNET_AT(ArtDmx, SubUni, 14);
ARTNET_AT(ArtDmx, Net, 15);
ARTNET_AT(ArtDmx, Length, 16);
ARTNET_AT(ArtDmx, Data, 18);

static_assert(sizeof(ArtSync) == 14);
ARTNET_AT(ArtSync, ProtVerHi, 10);
ARTNET_AT(ArtSync, Aux2, 13);

static_assert(sizeof(ArtOemVfps) == 14);
ARTNET_AT(ArtOemVfps, Milliseconds, 10);
static_assert(sizeof(ArtOemVfpsNs) == 18);
ARTNET_AT(ArtOemVfpsNs, Nanoseconds, 10);

static_assert(sizeof(ArtTrigger) == 530);
ARTNET_AT(ArtTrigger, ProtVer, 10);
ARTNET_AT(ArtTrigger, Filler1, 12);
ARTNET_AT(ArtTrigger, Filler2, 13);
ARTNET_AT(ArtTrigger, OemCode, 14);
ARTNET_AT(ArtTrigger, Key, 16);
ARTNET_AT(ArtTrigger, SubKey, 17);
ARTNET_AT(ArtTrigger, Data, 18);

#undef ARTNET_AT
