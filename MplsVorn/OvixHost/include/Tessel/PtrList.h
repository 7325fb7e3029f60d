#pragma once

#include <array>
#include <cstddef>

#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Tessel {

/// An ordered list of counted handles: the first few held in place, further ones in chunks from a
/// slab, so that a warm list of any length costs no heap allocation.
template <typename T, std::size_t inPlace>
class PtrList {
    static constexpr std::size_t chunkSize = 30;

    struct Chunk : Slabbed<Chunk> {
        std::array<Ptr<T>, chunkSize> items;
        Chunk* next = nullptr;
    };

  public:
    PtrList() noexcept = default;
    PtrList(const PtrList&) = delete;
    PtrList& operator=(const PtrList&) = delete;
    ~PtrList() {
        while (chunks_ != nullptr) {
            Chunk* next = chunks_->next;
            delete chunks_;
            chunks_ = next;
        }
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    const Ptr<T>& front() const noexcept { return first_[0]; }

    void push(Ptr<T> item) {
        if (size_ < inPlace) {
            first_[size_] = std::move(item);
        } else {
            chunkFor(size_ - inPlace).items[(size_ - inPlace) % chunkSize] = std::move(item);
        }
        ++size_;
    }

    /// Visits the items in insertion order as `const Ptr<T>&`.
    class Iterator {
      public:
        Iterator(const PtrList* list, std::size_t at) noexcept
            : list_(list), at_(at), chunk_(list->chunks_) {}

        const Ptr<T>& operator*() const noexcept {
            return at_ < inPlace ? list_->first_[at_] : chunk_->items[(at_ - inPlace) % chunkSize];
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
    Chunk& chunkFor(std::size_t overflowIndex) {
        if (overflowIndex % chunkSize == 0) {
            auto* added = new Chunk;
            (last_ != nullptr ? last_->next : chunks_) = added;
            last_ = added;
        }
        return *last_;
    }

    std::array<Ptr<T>, inPlace> first_;
    std::size_t size_ = 0;
    Chunk* chunks_ = nullptr;
    Chunk* last_ = nullptr;
};

} // namespace Tessel
