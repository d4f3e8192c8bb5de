#pragma once

#include <system_error>
#include <utility>
#include <variant>

namespace vantelo_sounds {

/// A value or the error that kept it from being made. g++ 12 has no std::expected; this is the
/// small part of it the library needs. Errors are std::error_code values whose category names the
/// error type ("vantelo_sounds.SoundsError") and whose message is the human description.
template <typename T>
class [[nodiscard]] Expected {
public:
    Expected(T value)
        : mState(std::in_place_index<0>, std::move(value)) {}
    Expected(std::error_code error)
        : mState(std::in_place_index<1>, error) {}

    bool hasValue() const noexcept { return mState.index() == 0; }
    explicit operator bool() const noexcept { return hasValue(); }

    T& value() & { return std::get<0>(mState); }
    const T& value() const& { return std::get<0>(mState); }
    T&& value() && { return std::get<0>(std::move(mState)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    std::error_code error() const { return hasValue() ? std::error_code{} : std::get<1>(mState); }

private:
    std::variant<T, std::error_code> mState;
};

} // namespace vantelo_sounds
