#pragma once

#include <memory>
#include <string>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>

namespace vantelo_sounds {

/// One text to speak, with its voice and speaking rate (the synthesizer's default when not set).
class SpeechUtterance {
public:
    /// The platform's default speaking rate, on its 0 (slowest) to 1 (fastest) scale.
    static constexpr float kDefaultSpeechRate = 0.5f;

    explicit SpeechUtterance(std::string text)
        : mText(std::move(text)) {}

    const std::string& speechString() const noexcept { return mText; }
    const std::shared_ptr<const SpeechSynthesisVoice>& voice() const noexcept { return mVoice; }
    void setVoice(std::shared_ptr<const SpeechSynthesisVoice> voice) { mVoice = std::move(voice); }
    float rate() const noexcept { return mRate; }
    void setRate(float rate) noexcept { mRate = rate; }

private:
    std::string mText;
    std::shared_ptr<const SpeechSynthesisVoice> mVoice;
    float mRate = kDefaultSpeechRate;
};

} // namespace vantelo_sounds
