#include "Lumo/Pkt.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <new>
#include <string>

#include "Tessel/Exceptions.h"

template class Tessel::Slabbed<Lumo::Pkt>;

namespace Lumo {

namespace {

constexpr std::align_val_t cacheLine{64};

// Ordinary frames, jumbo frames, and the longest there are; each with its headroom.
constexpr std::array<std::uint32_t, 3> classSizes = {2304, 16640, 67584};
static_assert(classSizes.back() >= Pkt::maxBytes + Pkt::defaultHeadroom);
static_assert(Pkt::defaultHeadroom % static_cast<std::size_t>(cacheLine) == 0);

} // namespace

Pkt::~Pkt() {
    if (buffer_ != nullptr) {
        manager_->giveBuffer(buffer_, capacity_);
    }
}

std::span<std::uint8_t> Pkt::newSharedHeadData(std::size_t size) {
    if (size > maxBytes) {
        throw Tessel::RangeError("packet of " + std::to_string(size) + " bytes exceeds 65535");
    }
    if (capacity_ < size + defaultHeadroom) {
        std::uint32_t capacity = 0;
        std::uint8_t* fresh = manager_->takeBuffer(size + defaultHeadroom, capacity);
        if (buffer_ != nullptr) {
            manager_->giveBuffer(buffer_, capacity_);
        }
        buffer_ = fresh;
        capacity_ = capacity;
    }
    front_ = defaultHeadroom;
    length_ = static_cast<std::uint32_t>(size);
    return writableData();
}

std::span<std::uint8_t> Pkt::pushFront(std::size_t count) {
    if (count > maxBytes || length_ + count > maxBytes) {
        return {};
    }
    if (count > front_) {
        move(count + defaultHeadroom);
    }
    assert(count <= front_);
    front_ -= static_cast<std::uint32_t>(count);
    length_ += static_cast<std::uint32_t>(count);
    return {buffer_ + front_, count};
}

void Pkt::move(std::size_t headroom) {
    assert(front_ + length_ <= capacity_);
    std::uint32_t capacity = 0;
    std::uint8_t* fresh = manager_->takeBuffer(headroom + length_, capacity);
    if (buffer_ != nullptr) {
        std::copy_n(buffer_ + front_, length_, fresh + headroom);
        manager_->giveBuffer(buffer_, capacity_);
    }
    buffer_ = fresh;
    capacity_ = capacity;
    front_ = static_cast<std::uint32_t>(headroom);
}

PktManager::~PktManager() {
    for (FreeBuffer* buffer : free_) {
        while (buffer != nullptr) {
            FreeBuffer* next = buffer->next;
            ::operator delete(buffer, cacheLine);
            buffer = next;
        }
    }
}

Ptr<Pkt> PktManager::newPkt() {
    return Tessel::make<Pkt>(*this);
}

Ptr<Pkt> PktManager::newPkt(std::span<const std::uint8_t> bytes) {
    Ptr<Pkt> packet = newPkt();
    std::copy(bytes.begin(), bytes.end(), packet->newSharedHeadData(bytes.size()).begin());
    return packet;
}

std::uint8_t* PktManager::takeBuffer(std::size_t atLeast, std::uint32_t& capacity) {
    const auto fitting = std::find_if(classSizes.begin(), classSizes.end(),
                                      [&](std::uint32_t size) { return size >= atLeast; });
    assert(fitting != classSizes.end());
    capacity = *fitting;
    FreeBuffer*& free = free_[fitting - classSizes.begin()];
    if (free == nullptr) {
        ++buffersFromHeap_;
        return static_cast<std::uint8_t*>(::operator new(capacity, cacheLine));
    }
    FreeBuffer* taken = free;
    free = taken->next;
    return reinterpret_cast<std::uint8_t*>(taken);
}

void PktManager::giveBuffer(std::uint8_t* buffer, std::uint32_t capacity) noexcept {
    const auto size = std::find(classSizes.begin(), classSizes.end(), capacity);
    assert(size != classSizes.end());
    FreeBuffer*& free = free_[size - classSizes.begin()];
    free = new (buffer) FreeBuffer{free};
}

Ptr<PktManager> globalPktManager() {
    // Never destroyed: packets held by other static objects may outlive any order of destruction.
    static auto& manager = *new Ptr<PktManager>(Tessel::make<PktManager>());
    return manager;
}

} // namespace Lumo
