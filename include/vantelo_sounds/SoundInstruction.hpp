#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// One step of an instruction sequence: a text to speak and, optionally, a clip that plays after
/// it. Its identity is the wall-clock time of its making.
class SoundInstruction {
public:
    /// Stamps the instruction with the current time. When `url` is given and something exists at
    /// its path (a directory too), the clip is instanly(url) and hasSoundfile is true. The
    /// existence test is made only here.
    SoundInstruction(std::string text, std::optional<FileURL> url);

    std::string text;
    /// True when the constructor found the clip's file.
    bool hasSoundfile = false;

    const std::optional<PlaySoundSettings>& soudClip() const noexcept { return mSoudClip; }
    /// Seconds since 1970 at construction.
    double id() const noexcept { return mId; }

    /// Equal ids (as 64-bit floats); the text and the clip take no part.
    friend bool operator==(const SoundInstruction& a, const SoundInstruction& b) noexcept {
        return a.mId == b.mId;
    }

private:
    std::optional<PlaySoundSettings> mSoudClip;
    double mId = 0.0;
};

} // namespace vantelo_sounds

/// Hashes the id alone, as a double: -0.0 and 0.0 hash alike.
template <>
struct std::hash<vantelo_sounds::SoundInstruction> {
    std::size_t operator()(const vantelo_sounds::SoundInstruction& instruction) const noexcept {
        return std::hash<double>{}(instruction.id());
    }
};
