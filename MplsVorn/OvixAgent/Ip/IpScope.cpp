#include "Ip/IpScope.h"

#include <cassert>

#include "State/PrefixTable.h"

namespace OvixAgent {

namespace {

IpScope ipv4Scope(const std::uint8_t* a) noexcept {
    if (a[0] == 0 || a[0] == 127) {
        return IpScope::nowhere;
    }
    if (a[0] == 169 && a[1] == 254) {
        return IpScope::linkLocal;
    }
    if (a[0] < 224) {
        return IpScope::global;
    }
    if (a[0] < 240) {
        const bool local = a[0] == 224 && a[1] == 0 && a[2] == 0; // RFC 5771 section 4
        return local ? IpScope::linkMulticast : IpScope::multicast;
    }
    const bool broadcast = a[0] == 255 && a[1] == 255 && a[2] == 255 && a[3] == 255;
    return broadcast ? IpScope::linkMulticast : IpScope::nowhere;
}

IpScope ipv6Scope(const Lumo::IpGenAddr& address) noexcept {
    constexpr std::uint8_t linkLocalScope = 2; // RFC 7346; lower scopes do not leave the node
    const std::uint8_t* a = address.bytes().data();
    if (a[0] == 0xff) {
        return (a[1] & 0x0fU) <= linkLocalScope ? IpScope::linkMulticast : IpScope::multicast;
    }
    if (a[0] == 0xfe && (a[1] & 0xc0U) == 0x80) {
        return IpScope::linkLocal;
    }
    const AddressBits bits = AddressBits::of(address);
    return bits.high == 0 && bits.low <= 1 ? IpScope::nowhere : IpScope::global;
}

} // namespace

IpScope ipScope(const Lumo::IpGenAddr& address) noexcept {
    assert(address.family() != Lumo::IpFamily::none);
    return address.family() == Lumo::IpFamily::ipv4 ? ipv4Scope(address.bytes().data())
                                                    : ipv6Scope(address);
}

} // namespace OvixAgent
