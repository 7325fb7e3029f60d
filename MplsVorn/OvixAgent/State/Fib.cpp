#include "State/Fib.h"

#include <algorithm>
#include <cassert>

#include "Tessel/Changes.h"

namespace OvixAgent {

namespace {

AddressBits bitsOf(const Lumo::IpGenPrefix& prefix) {
    return AddressBits::of(prefix.address());
}

} // namespace

Fib::Lengths& Fib::lengthsOf(const Lumo::IpGenAddr& address) noexcept {
    assert(address.family() != Lumo::IpFamily::none);
    return address.family() == Lumo::IpFamily::ipv4 ? ipv4Prefixes_ : ipv6Prefixes_;
}

const Fib::Lengths& Fib::lengthsOf(const Lumo::IpGenAddr& address) const noexcept {
    return address.family() == Lumo::IpFamily::ipv4 ? ipv4Prefixes_ : ipv6Prefixes_;
}

PrefixTable& Fib::tableOf(const Lumo::IpGenPrefix& prefix) {
    Lengths& lengths = lengthsOf(prefix.address());
    const auto at = std::find_if(lengths.begin(), lengths.end(), [&](const PrefixTable& t) {
        return t.length() <= prefix.length();
    });
    return at != lengths.end() && at->length() == prefix.length()
               ? *at
               : *lengths.insert(at, PrefixTable(prefix.length()));
}

void Fib::noteChanged(std::uint32_t number) {
    if (changed_.size() < mostChanged) {
        changed_.push_back(number);
    }
    Tessel::Changes::notice();
}

std::uint32_t Fib::add(const Lumo::IpGenPrefix& prefix, Place place) {
    if (free_.empty()) {
        routes_.push_back(std::move(place));
        prefixes_.push_back(prefix);
        const auto last = static_cast<std::uint32_t>(routes_.size() - 1);
        noteChanged(last);
        return last;
    }
    const std::uint32_t at = free_.back();
    free_.pop_back();
    routes_[at] = std::move(place);
    prefixes_[at] = prefix;
    noteChanged(at);
    return at;
}

void Fib::release(std::uint32_t at) {
    assert(at < routes_.size());
    routes_[at].route = IpRoute::drop();
    prefixes_[at] = {};
    free_.push_back(at);
    noteChanged(at);
}

// Lets the lookup find the route, in place of any other of the same prefix.
void Fib::publish(const Lumo::IpGenPrefix& prefix, std::uint32_t at) {
    const PrefixBytes& bytes = prefix.address().bytes();
    if (prefix.address().family() == Lumo::IpFamily::ipv4) {
        ipv4_.insert(bytes, prefix.length(), at);
    } else {
        ipv6_.insert(bytes, prefix.length(), at);
    }
}

void Fib::withdraw(const Lumo::IpGenPrefix& prefix) {
    const AddressBits bits = bitsOf(prefix);
    PrefixValue covering = noPrefix;
    for (const PrefixTable& table : lengthsOf(prefix.address())) {
        const std::uint32_t at = table.length() < prefix.length() ? table.find(bits) : noPrefix;
        if (at < noPrefix) {
            covering = at;
            break;
        }
    }
    const PrefixBytes& bytes = prefix.address().bytes();
    if (prefix.address().family() == Lumo::IpFamily::ipv4) {
        ipv4_.erase(bytes, prefix.length(), covering);
    } else {
        ipv6_.erase(bytes, prefix.length(), covering);
    }
}

bool Fib::insert(const Lumo::IpGenPrefix& prefix, IpRoute route) {
    const std::uint32_t at = add(prefix, {std::move(route), true, PrefixTable::none});
    if (!tableOf(prefix).insert(bitsOf(prefix), at)) {
        release(at);
        return false;
    }
    publish(prefix, at);
    return true;
}

void Fib::routeIs(const Lumo::IpGenPrefix& prefix, IpRoute route) {
    routeDel(prefix);
    PrefixTable& table = tableOf(prefix);
    const std::uint32_t configured = table.erase(bitsOf(prefix));
    const std::uint32_t at = add(prefix, {std::move(route), false, configured});
    table.insert(bitsOf(prefix), at);
    publish(prefix, at);
}

bool Fib::routeDel(const Lumo::IpGenPrefix& prefix) {
    PrefixTable& table = tableOf(prefix);
    const std::uint32_t at = table.find(bitsOf(prefix));
    if (at == PrefixTable::none || routes_[at].isConfigured) {
        return false;
    }
    table.erase(bitsOf(prefix));
    if (const std::uint32_t configured = routes_[at].covered; configured != PrefixTable::none) {
        table.insert(bitsOf(prefix), configured);
        publish(prefix, configured);
    } else {
        withdraw(prefix);
    }
    release(at);
    return true;
}

std::optional<Fib::Shown> Fib::shownAt(std::uint32_t number) const noexcept {
    assert(number < routes_.size());
    const Lumo::IpGenPrefix& prefix = prefixes_[number];
    const IpRoute& route = routes_[number].route;
    const bool isInUse = prefix.address().family() != Lumo::IpFamily::none &&
                         find(prefix.address(), prefix.length()) == &route;
    return isInUse ? std::optional(Shown{prefix, &route, routes_[number].isConfigured})
                   : std::nullopt;
}

std::uint32_t Fib::numberOf(const Lumo::IpGenAddr& address) const noexcept {
    switch (address.family()) {
    case Lumo::IpFamily::ipv4:
        return ipv4_.find(address.bytes());
    case Lumo::IpFamily::ipv6:
        return ipv6_.find(address.bytes());
    default:
        return noPrefix;
    }
}

const IpRoute* Fib::find(const Lumo::IpGenAddr& address) const noexcept {
    const std::uint32_t number = numberOf(address);
    return number != noPrefix ? &routes_[number].route : nullptr;
}

const IpRoute* Fib::find(const Lumo::IpGenAddr& address, unsigned length) const noexcept {
    if (address.family() == Lumo::IpFamily::none) {
        return nullptr;
    }
    const Lengths& lengths = lengthsOf(address);
    const auto table = std::find_if(lengths.begin(), lengths.end(),
                                    [&](const PrefixTable& t) { return t.length() == length; });
    const std::uint32_t route =
        table != lengths.end() ? table->find(AddressBits::of(address)) : PrefixTable::none;
    return route != PrefixTable::none ? &routes_[route].route : nullptr;
}

} // namespace OvixAgent
