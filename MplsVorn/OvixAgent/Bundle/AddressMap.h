#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// Replaces IP addresses by others, one to one: two addresses have as many leading bits in common
/// as those that replace them. Which ones is decided by a secret key, bit by bit. Addresses
/// whose meaning is in them (RFC 6890: loopback, link-local, multicast and the like) stay as they
/// are, private ones become private ones of their range, and the bits behind the prefix of a subnet
/// stay, so that its broadcast address stays one.
class AddressMap {
  public:
    using Key = std::array<std::uint64_t, 2>;

    AddressMap(const Key& key, std::vector<Lumo::IpGenPrefix> subnets);
    /// With a key that nobody knows.
    static AddressMap random(std::vector<Lumo::IpGenPrefix> subnets);

    Lumo::IpGenAddr operator()(const Lumo::IpGenAddr& address) const;
    Lumo::IpGenPrefix operator()(const Lumo::IpGenPrefix& prefix) const {
        return Lumo::IpGenPrefix::of((*this)(prefix.address()), prefix.length());
    }

  private:
    bool isKept(const Lumo::IpGenPrefix& above) const;
    bool isFlipped(const Lumo::IpGenPrefix& above) const;

    Key key_;
    std::vector<Lumo::IpGenPrefix> subnets_;
};

} // namespace OvixAgent
