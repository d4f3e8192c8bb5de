#pragma once

#include <utility>
#include <variant>

#include "engine/codec/OpenError.hpp"

namespace vantelo_sounds::engine {

/// A value, or the OpenError that kept it from being made.
template <class T>
class [[nodiscard]] OpenResult {
public:
    OpenResult(T value)
        : mState(std::in_place_index<0>, std::move(value)) {}
    OpenResult(OpenError error)
        : mState(std::in_place_index<1>, std::move(error)) {}

    bool ok() const noexcept { return mState.index() == 0; }
    explicit operator bool() const noexcept { return ok(); }

    T& value() & { return std::get<0>(mState); }
    const T& value() const& { return std::get<0>(mState); }
    T&& value() && { return std::get<0>(std::move(mState)); }

    /// Only valid when !ok().
    const OpenError& error() const { return std::get<1>(mState); }

private:
    std::variant<T, OpenError> mState;
};

} // namespace vantelo_sounds::engine
