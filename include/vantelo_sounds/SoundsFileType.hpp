#pragma once

#include <optional>
#include <string>

namespace vantelo_sounds {

/// A sound-file extension. Used only through its raw value, so it has no equality of its own.
class SoundsFileType {
public:
    enum class Kind { custom, wav, m4p, mp3, m4a };

    static SoundsFileType custom(std::string ext) { return {Kind::custom, std::move(ext)}; }
    static SoundsFileType wav() { return {Kind::wav, "wav"}; }
    static SoundsFileType m4p() { return {Kind::m4p, "m4p"}; }
    static SoundsFileType mp3() { return {Kind::mp3, "mp3"}; }
    static SoundsFileType m4a() { return {Kind::m4a, "m4a"}; }
    /// Always custom(raw), never a named case and never empty ("wav" gives custom("wav")).
    static std::optional<SoundsFileType> fromRawValue(std::string raw);

    const std::string& rawValue() const noexcept { return mValue; }
    Kind kind() const noexcept { return mKind; }

private:
    SoundsFileType(Kind kind, std::string value)
        : mKind(kind)
        , mValue(std::move(value)) {}

    Kind mKind;
    std::string mValue;
};

} // namespace vantelo_sounds
