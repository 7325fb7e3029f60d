#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Tessel {

/// Further places of a list. A type of its own, so that a header of the host can declare its slab:
/// without `extern template class Tessel::Slabbed<Tessel::PtrListChunk<X>>` a list that is filled
/// in one library and destroyed in another takes from one slab and gives to another for ever.
template <typename T>
struct PtrListChunk : Slabbed<PtrListChunk<T>> {
    static constexpr std::size_t size = 30;

    std::array<Ptr<T>, size> items;
    PtrListChunk* next = nullptr;
};

/// An ordered list of counted handles: the first few held in place, further ones in chunks from a
/// slab, so that a warm list of any length costs no heap allocation.
template <typename T, std::size_t inPlace>
class PtrList {
    using Chunk = PtrListChunk<T>;
    static constexpr std::size_t chunkSize = Chunk::size;

  public:
    PtrList() noexcept {} // places not yet taken are left unset on purpose
    PtrList(const PtrList&) = delete;
    PtrList& operator=(const PtrList&) = delete;
    ~PtrList() {
        if (size_ > inPlace) [[unlikely]] {
            freeChunks();
        }
        std::destroy_n(inPlaceItems(), size_ < inPlace ? size_ : inPlace);
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    /// The list must not be empty.
    const Ptr<T>& front() const noexcept {
        assert(size_ > 0);
        return inPlaceItems()[0];
    }

    template <typename Handle>
    void push(Handle&& item) {
        if (size_ < inPlace) [[likely]] {
            std::construct_at(inPlaceItems() + size_, std::forward<Handle>(item));
            ++size_;
        } else {
            pushFurther(std::forward<Handle>(item));
        }
    }

    /// Appends copies of the other list's handles.
    void append(const PtrList& other) {
        if (size_ + other.size_ <= inPlace) [[likely]] {
            for (std::uint32_t i = 0; i < other.size_; ++i) {
                std::construct_at(inPlaceItems() + size_ + i, other.inPlaceItems()[i]);
            }
            size_ += other.size_;
            return;
        }
        for (const Ptr<T>& item : other) {
            push(item);
        }
    }

    /// Appends the other list's handles and may leave it empty.
    void append(PtrList&& other) {
        if (size_ > 0 || other.size_ > inPlace) [[unlikely]] {
            append(std::as_const(other));
            return;
        }
        storage_ = other.storage_; // a handle's bytes are all there is to it
        size_ = std::exchange(other.size_, 0);
    }

    /// Visits the items in insertion order as `const Ptr<T>&`.
    class Iterator {
      public:
        Iterator(const PtrList* list, std::size_t at) noexcept
            : list_(list), at_(at), chunk_(list->chunks_) {}

        const Ptr<T>& operator*() const noexcept {
            return at_ < inPlace ? list_->inPlaceItems()[at_]
                                 : chunk_->items[(at_ - inPlace) % chunkSize];
        }
        Iterator& operator++() noexcept {
            ++at_;
            if (at_ > inPlace && (at_ - inPlace) % chunkSize == 0) {
                chunk_ = chunk_->next;
            }
            return *this;
        }
        bool operator!=(const Iterator& other) const noexcept { return at_ != other.at_; }

      private:
        const PtrList* list_;
        std::size_t at_;
        const Chunk* chunk_;
    };

    Iterator begin() const noexcept { return Iterator(this, 0); }
    Iterator end() const noexcept { return Iterator(this, size_); }

  private:
    Ptr<T>* inPlaceItems() noexcept { return reinterpret_cast<Ptr<T>*>(storage_.data()); }
    const Ptr<T>* inPlaceItems() const noexcept {
        return reinterpret_cast<const Ptr<T>*>(storage_.data());
    }

    [[gnu::noinline]] void pushFurther(Ptr<T> item) {
        chunkFor(size_ - inPlace).items[(size_ - inPlace) % chunkSize] = std::move(item);
        ++size_;
    }

    [[gnu::noinline]] void freeChunks() noexcept {
        while (chunks_ != nullptr) {
            Chunk* next = chunks_->next;
            delete chunks_;
            chunks_ = next;
        }
    }

    Chunk& chunkFor(std::size_t overflowIndex) {
        if (overflowIndex % chunkSize == 0) {
            auto* added = new Chunk;
            (last_ != nullptr ? last_->next : chunks_) = added;
            last_ = added;
        }
        return *last_;
    }

    std::uint32_t size_ = 0;
    Chunk* chunks_ = nullptr;
    Chunk* last_ = nullptr;
    alignas(Ptr<T>) std::array<std::byte, inPlace * sizeof(Ptr<T>)> storage_;
};

} // namespace Tessel
