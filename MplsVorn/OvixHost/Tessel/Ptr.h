#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Tessel/Slab.h"

namespace Tessel {

/// Whether counted handles count atomically. Set once, before a second thread exists.
class Threading {
  public:
    static bool multiThreaded() noexcept { return multiThreaded_; }
    static void multiThreadedIs(bool on) noexcept { multiThreaded_ = on; }

  private:
    static bool multiThreaded_;
};

/// A reference-counted object. It is created with a count of zero; the first handle owns it and
/// the last handle to go calls `lastUserGone`.
class Counted {
  public:
    Counted() noexcept = default;
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    virtual ~Counted() = default;

    [[gnu::always_inline]] void retain() const noexcept {
        if (Threading::multiThreaded()) [[unlikely]] {
            __atomic_fetch_add(&references_, 1U, __ATOMIC_RELAXED);
        } else {
            ++references_;
        }
    }

    void release() const noexcept {
        if (dropReference()) {
            noUserLeft();
        }
    }

    /// What follows when the count has become zero.
    void noUserLeft() const noexcept { const_cast<Counted*>(this)->lastUserGone(); }

    /// Removes one count; true when it was the last one.
    [[gnu::always_inline]] bool dropReference() const noexcept {
        if (Threading::multiThreaded()) [[unlikely]] {
            return __atomic_sub_fetch(&references_, 1U, __ATOMIC_ACQ_REL) == 0;
        }
        return --references_ == 0;
    }

    /// Counts the first handle of a new object.
    void firstReference() const noexcept { references_ = 1; }

    /// The number of handles that hold this object.
    std::uint32_t references() const noexcept {
        return __atomic_load_n(&references_, __ATOMIC_RELAXED);
    }

  protected:
    /// Called once, when the last handle releases; destroys the object unless overridden.
    virtual void lastUserGone() noexcept { delete this; }

  private:
    mutable std::uint32_t references_ = 0;
};

/// A counted handle; may be empty. Handles to const objects are made from handles to mutable ones.
template <typename T>
class Ptr {
  public:
    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}
    explicit Ptr(T* object) noexcept : object_(object) { retain(); }

    /// The first handle of an object just made.
    static Ptr first(T* object) noexcept {
        object->firstReference();
        Ptr made;
        made.object_ = object;
        return made;
    }
    Ptr(const Ptr& other) noexcept : object_(other.object_) { retain(); }
    Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

    template <typename U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
    noexcept : object_(other.get()) { retain(); }

    template <typename U>
    requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
    noexcept : object_(other.detach()) {}

    [[gnu::always_inline]] ~Ptr() {
        if (object_ != nullptr && object_->dropReference()) {
            releaseLast(object_);
        }
    }

    /// The old object goes only after the handle holds the new one, so self-assignment is safe.
    Ptr& operator=(Ptr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    void reset() noexcept { Ptr().swap(*this); }
    void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

    /// Gives up the object without releasing it: the caller takes over this handle's count.
    [[nodiscard]] T* detach() noexcept { return std::exchange(object_, nullptr); }

    template <typename U>
    bool operator==(const Ptr<U>& other) const noexcept {
        return object_ == other.get();
    }
    bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

  private:
    [[gnu::noinline]] static void releaseLast(T* object) noexcept {
        // What is known to be the most derived type, from a slab, goes without a virtual call.
        if constexpr (std::is_final_v<T> && std::is_base_of_v<Slabbed<std::remove_const_t<T>>, T>) {
            delete object;
        } else {
            object->noUserLeft();
        }
    }

    void retain() const noexcept {
        if (object_ != nullptr) {
            object_->retain();
        }
    }

    T* object_ = nullptr;
};

/// Creates a counted object and returns its first handle.
template <typename T, typename... Args>
Ptr<T> make(Args&&... args) {
    return Ptr<T>::first(new T(std::forward<Args>(args)...));
}

/// The object as another type of its hierarchy, or an empty handle when it is not one.
template <typename T, typename U>
Ptr<T> ptrCast(const Ptr<U>& from) noexcept {
    return Ptr<T>(dynamic_cast<T*>(from.get()));
}

} // namespace Tessel

using Tessel::Ptr;
