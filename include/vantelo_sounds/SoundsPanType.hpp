#pragma once

namespace vantelo_sounds {

/// Where a sound sits between the left (-1) and right (1) speaker. Used only through its raw
/// value, so it has no equality of its own.
class SoundsPanType {
public:
    enum class Kind { custom, left, center, right };

    static constexpr SoundsPanType left() noexcept { return SoundsPanType(Kind::left, -1.0f); }
    static constexpr SoundsPanType center() noexcept { return SoundsPanType(Kind::center, 0.0f); }
    static constexpr SoundsPanType right() noexcept { return SoundsPanType(Kind::right, 1.0f); }
    /// Any position, carried unchanged (not clamped).
    static constexpr SoundsPanType custom(float pan) noexcept {
        return SoundsPanType(Kind::custom, pan);
    }
    /// The named position whose raw value equals `raw` (as floats: -0.0 is center, NaN matches
    /// nothing), else custom(raw).
    static SoundsPanType fromRawValue(float raw) noexcept;

    constexpr float rawValue() const noexcept { return mValue; }
    constexpr Kind kind() const noexcept { return mKind; }
    /// The value carried by custom(); the raw value for the named positions.
    constexpr float customValue() const noexcept { return mValue; }

private:
    constexpr SoundsPanType(Kind kind, float value) noexcept
        : mKind(kind)
        , mValue(value) {}

    Kind mKind;
    float mValue;
};

} // namespace vantelo_sounds
