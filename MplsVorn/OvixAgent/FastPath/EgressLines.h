#pragma once

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/Pkt.h"
#include "State/ForwardingTables.h"
#include "State/LinkHeader.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

/// A next hop on a port, whose neighbour need not be known.
struct EgressKey {
    PortIndex port = 0;
    std::uint32_t mtu = 0;   ///< of the next hop; 0: the port's
    std::uint16_t vlan = 0;  ///< to send with; 0: as the port does
    bool isGroup = false;    ///< all stations that take the packet's group address (RFC 5332)
    Lumo::IpGenAddr address; ///< of no family: the only neighbour on the link

    bool operator==(const EgressKey&) const = default;
};

/// What is needed to send to a next hop; one cache line.
struct alignas(64) EgressLine {
    /// No packet with its link header is longer than a packet may be.
    static constexpr std::uint32_t longest =
        static_cast<std::uint32_t>(Lumo::Pkt::maxBytes - Wire::Ethernet::size);

    Port* port = nullptr;
    std::uint32_t mtu = 0;       ///< of packets that can be sent now: 0, none
    std::uint32_t plainMost = 0; ///< of frames without tags, likewise
    std::array<std::uint8_t, 2 * Lumo::EthAddr().size()> macs{}; ///< the neighbour's, the port's
    std::uint8_t tagBytes = 0;
    std::array<std::uint8_t, 8> tags{}; ///< to send with frames that came without

    EgressLine() = default;
    /// To the neighbour's `mac`; null when it is not known. `nexthopMtu` of 0: the port's.
    EgressLine(Port& by, const Lumo::EthAddr* mac, std::uint32_t nexthopMtu,
               const VlanTags& sent) noexcept;

    /// Whether a packet of that length, at least 1, can be sent now.
    bool takes(std::uint32_t length) const noexcept { return length <= mtu; }
    /// The same of a whole frame, which needs no tags.
    bool takesFrame(std::uint32_t size) const noexcept { return size <= plainMost; }
};

/// The next hops in use, by number.
class EgressLines {
  public:
    /// The tables must outlive it.
    explicit EgressLines(ForwardingTables& tables) noexcept : tables_(&tables) {}

    std::uint32_t numberOf(const EgressKey& key);
    const EgressLine& operator[](std::uint32_t number) const noexcept { return lines_[number]; }

    /// Whether neighbours or ports have changed.
    bool isOutdated() const noexcept { return seen_ != changes(); }
    /// To be called before each use: takes over what has changed of neighbours.
    void refresh() {
        if (isOutdated()) [[unlikely]] {
            resolveAll();
        }
    }
    /// All numbers given so far are void.
    void clear() noexcept;
    /// There are so many that those no longer used should go: clear() is then to be called.
    bool isFull() const noexcept { return lines_.size() >= most; }

  private:
    static constexpr std::size_t most = std::size_t{1} << 16U;

    struct Hash {
        std::size_t operator()(const EgressKey& key) const noexcept;
    };

    std::uint64_t changes() const noexcept {
        return tables_->neighbours.changes() + tables_->ports.changes();
    }
    void resolveAll();
    EgressLine resolve(const EgressKey& key) const;

    ForwardingTables* tables_;
    std::vector<EgressLine> lines_;
    std::vector<EgressKey> keys_; ///< of the lines
    std::unordered_map<EgressKey, std::uint32_t, Hash> numbers_;
    std::uint64_t seen_ = 0; ///< changes()
};

} // namespace OvixAgent
