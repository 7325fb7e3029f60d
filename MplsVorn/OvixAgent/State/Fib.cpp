#include "State/Fib.h"

#include <algorithm>
#include <cassert>

namespace OvixAgent {

namespace {

AddressBits bitsOf(const Lumo::IpGenPrefix& prefix) {
    return AddressBits::of(prefix.address());
}

} // namespace

PrefixTable& Fib::tableOf(const Lumo::IpGenPrefix& prefix) {
    Lengths& lengths = prefix.address().family() == Lumo::IpFamily::ipv4 ? ipv4_ : ipv6_;
    const auto at = std::find_if(lengths.begin(), lengths.end(), [&](const PrefixTable& t) {
        return t.length() <= prefix.length();
    });
    return at != lengths.end() && at->length() == prefix.length()
               ? *at
               : *lengths.insert(at, PrefixTable(prefix.length()));
}

std::uint32_t Fib::add(Place place) {
    if (free_.empty()) {
        routes_.push_back(std::move(place));
        return static_cast<std::uint32_t>(routes_.size() - 1);
    }
    const std::uint32_t at = free_.back();
    free_.pop_back();
    routes_[at] = std::move(place);
    return at;
}

void Fib::release(std::uint32_t at) {
    assert(at < routes_.size());
    routes_[at].route = IpRoute::drop();
    free_.push_back(at);
}

bool Fib::insert(const Lumo::IpGenPrefix& prefix, IpRoute route) {
    const std::uint32_t at = add({std::move(route), true, PrefixTable::none});
    if (!tableOf(prefix).insert(bitsOf(prefix), at)) {
        release(at);
        return false;
    }
    return true;
}

void Fib::routeIs(const Lumo::IpGenPrefix& prefix, IpRoute route) {
    routeDel(prefix);
    PrefixTable& table = tableOf(prefix);
    const std::uint32_t configured = table.erase(bitsOf(prefix));
    table.insert(bitsOf(prefix), add({std::move(route), false, configured}));
}

bool Fib::routeDel(const Lumo::IpGenPrefix& prefix) {
    PrefixTable& table = tableOf(prefix);
    const std::uint32_t at = table.find(bitsOf(prefix));
    if (at == PrefixTable::none || routes_[at].isConfigured) {
        return false;
    }
    table.erase(bitsOf(prefix));
    if (routes_[at].covered != PrefixTable::none) {
        table.insert(bitsOf(prefix), routes_[at].covered);
    }
    release(at);
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
            return &routes_[route].route;
        }
    }
    return nullptr;
}

const IpRoute* Fib::find(const Lumo::IpGenAddr& address, unsigned length) const noexcept {
    if (address.family() == Lumo::IpFamily::none) {
        return nullptr;
    }
    const Lengths& lengths = address.family() == Lumo::IpFamily::ipv4 ? ipv4_ : ipv6_;
    const auto table = std::find_if(lengths.begin(), lengths.end(),
                                    [&](const PrefixTable& t) { return t.length() == length; });
    const std::uint32_t route =
        table != lengths.end() ? table->find(AddressBits::of(address)) : PrefixTable::none;
    return route != PrefixTable::none ? &routes_[route].route : nullptr;
}

} // namespace OvixAgent
