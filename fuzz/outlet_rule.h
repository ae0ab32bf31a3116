#pragma once
// What the forwarder's options may make of one packet, told plainly.

#include <cstdint>

#include "target.h"

namespace fuzz {

/**
 * Lets `packet` (530 bytes that begin as an Art-Net packet) arrive twice at an outlet and go silent, and
 * requires what comes out to be what the options say.
 *
 * @param options  bits: own sequence numbers, ArtSync, trimming, re-sending, pacing
 */
void require_outlet_follows_its_options(Input packet, std::uint8_t options);

}  // namespace fuzz
