#pragma once

#include <linux/filter.h>
#include <vector>

namespace OvixAgent {

/// A classic BPF program that returns a hash of a received frame's flow, for PACKET_FANOUT_CBPF:
/// of its VLANs, of the label stack to the bottom and of the IP header beneath (RFC 6790 section
/// 2.4: addresses, protocol, and the flow label of IPv6 or ports); without labels of the IP header,
/// or else of the MAC addresses. Nothing in it differs among the frames of one flow, such as TTL or
/// traffic class, and ports are left out of fragments. Of a stack that is deeper than 16 labels,
/// and of a frame that ends early, it is the hash of what was seen.
std::vector<sock_filter> flowProgram();

} // namespace OvixAgent
