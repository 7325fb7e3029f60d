#pragma once

#include "Explain/FrameWords.h"

namespace OvixAgent {

/// Whether a text begins with a word for a header.
bool beginsWithHeader(std::string_view text) noexcept;

/// The frame that words describe, as readFrame() says. Checksums and lengths are right, the last of
/// the labels is the bottom of their stack, and a stack without anything beneath gets an IPv4
/// packet between documentation addresses (RFC 5737).
Tessel::Result<GivenFrame> buildFrame(std::string_view text, PortIndex port,
                                      const FrameDefaults& defaults);

} // namespace OvixAgent
