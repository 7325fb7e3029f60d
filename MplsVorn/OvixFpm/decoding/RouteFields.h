#pragma once

#include <linux/mpls_iptunnel.h>
#include <linux/rtnetlink.h>

#include "framing/Attributes.h"

/// The attributes of a route message that are read; all others have no effect.
namespace OvixFpm::Fields {

inline constexpr Field destination{RTA_DST, "RTA_DST"};
inline constexpr Field source{RTA_SRC, "RTA_SRC"};
inline constexpr Field table{RTA_TABLE, "RTA_TABLE"};
inline constexpr Field nextHopGroup{RTA_NH_ID, "RTA_NH_ID"};
inline constexpr Field ttlPropagate{RTA_TTL_PROPAGATE, "RTA_TTL_PROPAGATE"};

// Of one next hop, in the message itself or in an entry of RTA_MULTIPATH.
inline constexpr Field interface { RTA_OIF, "RTA_OIF" };
inline constexpr Field gateway{RTA_GATEWAY, "RTA_GATEWAY"};
inline constexpr Field via{RTA_VIA, "RTA_VIA"};
inline constexpr Field newDestination{RTA_NEWDST, "RTA_NEWDST"};
inline constexpr Field encapType{RTA_ENCAP_TYPE, "RTA_ENCAP_TYPE"};
inline constexpr Field encap{RTA_ENCAP, "RTA_ENCAP"};
inline constexpr Field multipath{RTA_MULTIPATH, "RTA_MULTIPATH"};

// Within RTA_ENCAP.
inline constexpr Field pushed{MPLS_IPTUNNEL_DST, "MPLS_IPTUNNEL_DST"};

} // namespace OvixFpm::Fields
