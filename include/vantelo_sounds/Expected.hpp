#pragma once

#include <string>
#include <system_error>
#include <utility>
#include <variant>

namespace vantelo_sounds {

/// What went wrong: a code whose category names the error type ("vantelo_sounds.SoundsError") and
/// whose message is the human description, and, when there is more to say, a detail in words
/// (FFmpeg's "moov atom not found", the path that could not be created).
struct Failure {
    std::error_code code;
    std::string detail;

    /// "message" or "message: detail".
    std::string describe() const {
        return detail.empty() ? code.message() : code.message() + ": " + detail;
    }
};

/// A value, or the failure that kept it from being made: the one way this library's operations
/// report an error. g++ 12 has no std::expected; this is the small part of it the library needs.
template <typename T>
class [[nodiscard]] Expected {
public:
    Expected(T value)
        : mState(std::in_place_index<0>, std::move(value)) {}
    Expected(std::error_code error, std::string detail = {})
        : mState(std::in_place_index<1>, Failure{error, std::move(detail)}) {}
    Expected(Failure failure)
        : mState(std::in_place_index<1>, std::move(failure)) {}

    bool hasValue() const noexcept { return mState.index() == 0; }
    explicit operator bool() const noexcept { return hasValue(); }

    T& value() & { return std::get<0>(mState); }
    const T& value() const& { return std::get<0>(mState); }
    T&& value() && { return std::get<0>(std::move(mState)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    /// Empty (no error) when there is a value.
    std::error_code error() const { return hasValue() ? std::error_code{} : failure().code; }
    /// Only valid without a value.
    const Failure& failure() const { return std::get<1>(mState); }

private:
    std::variant<T, Failure> mState;
};

/// An operation that gives nothing back but can fail: success by default.
template <>
class [[nodiscard]] Expected<void> {
public:
    Expected() = default;
    Expected(std::error_code error, std::string detail = {})
        : mFailure(Failure{error, std::move(detail)})
        , mFailed(true) {}
    Expected(Failure failure)
        : mFailure(std::move(failure))
        , mFailed(true) {}

    bool hasValue() const noexcept { return !mFailed; }
    explicit operator bool() const noexcept { return hasValue(); }

    std::error_code error() const { return mFailure.code; }
    /// Only meaningful without a value.
    const Failure& failure() const { return mFailure; }

private:
    Failure mFailure;
    bool mFailed = false;
};

} // namespace vantelo_sounds
