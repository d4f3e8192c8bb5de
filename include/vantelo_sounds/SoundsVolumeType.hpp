#pragma once

namespace vantelo_sounds {

/// A volume level from silent (0) to max (1). Used only through its raw value, so it has no
/// equality of its own.
class SoundsVolumeType {
public:
    enum class Kind { custom, silent, extraLow, low, medium, high, max };

    static constexpr SoundsVolumeType silent() noexcept { return {Kind::silent, 0.0f}; }
    /// The float nearest to 0.05 (bits 0x3D4CCCCD).
    static constexpr SoundsVolumeType extraLow() noexcept { return {Kind::extraLow, 0.05f}; }
    static constexpr SoundsVolumeType low() noexcept { return {Kind::low, 0.25f}; }
    static constexpr SoundsVolumeType medium() noexcept { return {Kind::medium, 0.5f}; }
    static constexpr SoundsVolumeType high() noexcept { return {Kind::high, 0.75f}; }
    static constexpr SoundsVolumeType max() noexcept { return {Kind::max, 1.0f}; }
    /// Any level, carried unchanged (not clamped). The parameter keeps the pan type's label.
    static constexpr SoundsVolumeType custom(float pan) noexcept { return {Kind::custom, pan}; }
    /// The named level whose raw value equals `raw` (as floats: -0.0 is silent, NaN matches
    /// nothing), else custom(raw).
    static SoundsVolumeType fromRawValue(float raw) noexcept;

    constexpr float rawValue() const noexcept { return mValue; }
    constexpr Kind kind() const noexcept { return mKind; }
    /// The value carried by custom(); the raw value for the named levels.
    constexpr float customValue() const noexcept { return mValue; }

private:
    constexpr SoundsVolumeType(Kind kind, float value) noexcept
        : mKind(kind)
        , mValue(value) {}

    Kind mKind;
    float mValue;
};

} // namespace vantelo_sounds
