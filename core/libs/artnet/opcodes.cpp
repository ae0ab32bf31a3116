#include "artnet/opcodes.h"

#include <algorithm>
#include <array>
#include <utility>

namespace opcode {

namespace {

constexpr std::array<std::pair<std::uint16_t, std::string_view>, 21> kNames{{
    {kOemVfpsNs, "timing-ns"},  {kOemVfps, "timing-ms"},
    {kPoll, "ArtPoll"},         {kPollReply, "ArtPollReply"},
    {0x2300, "ArtDiagData"},    {0x2400, "ArtCommand"},
    {kDmx, "ArtDmx"},           {0x5100, "ArtNzs"},
    {kSync, "ArtSync"},         {0x6000, "ArtAddress"},
    {0x7000, "ArtInput"},       {0x8000, "ArtTodRequest"},
    {0x8100, "ArtTodData"},     {0x8200, "ArtTodControl"},
    {0x8300, "ArtRdm"},         {0x8400, "ArtRdmSub"},
    {0x9700, "ArtTimeCode"},    {0x9800, "ArtTimeSync"},
    {kTrigger, "ArtTrigger"},   {0xF800, "ArtIpProg"},
    {0xF900, "ArtIpProgReply"},
}};

}  // namespace

std::string_view name(std::uint16_t code) noexcept {
    const auto* const found =
        std::ranges::find_if(kNames, [code](const auto& candidate) { return candidate.first == code; });
    return found == kNames.end() ? std::string_view() : found->second;
}

}  // namespace opcode
