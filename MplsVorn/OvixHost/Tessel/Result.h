#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace Tessel {

/// Why a request was not carried out: a short English sentence for the operator, naming the place
/// and the value.
struct Refused {
    std::string what;
};

/// What a function returns that can refuse: the value, or the refusal. Ask before taking either;
/// taking the one that is not there is a bug, which is asserted.
///
///     Tessel::Result<Prefix> prefix = Prefix::fromText(word);
///     if (!prefix) {
///         return prefix.refused();
///     }
///     use(prefix.value());
template <class T>
class [[nodiscard]] Result {
  public:
    Result(T value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(Refused refused) : held_(std::in_place_index<1>, std::move(refused)) {}

    explicit operator bool() const noexcept { return held_.index() == 0; }

    T& value() & noexcept {
        assert(*this);
        return *std::get_if<0>(&held_);
    }
    const T& value() const& noexcept {
        assert(*this);
        return *std::get_if<0>(&held_);
    }
    T value() && noexcept {
        assert(*this);
        return std::move(*std::get_if<0>(&held_));
    }
    const Refused& refused() const noexcept {
        assert(!*this);
        return *std::get_if<1>(&held_);
    }

  private:
    std::variant<T, Refused> held_;
};

/// Done, or refused.
template <>
class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    Result(Refused refused) : refused_(std::move(refused)) {}

    explicit operator bool() const noexcept { return !refused_; }
    const Refused& refused() const noexcept {
        assert(refused_);
        return *refused_;
    }

  private:
    std::optional<Refused> refused_;
};

} // namespace Tessel
