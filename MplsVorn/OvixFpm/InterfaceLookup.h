#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace OvixFpm {

/// A network interface of this host, as routes refer to it.
struct HostInterface {
    std::string name;
    bool isVrf = false; ///< a VRF device: what is sent to it is looked up in its table
};

/// The interfaces behind the kernel's indices, remembered until told to forget, since one that goes
/// and comes back may be another.
class InterfaceLookup {
  public:
    virtual ~InterfaceLookup() = default;

    /// None when there is no such interface.
    const std::optional<HostInterface>& find(std::uint32_t index);
    void forget() { known_.clear(); }

  protected:
    /// Asks the kernel.
    virtual std::optional<HostInterface> ask(std::uint32_t index) const;

  private:
    std::unordered_map<std::uint32_t, std::optional<HostInterface>> known_;
};

} // namespace OvixFpm
