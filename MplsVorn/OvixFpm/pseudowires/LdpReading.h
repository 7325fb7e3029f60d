#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Published/Pseudowires.h"
#include "Tessel/Result.h"

namespace OvixFpm {

/// What ldpd is asked, in this order, in one run of vtysh.
std::vector<std::string> ldpQuestions();

/// The pseudowires by ldpd's answers (FRR 8.4): each member pseudowire of its configuration with
/// what has been signalled for it (RFC 4447). One that cannot be used says so in its state. Refused
/// as a whole, with what is wrong, when an answer is cut short or is not what is expected.
Tessel::Result<std::vector<L2::Pseudowire>> readLdp(const std::string& answers);

} // namespace OvixFpm
