#include "framing/Attributes.h"

#include <algorithm>
#include <linux/rtnetlink.h>
#include <string>

namespace OvixFpm {

static_assert(sizeof(rtattr) == 4);

namespace {

std::string place(std::size_t at) {
    return "attribute at byte " + std::to_string(at) + " of its list";
}

} // namespace

Attributes::Attributes(Bytes bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const Bytes rest = bytes.subspan(at);
        const auto header = readHead<rtattr>(rest, "attribute header");
        const std::size_t length = header.rta_len;
        if (length < sizeof(rtattr) || length > rest.size()) {
            throw Malformed(place(at) + " is " + std::to_string(length) + " bytes long, of " +
                            std::to_string(rest.size()) + " that are left");
        }
        const unsigned type = header.rta_type & typeMask;
        if (type < knownTypes) {
            if (values_[type]) {
                throw Malformed(place(at) + " is the second of type " + std::to_string(type));
            }
            values_[type] = rest.first(length).subspan(sizeof(rtattr));
        }
        at += std::min(rest.size(), std::size_t{RTA_ALIGN(length)});
    }
}

std::optional<Bytes> Attributes::find(Field field) const noexcept {
    return field.type < knownTypes ? values_[field.type] : std::nullopt;
}

template <typename T>
std::optional<T> Attributes::exact(Field field) const {
    const std::optional<Bytes> value = find(field);
    if (!value) {
        return std::nullopt;
    }
    checkSize(sizeof(T), *value, field);
    return readHead<T>(*value, field.name);
}

std::optional<std::uint8_t> Attributes::u8(Field field) const {
    return exact<std::uint8_t>(field);
}

std::optional<std::uint16_t> Attributes::u16(Field field) const {
    return exact<std::uint16_t>(field);
}

std::optional<std::uint32_t> Attributes::u32(Field field) const {
    return exact<std::uint32_t>(field);
}

void checkSize(std::size_t size, Bytes value, Field field) {
    if (value.size() != size) {
        throw Malformed(std::string(field.name) + " has " + std::to_string(value.size()) +
                        " bytes instead of " + std::to_string(size));
    }
}

} // namespace OvixFpm
