#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/platform/Date.hpp>
#include <vantelo_sounds/platform/FileManager.hpp>

namespace vantelo_sounds {

SoundInstruction::SoundInstruction(std::string instructionText, std::optional<FileURL> url)
    : text(std::move(instructionText))
    , mId(Date::timeIntervalSince1970Now()) {
    // Whether the clip exists is decided once, here; anything at the path counts.
    if (url && FileManager::defaultManager().fileExistsAtPath(url->path())) {
        mSoudClip = PlaySoundSettings::instanly(*url);
        hasSoundfile = true;
    }
}

} // namespace vantelo_sounds
