#pragma once

#include <string>
#include <system_error>

namespace vantelo_sounds {

/// The error category of one of the library's error enumerations: its name is the module and the
/// type joined by a dot ("vantelo_sounds.SoundsError"), and its messages are the human
/// descriptions that `describe` gives each case (nullptr for a value the enumeration lacks).
template <typename Enum>
class EnumErrorCategory final : public std::error_category {
public:
    using Describe = const char* (*)(Enum) noexcept;

    constexpr EnumErrorCategory(const char* name, Describe describe) noexcept
        : mName(name)
        , mDescribe(describe) {}

    const char* name() const noexcept override { return mName; }
    std::string message(int value) const override {
        const char* text = mDescribe(static_cast<Enum>(value));
        return text != nullptr ? text : std::string(mName) + " " + std::to_string(value);
    }

private:
    const char* mName;
    Describe mDescribe;
};

} // namespace vantelo_sounds
