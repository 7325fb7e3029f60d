#include "State/Solicits.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace OvixAgent {

Solicits::Solicits(std::size_t ports, std::uint64_t seed)
    : recent_(places), known_(places), ofPort_(ports), ofSender_(seed) {}

Solicits::Verdict Solicits::want(const Neighbour& neighbour, By by, PortIndex ingress,
                                 const Lumo::IpGenAddr& source) noexcept {
    assert(neighbour.port < ofPort_.size());
    if (known_[placeOf(neighbour)] == neighbour) {
        by = By::route;
    }
    Recent& recent = recent_[placeOf(neighbour)];
    if (recent.neighbour == neighbour) {
        const Clock::duration passed = now_ - recent.at;
        if (recent.hasFailed && passed < (by == By::route ? ofRoute : ofPacket)) {
            return Verdict::failed;
        }
        if (!recent.hasFailed && passed < std::chrono::seconds(1)) {
            return Verdict::waits;
        }
    }
    if (by == By::packet) {
        const auto now = static_cast<std::uint64_t>(now_.time_since_epoch().count());
        TokenBucket& ofPort = ofPort_[neighbour.port];
        TokenBucket& ofSender = ofSender_.of(ingress, source);
        if (!ofPort.has(perPort, now) || !ofSender.has(perSender, now) || !add(neighbour, by)) {
            return Verdict::refused;
        }
        ofPort.take();
        ofSender.take();
    } else if (!add(neighbour, by)) {
        return Verdict::waits; // is asked for again by the next packet
    }
    recent = {neighbour, now_, false};
    return Verdict::waits;
}

bool Solicits::add(const Neighbour& neighbour, By by) noexcept {
    const auto kind = static_cast<std::size_t>(by);
    std::size_t& count = wantedCount_[kind];
    const auto begin = wanted_.begin() + static_cast<std::ptrdiff_t>(kind * mostAtOnce);
    const auto end = begin + static_cast<std::ptrdiff_t>(count);
    if (std::find(begin, end, neighbour) != end) {
        return true;
    }
    if (count == mostAtOnce) {
        return false;
    }
    *end = neighbour;
    ++count;
    return true;
}

std::span<const Solicits::Neighbour> Solicits::take() noexcept {
    const auto [routes, packets] = wantedCount_;
    wantedCount_ = {};
    std::copy_n(wanted_.begin() + mostAtOnce, packets,
                wanted_.begin() + static_cast<std::ptrdiff_t>(routes));
    return std::span(wanted_).first(routes + packets);
}

void Solicits::hasFailed(const Neighbour& neighbour) noexcept {
    recent_[placeOf(neighbour)] = {neighbour, now_, true};
}

void Solicits::isKnown(const Neighbour& neighbour) noexcept {
    known_[placeOf(neighbour)] = neighbour;
    Recent& recent = recent_[placeOf(neighbour)];
    if (recent.neighbour == neighbour) { // has answered: when it is forgotten it is asked at once
        recent = {};
    }
}

std::size_t Solicits::Hash::operator()(const Neighbour& key) const noexcept {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, key.address.bytes().data(), sizeof high);
    std::memcpy(&low, key.address.bytes().data() + sizeof high, sizeof low);
    const std::uint64_t mixed = (high * 0x9e3779b97f4a7c15 + low) * 0xff51afd7ed558ccd;
    return (mixed ^ mixed >> 32U) * 31 + key.port;
}

} // namespace OvixAgent
