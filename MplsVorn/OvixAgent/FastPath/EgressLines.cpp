#include "FastPath/EgressLines.h"

namespace OvixAgent {

namespace {

/// Of a packet whose label takes the low bits.
constexpr Lumo::EthAddr groupOfStack{0x01, 0x00, 0x5e, 0x80, 0, 0};

} // namespace

EgressLine::EgressLine(Port& by, const Lumo::EthAddr* mac, std::uint32_t nexthopMtu,
                       const VlanTags& sent) noexcept
    : port(&by), tagBytes(static_cast<std::uint8_t>(sent.count * Wire::Tag::size)) {
    assert(tagBytes <= tags.size());
    if (mac != nullptr) {
        std::copy(mac->begin(), mac->end(), macs.begin());
    }
    std::copy(by.mac.begin(), by.mac.end(), macs.begin() + by.mac.size());
    for (std::size_t i = 0; i < sent.count; ++i) {
        sent.tags[i].store(tags.data() + i * Wire::Tag::size);
    }
    if (by.isUp && mac != nullptr) {
        mtu = std::min({by.mtu, nexthopMtu != 0 ? nexthopMtu : longest, longest - tagBytes});
        plainMost =
            tagBytes == 0 && mtu > 0 ? mtu + static_cast<std::uint32_t>(Wire::Ethernet::size) : 0;
    }
}

std::size_t EgressLines::Hash::operator()(const EgressKey& key) const noexcept {
    const std::size_t neighbour = Neighbours::Hash{}({key.address, key.port});
    return neighbour ^ (std::size_t{key.mtu} << 17U | std::size_t{key.isGroup} << 16U | key.vlan) *
                           0x9e3779b97f4a7c15;
}

std::uint32_t EgressLines::numberOf(const EgressKey& key) {
    refresh();
    const auto [at, isNew] = numbers_.try_emplace(key, static_cast<std::uint32_t>(lines_.size()));
    if (isNew) {
        keys_.push_back(key);
        lines_.push_back(resolve(key));
    }
    return at->second;
}

void EgressLines::clear() noexcept {
    lines_.clear();
    keys_.clear();
    numbers_.clear();
}

void EgressLines::resolveAll() {
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        lines_[i] = resolve(keys_[i]);
    }
    seen_ = changes();
}

EgressLine EgressLines::resolve(const EgressKey& key) const {
    Port& port = tables_->ports.ports()[key.port];
    const bool isAddressed = key.address.family() != Lumo::IpFamily::none;
    const Lumo::EthAddr* const mac = isAddressed ? tables_->neighbours.find(key.address, key.port)
                                                 : tables_->neighbours.only(key.port);
    return {port, key.isGroup ? &groupOfStack : mac, key.mtu,
            tagsToSend({}, port.tagging, key.vlan)};
}

} // namespace OvixAgent
