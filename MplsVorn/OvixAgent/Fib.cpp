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

std::uint32_t Fib::place(IpRoute route) {
    if (free_.empty()) {
        routes_.push_back(std::move(route));
        return static_cast<std::uint32_t>(routes_.size() - 1);
    }
    const std::uint32_t at = free_.back();
    free_.pop_back();
    routes_[at] = std::move(route);
    return at;
}

bool Fib::insert(const IpPrefix& prefix, IpRoute route) {
    Lengths& lengths = prefix.address.family == IpAddress::Family::ipv4 ? ipv4_ : ipv6_;
    const AddressBits bits = AddressBits::of(toIpGenAddr(prefix.address));
    const std::uint32_t at = place(std::move(route));
    if (!tableOf(lengths, prefix.length).insert(bits, at)) {
        free_.push_back(at);
        return false;
    }
    return true;
}

void Fib::routeIs(const IpPrefix& prefix, IpRoute route) {
    routeDel(prefix);
    insert(prefix, std::move(route));
}

bool Fib::routeDel(const IpPrefix& prefix) {
    Lengths& lengths = prefix.address.family == IpAddress::Family::ipv4 ? ipv4_ : ipv6_;
    const std::uint32_t at =
        tableOf(lengths, prefix.length).erase(AddressBits::of(toIpGenAddr(prefix.address)));
    if (at == PrefixTable::none) {
        return false;
    }
    routes_[at] = IpRoute::drop();
    free_.push_back(at);
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
