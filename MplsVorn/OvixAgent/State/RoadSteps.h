#pragma once

#include <chrono>
#include <span>
#include <string>

#include "Ovix/packet/PacketContext.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "Ovix/trace/RoadNotes.h"
#include "State/Fate.h"
#include "State/Fib.h"
#include "State/PortTable.h"
#include "Wire/View.h"

namespace OvixAgent {

std::string macText(const Lumo::EthAddr& mac);

/// The headers from one of that kind on, in words: labels with traffic class and TTL, then what is
/// beneath them.
std::string headersText(Ovix::PktHdrType first, Wire::Bytes bytes);

/// The agent's notes about a frame: to be called while Ovix::RoadNotes are on.
namespace RoadSteps {
void takenIn(const Port& port, std::size_t tagsRemoved);
/// The next hop that a handler has chosen; the name of the port is that of its interface.
void nexthop(const Ovix::RoutingNexthop& nexthop, const PortTable& ports);
/// The packet as it is at a point of its road.
void headers(std::string_view when, const Ovix::PacketContext& packet);
/// The same of what a pseudowire's label was on top of.
void payload(std::string_view when, Wire::Bytes payload, bool hasControlWord);
void route(std::string_view vrf, const Fib& fib, const Lumo::IpGenAddr& address);
/// One of several members, each with its weight, by a flow's hash.
void choice(std::string_view of, std::size_t chosen, std::uint32_t hash,
            std::span<const std::uint64_t> weights);
/// Null: not known.
void neighbour(const Lumo::IpGenAddr& address, const Port& port, const Lumo::EthAddr* mac);
void controlWord(Wire::Bytes payload, bool isExpected);
void mtu(const Port& port, std::size_t length, std::uint32_t mtu);
/// It is held until the neighbour's MAC address is known.
void waits(const Lumo::IpGenAddr& neighbour, const Port& port, std::chrono::seconds longest);
void fate(const Fate& fate);
} // namespace RoadSteps

} // namespace OvixAgent
