#pragma once

#include <memory>
#include <vantelo_sounds/VTOSoundRecorder.hpp>
#include <vantelo_sounds/VTOSoundsManager.hpp>

namespace vantelo_sounds {

/// Lets tests make managers of their own (one per test, on a fresh platform) and look at the
/// fields that games cannot see.
struct VTOSoundsManagerTestAccess {
    static std::unique_ptr<VTOSoundsManager> make() {
        return std::unique_ptr<VTOSoundsManager>(new VTOSoundsManager());
    }
    static auto& table(VTOSoundsManager& m) { return m.dictChannelAudioplayer; }
    static auto& playQueue(VTOSoundsManager& m) { return m.playQueue; }
    static const auto& voice(VTOSoundsManager& m) { return m.voice; }
    static const auto& britishVoice(VTOSoundsManager& m) { return m.britishVoice; }
    static SpeechSynthesizer& syntesizer(VTOSoundsManager& m) { return *m.syntesizer; }
    static VTOSoundRecorder& recorder(VTOSoundsManager& m) {
        return static_cast<VTOSoundRecorder&>(*m.soundRecorder);
    }
    static void playSound(VTOSoundsManager& m, const std::optional<PlaySoundSettings>& settings,
                          Completion completion) {
        m.playSound(settings, std::move(completion));
    }
};

} // namespace vantelo_sounds
