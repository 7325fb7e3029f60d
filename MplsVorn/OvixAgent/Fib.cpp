#include "Fib.h"

#include <algorithm>

#include "Neighbours.h"

namespace OvixAgent {

PrefixTable& Fib::tableOf(Lengths& lengths, unsigned length) {
    const auto at = std::find_if(lengths.begin(), lengths.end(),
                                 [&](const PrefixTable& t) { return t.length() <= length; });
    return at != lengths.end() && at->length() == length ? *at
                                                         : *lengths.insert(at, PrefixTable(length));
}

bool Fib::insert(const IpPrefix& prefix, IpRoute route) {
    Lengths& lengths = prefix.address.family == IpAddress::Family::ipv4 ? ipv4_ : ipv6_;
    const AddressBits bits = AddressBits::of(toIpGenAddr(prefix.address));
    if (!tableOf(lengths, prefix.length).insert(bits, static_cast<std::uint32_t>(routes_.size()))) {
        return false;
    }
    routes_.push_back(std::move(route));
    return true;
}

const IpRoute* Fib::find(const Lumo::IpGenAddr& address) const noexcept {
    if (address.family() == Lumo::IpFamily::none) {
        return nullptr;
    }
    const AddressBits bits = AddressBits::of(address);
    for (const PrefixTable& table : address.family() == Lumo::IpFamily::ipv4 ? ipv4_ : ipv6_) {
        const std::uint32_t route = table.find(bits);
        if (route != PrefixTable::none) {
            return &routes_[route];
        }
    }
    return nullptr;
}

} // namespace OvixAgent
