#include "Mpls/PackedVia.h"

#include <algorithm>
#include <cassert>
#include <concepts>
#include <cstring>
#include <limits>

namespace Mpls {

namespace {

using Ovix::OvixMplsVia;

template <typename Via, typename Visitor>
bool forEachFieldUpToNexthop(Via& via, Visitor&& visit) {
    return visit(via.labelAction) && visit(via.trafficClass) && visit(via.controlWord) &&
           visit(via.entropy) && visit(via.payloadType) && visit(via.ttlMode) &&
           visit(via.labels) && visit(via.pushTtl) && visit(via.intfId) && visit(via.nexthop);
}

/// Visits the fields of a via in the order of the record.
template <typename Via, typename Visitor>
bool forEachField(Via& via, Visitor&& visit) {
    return forEachFieldUpToNexthop(via, visit) && visit(via.vrfName) && visit(via.fecIdHigh) &&
           visit(via.fecIdLow) && visit(via.nexthopMtu) && visit(via.nexthopVlan);
}

class Writer {
  public:
    explicit Writer(std::uint8_t* to) noexcept : to_(to) {}

    std::size_t size() const noexcept { return size_; }
    void byte(std::size_t value) noexcept { to_[size_++] = static_cast<std::uint8_t>(value); }
    void raw(const void* from, std::size_t count) noexcept {
        std::memcpy(to_ + size_, from, count);
        size_ += count;
    }

    void field(bool) noexcept {}
    void field(std::unsigned_integral auto value) noexcept {
        std::uint32_t rest = value;
        for (; rest > 0x7f; rest >>= 7U) {
            byte((rest & 0x7fU) | 0x80U);
        }
        byte(rest);
    }
    void field(const Tessel::BoundedString<100>& text) noexcept {
        byte(text.size());
        raw(text.view().data(), text.size());
    }
    void field(Lumo::IntfId intf) noexcept {
        const std::uint64_t value = intf.value();
        raw(&value, sizeof value);
    }
    void field(const Lumo::IpGenAddr& address) noexcept {
        byte(static_cast<std::uint8_t>(address.family()));
        raw(address.bytes().data(), address.family() == Lumo::IpFamily::ipv4
                                        ? Lumo::IpGenAddr::ipv4Size
                                        : Lumo::IpGenAddr::ipv6Size);
    }

  private:
    std::uint8_t* to_;
    std::size_t size_ = 0;
};

class Reader {
  public:
    explicit Reader(std::span<const std::uint8_t> bytes) noexcept
        : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

    const std::uint8_t* take(std::size_t count) noexcept {
        if (static_cast<std::size_t>(end_ - at_) < count) {
            return nullptr;
        }
        const std::uint8_t* taken = at_;
        at_ += count;
        return taken;
    }

    bool field(bool& flag) noexcept {
        flag = true;
        return true;
    }
    template <std::unsigned_integral T>
    bool field(T& number) noexcept {
        if (at_ != end_ && *at_ <= 0x7f) [[likely]] {
            number = *at_++;
            return true;
        }
        std::uint64_t value = 0;
        for (unsigned shift = 0; shift < 35; shift += 7) {
            const std::uint8_t* byte = take(1);
            if (byte == nullptr) {
                return false;
            }
            value |= std::uint64_t{*byte & 0x7fU} << shift;
            if ((*byte & 0x80U) == 0) {
                number = static_cast<T>(value);
                return value <= std::numeric_limits<T>::max();
            }
        }
        return false;
    }
    bool field(Tessel::BoundedString<100>& text) noexcept {
        const std::uint8_t* length = take(1);
        if (length == nullptr || *length > 100) {
            return false;
        }
        const std::uint8_t* bytes = take(*length);
        if (bytes == nullptr) {
            return false;
        }
        text = std::string_view(reinterpret_cast<const char*>(bytes), *length);
        return true;
    }
    bool field(Lumo::IntfId& intf) noexcept {
        std::uint64_t value = 0;
        const std::uint8_t* bytes = take(sizeof value);
        if (bytes == nullptr) {
            return false;
        }
        std::memcpy(&value, bytes, sizeof value);
        intf = Lumo::IntfId::fromValue(value);
        return true;
    }
    bool field(Lumo::IpGenAddr& address) noexcept {
        const std::uint8_t* family = take(1);
        if (family == nullptr) {
            return false;
        }
        if (*family == static_cast<std::uint8_t>(Lumo::IpFamily::ipv4)) {
            const std::uint8_t* bytes = take(Lumo::IpGenAddr::ipv4Size);
            address = bytes != nullptr ? Lumo::IpGenAddr::ipv4(bytes) : address;
            return bytes != nullptr;
        }
        if (*family == static_cast<std::uint8_t>(Lumo::IpFamily::ipv6)) {
            const std::uint8_t* bytes = take(Lumo::IpGenAddr::ipv6Size);
            address = bytes != nullptr ? Lumo::IpGenAddr::ipv6(bytes) : address;
            return bytes != nullptr;
        }
        return false;
    }

  private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

} // namespace

PackedVia::PackedVia(const OvixMplsVia& via) noexcept {
    const OvixMplsVia defaults{};
    std::array<const void*, 15> defaultFields{};
    std::size_t index = 0;
    forEachField(defaults, [&](const auto& field) {
        defaultFields[index++] = &field;
        return true;
    });
    Writer writer(bytes_.data() + sizeof(std::uint16_t));
    std::uint16_t mask = 0;
    index = 0;
    forEachField(via, [&]<typename T>(const T& field) {
        if (!(field == *static_cast<const T*>(defaultFields[index]))) {
            mask = static_cast<std::uint16_t>(mask | (1U << index));
            writer.field(field);
        }
        ++index;
        return true;
    });
    std::memcpy(bytes_.data(), &mask, sizeof mask);
    size_ = sizeof mask + writer.size();
    assert(index == defaultFields.size() && size_ <= maxBytes);
}

// One straight run without calls: this is read for every frame.
[[gnu::flatten]] bool PackedVia::unpack(std::span<const std::uint8_t> bytes,
                                        OvixMplsVia& via) noexcept {
    Reader reader(bytes);
    std::uint16_t mask = 0;
    const std::uint8_t* maskBytes = reader.take(sizeof mask);
    if (maskBytes == nullptr) {
        return false;
    }
    std::memcpy(&mask, maskBytes, sizeof mask);
    std::size_t index = 0;
    const auto readIfPresent = [&](auto& field) {
        const bool present = ((mask >> index) & 1U) != 0;
        ++index;
        return !present || reader.field(field);
    };
    // Most vias have nothing behind the next hop's address.
    constexpr unsigned fieldsUpToNexthop = 10;
    return mask >> fieldsUpToNexthop == 0 ? forEachFieldUpToNexthop(via, readIfPresent)
                                          : forEachField(via, readIfPresent);
}

} // namespace Mpls
