#pragma once

#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"

namespace OvixFpm {

/// The neighbour that a next hop leads to, or none, and the interface; either may be missing, not
/// both.
class Way {
  public:
    static constexpr std::uint32_t maxInterface = 0x7fffffff;

    /// `gateway` of no family: what is routed is sent out of the interface as it is. `interface` is
    /// the kernel's index, 0 for none. Throws RangeError when neither is there, for an unspecified
    /// gateway (0.0.0.0 or ::), and for an index beyond `maxInterface`.
    Way(const Lumo::IpGenAddr& gateway, std::uint32_t interface);

    bool hasGateway() const noexcept { return gateway_.family() != Lumo::IpFamily::none; }
    const Lumo::IpGenAddr& gateway() const noexcept { return gateway_; }
    std::uint32_t interface() const noexcept { return interface_; }

    friend bool operator==(const Way&, const Way&) noexcept = default;

  private:
    Lumo::IpGenAddr gateway_;
    std::uint32_t interface_;
};

/// One next hop of a route. Its labels, outermost first, take the place of the incoming one in a
/// label route and are pushed in an IP route; none means that the label is popped (the neighbour
/// advertised implicit null), respectively that nothing is pushed. Explicit null is a label like
/// any other.
///
/// A label route whose next hop is only an interface, without gateway and labels, is kept as such:
/// the interface may be a VRF device, in whose table what is popped is to be looked up.
class NextHop {
  public:
    static constexpr std::uint16_t maxWeight = 256;

    /// Throws RangeError for a weight of 0 or beyond `maxWeight`, and for implicit null among the
    /// labels, which never stands in a stack (RFC 3032).
    NextHop(std::vector<Lumo::MplsLabel> labels, const Way& way, std::uint16_t weight = 1);

    const std::vector<Lumo::MplsLabel>& labels() const noexcept { return labels_; }
    const Way& way() const noexcept { return way_; }
    std::uint16_t weight() const noexcept { return weight_; }

    bool isInterfaceOnly() const noexcept { return labels_.empty() && !way_.hasGateway(); }

    friend bool operator==(const NextHop&, const NextHop&) = default;

  private:
    std::vector<Lumo::MplsLabel> labels_;
    Way way_;
    std::uint16_t weight_;
};

/// The next hops of a route, in the order they were given; at least one.
class NextHops {
  public:
    /// Throws RangeError for an empty list.
    explicit NextHops(std::vector<NextHop> hops);

    auto begin() const noexcept { return hops_.begin(); }
    auto end() const noexcept { return hops_.end(); }
    std::size_t size() const noexcept { return hops_.size(); }
    const NextHop& front() const noexcept { return hops_.front(); }

    friend bool operator==(const NextHops&, const NextHops&) = default;

  private:
    std::vector<NextHop> hops_;
};

} // namespace OvixFpm
