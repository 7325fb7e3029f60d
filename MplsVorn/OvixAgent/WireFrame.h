#pragma once

#include "Frame.h"
#include "LiveCounts.h"
#include "PacketRing.h"

namespace OvixAgent {

/// Makes of a frame in the receive ring the frame that was on the wire, in place: its outermost tag
/// is written before its EtherType again, and a checksum that a sender on this host has left to the
/// hardware is completed. False when no such frame can be had; the reason is counted.
bool toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept;

} // namespace OvixAgent
