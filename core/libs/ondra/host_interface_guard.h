#pragma once
// Whether the board's host interface may be opened.

namespace ondra::device {

/// True when "/dev/vchiq" can be read and written. The vendor's initialisation ends the whole process when it
/// cannot open that device. In a source of its own, so that a test program can bring another answer.
[[nodiscard]] bool host_interface_accessible();

}  // namespace ondra::device
