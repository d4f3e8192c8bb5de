#pragma once

#include <optional>
#include <string>
#include <vantelo_sounds/PlaySoundSettings.hpp>

namespace vantelo_sounds {

/// Changes a record's internal fields, which callers can read through the library only.
struct PlaySoundSettingsAccess {
    static void setId(PlaySoundSettings& s, std::string id) { s.mId = std::move(id); }
    static void setExt(PlaySoundSettings& s, std::optional<std::string> ext) {
        s.mExt = std::move(ext);
    }
    static void setPanTypeValue(PlaySoundSettings& s, float pan) { s.mPanTypeValue = pan; }
    static void setLooped(PlaySoundSettings& s, bool looped) { s.mLooped = looped; }
    static void setFilePathURL(PlaySoundSettings& s, FileURL url) {
        s.mFilePathURL = std::move(url);
    }
};

} // namespace vantelo_sounds
