#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

namespace OvixFpm {

/// A network interface of this host, as routes refer to it.
struct HostInterface {
    std::string name;
    bool isVrf = false; ///< a VRF device: what is sent to it is looked up in its table
};

/// The interfaces behind the kernel's indices, and the VRFs behind its tables, remembered until
/// told to forget, since one that goes and comes back may be another.
class InterfaceLookup {
  public:
    virtual ~InterfaceLookup() = default;

    /// None when there is no such interface.
    const std::optional<HostInterface>& find(std::uint32_t index);
    /// The VRF whose routing table that is; none when it is no VRF's.
    std::optional<std::string> vrfOfTable(std::uint32_t table);
    void forget() {
        known_.clear();
        vrfs_.reset();
    }

  protected:
    /// Asks the kernel. Throws std::system_error.
    virtual std::optional<HostInterface> ask(std::uint32_t index) const;
    /// Asks the kernel for the names of all VRFs by their tables. Throws std::system_error.
    virtual std::map<std::uint32_t, std::string> askForVrfs() const;

  private:
    std::unordered_map<std::uint32_t, std::optional<HostInterface>> known_;
    std::optional<std::map<std::uint32_t, std::string>> vrfs_;
};

} // namespace OvixFpm
