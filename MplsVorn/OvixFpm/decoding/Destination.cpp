#include "decoding/Destination.h"

#include "Tessel/Exceptions.h"

namespace OvixFpm {
namespace {

bool bitsBeyond(const Lumo::IpGenAddr& prefix, std::uint8_t length) {
    const auto& bytes = prefix.bytes();
    for (std::size_t bit = length; bit < bytes.size() * 8; ++bit) {
        if ((bytes[bit / 8] & (0x80U >> (bit % 8))) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace

IncomingLabel::IncomingLabel(Lumo::MplsLabel label) : label_(label) {
    if (label.isSpecialPurpose()) {
        throw Tessel::RangeError("route for the special-purpose label " + label.prettyString());
    }
}

Destination::Destination(std::uint32_t table, const Lumo::IpGenAddr& prefix, std::uint8_t length)
    : prefix_(prefix), table_(table), length_(length) {
    if (table == 0) {
        throw Tessel::RangeError("route of the table 0, which is none");
    }
    if (prefix.family() == Lumo::IpFamily::none) {
        throw Tessel::RangeError("prefix of no address family");
    }
    const unsigned bits = prefix.family() == Lumo::IpFamily::ipv4 ? 32 : 128;
    if (length > bits) {
        throw Tessel::RangeError("prefix length " + std::to_string(length) + " is more than " +
                                 std::to_string(bits));
    }
    if (bitsBeyond(prefix, length)) {
        throw Tessel::RangeError("prefix " + prefix.text() + "/" + std::to_string(length) +
                                 " has bits beyond its length");
    }
}

std::strong_ordering operator<=>(const Destination& left, const Destination& right) noexcept {
    if (const auto order = left.table_ <=> right.table_; order != 0) {
        return order;
    }
    if (const auto order = left.family() <=> right.family(); order != 0) {
        return order;
    }
    if (const auto order = left.prefix_.bytes() <=> right.prefix_.bytes(); order != 0) {
        return order;
    }
    return left.length_ <=> right.length_;
}

} // namespace OvixFpm
