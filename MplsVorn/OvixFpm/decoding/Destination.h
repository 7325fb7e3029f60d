#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"

namespace OvixFpm {

/// The label that a label route is for. A special-purpose label (0 to 15, RFC 7274) is nobody's to
/// route and throws RangeError.
class IncomingLabel {
  public:
    explicit IncomingLabel(Lumo::MplsLabel label);

    Lumo::MplsLabel label() const noexcept { return label_; }

    friend auto operator<=>(const IncomingLabel&, const IncomingLabel&) noexcept = default;

  private:
    Lumo::MplsLabel label_;
};

/// What an IP route is for: a prefix in a routing table of the kernel. That alone identifies the
/// route, so a withdrawal is no more than this.
class Destination {
  public:
    /// Throws RangeError for the table 0, an address of no family, a length beyond the address, and
    /// bits of the address beyond the length.
    Destination(std::uint32_t table, const Lumo::IpGenAddr& prefix, std::uint8_t length);

    std::uint32_t table() const noexcept { return table_; }
    Lumo::IpFamily family() const noexcept { return prefix_.family(); }
    const Lumo::IpGenAddr& prefix() const noexcept { return prefix_; }
    std::uint8_t length() const noexcept { return length_; }

    friend bool operator==(const Destination&, const Destination&) noexcept = default;
    /// By table, family, prefix and length, so that a more specific prefix follows its parent.
    friend std::strong_ordering operator<=>(const Destination& left,
                                            const Destination& right) noexcept;

  private:
    Lumo::IpGenAddr prefix_;
    std::uint32_t table_;
    std::uint8_t length_;
};

} // namespace OvixFpm
