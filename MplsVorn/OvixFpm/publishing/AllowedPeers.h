#pragma once

#include <optional>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixFpm {

/// The users whose processes are taken for zebra: whoever else connects could publish any route.
class AllowedPeers {
  public:
    /// Root, the user of this process, and "frr", as which FRR runs, if there is such a user.
    AllowedPeers();

    /// Root, the user of this process, and these, by name or number; for "any" everybody, and also
    /// from other hosts. Refuses a user that there is not.
    static Tessel::Result<AllowedPeers> fromNames(const std::vector<std::string>& names);

    bool areAll() const noexcept { return areAll_; }
    /// Why a TCP connection may not be zebra's; unset when it may.
    std::optional<std::string> refusal(const Posix::FileDescriptor& connection) const;

  private:
    std::set<uid_t> users_;
    bool areAll_ = false;
};

} // namespace OvixFpm
