#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

struct nlmsghdr;

namespace OvixFpm {

/// A network interface of this host, as rtnetlink describes it.
struct KernelLink {
    std::string name;
    std::uint32_t vrfTable = 0; ///< of a VRF device: the VRF's routing table; else 0

    /// Packets to a VRF device are looked up in its table.
    bool isVrf() const noexcept { return vrfTable != 0; }

    friend bool operator==(const KernelLink&, const KernelLink&) = default;
};

/// Unset when there is no interface of that index. Throws std::system_error.
std::optional<KernelLink> linkOfIndex(std::uint32_t index);

/// The names of this host's VRF devices by their tables. Throws std::system_error.
std::map<std::uint32_t, std::string> vrfNamesByTable();

/// Unset when the message, which must be as long as its header says, does not describe an
/// interface.
std::optional<KernelLink> readLink(const nlmsghdr& message);

/// The interfaces and VRFs of this host, remembered until forget(), as another may take the index
/// of one that is removed.
class InterfaceLookup {
  public:
    virtual ~InterfaceLookup() = default;

    /// Unset when there is no such interface. Throws std::system_error.
    const std::optional<KernelLink>& find(std::uint32_t index);
    /// The VRF with that routing table; unset when no VRF has it. Throws std::system_error.
    std::optional<std::string> vrfOfTable(std::uint32_t table);
    void forget() {
        known_.clear();
        vrfs_.reset();
    }

  protected:
    virtual std::optional<KernelLink> ask(std::uint32_t index) const { return linkOfIndex(index); }
    virtual std::map<std::uint32_t, std::string> askForVrfs() const { return vrfNamesByTable(); }

  private:
    std::unordered_map<std::uint32_t, std::optional<KernelLink>> known_;
    std::optional<std::map<std::uint32_t, std::string>> vrfs_;
};

} // namespace OvixFpm
