#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Tables/TableReader.h"
#include "Tables/TableWriter.h"
#include "Tessel/Words.h"

namespace L2 {

/// An Ethernet pseudowire (RFC 4448) as a control plane has agreed on it with the other end, or has
/// not.
struct Pseudowire {
    /// Why it carries nothing; `up` when it does.
    enum class State : std::uint8_t {
        up = 1,
        noLocalLabel,    ///< none given to the neighbour yet
        noRemoteLabel,   ///< the neighbour announces none, or has withdrawn it
        invalidLabel,    ///< that the neighbour announces: reserved, or of more than 20 bits
        mtuMismatch,     ///< of the two circuits (RFC 4447 section 5.5)
        otherType,       ///< not raw Ethernet on both sides
        noCircuit,       ///< no attachment circuit is configured
        notPointToPoint, ///< several circuits or pseudowires, which need a bridge
        down,            ///< by one of the ends
        noDaemon,        ///< nobody signals it any more
    };

    static constexpr std::uint32_t minLabel = 16; ///< those below are reserved (RFC 3032)
    static constexpr std::size_t maxText = 100;
    static constexpr std::size_t maxNextHops = 16;

    std::string name;              ///< 1 to maxText bytes; different for each
    std::string circuit;           ///< name of the interface; empty without one
    Lumo::IpGenAddr neighbour;     ///< that the tunnel leads to
    std::uint32_t id = 0;          ///< by which both ends know it
    std::uint32_t localLabel = 0;  ///< that frames come with; 0: none
    std::uint32_t remoteLabel = 0; ///< that they are sent with, as announced; 0: none
    bool controlWord = true;
    std::uint16_t localMtu = 0;  ///< 0: not known
    std::uint16_t remoteMtu = 0; ///< likewise
    State state = State::down;
    std::string why; ///< in the control plane's own words; may be empty, at most maxText bytes
    /// Addresses of the neighbour on links of this device: only a route by one of them is a tunnel
    /// without labels (penultimate hop popping, RFC 3031). At most maxNextHops.
    std::vector<Lumo::IpGenAddr> adjacent;

    bool isUp() const noexcept { return state == State::up; }
    friend bool operator==(const Pseudowire&, const Pseudowire&) = default;
};

/// The pseudowires that a control plane publishes.
namespace Pseudowires {

inline constexpr std::string_view mountPath = "l2/pseudowires";
inline constexpr std::string_view typeName = "L2::Pseudowires";

/// All of them, as the generation held by the reader has them. Throws Tessel::CorruptionDetected
/// for a damaged one, and Tessel::SnapshotLost.
std::vector<Pseudowire> read(const Tessel::TableReader& tables);

} // namespace Pseudowires

/// The writing side: makes the changes of a batch.
class PseudowiresWriter {
  public:
    PseudowiresWriter(Tessel::TableWriter& tables, std::size_t table) noexcept
        : tables_(&tables), table_(table) {}

    /// Replaces what is there. Texts that are too long are cut; more than a thousand pseudowires
    /// throw std::length_error.
    void pseudowiresAre(const std::vector<Pseudowire>& all);
    /// What is there, without what is damaged.
    std::vector<Pseudowire> all() const;

  private:
    Tessel::TableWriter* tables_;
    std::size_t table_;
};

} // namespace L2

template <>
inline constexpr auto
    Tessel::words<L2::Pseudowire::State> = std::to_array<Tessel::Word<L2::Pseudowire::State>>({
        {"up", L2::Pseudowire::State::up},
        {"no label given to the neighbour", L2::Pseudowire::State::noLocalLabel},
        {"no label from the neighbour", L2::Pseudowire::State::noRemoteLabel},
        {"impossible label from the neighbour", L2::Pseudowire::State::invalidLabel},
        {"MTUs of the two ends differ", L2::Pseudowire::State::mtuMismatch},
        {"not raw Ethernet on both sides", L2::Pseudowire::State::otherType},
        {"no attachment circuit", L2::Pseudowire::State::noCircuit},
        {"not one circuit and one pseudowire", L2::Pseudowire::State::notPointToPoint},
        {"down by one of the ends", L2::Pseudowire::State::down},
        {"nobody signals it any more", L2::Pseudowire::State::noDaemon},
    });
