#pragma once

#include <vantelo_sounds/Completions.hpp>
#include <vantelo_sounds/PlaySoundSettings.hpp>

namespace vantelo_sounds {

/// One request waiting (or playing) in the play queue: its settings and the completion that
/// moves to its channel when its sound starts.
struct PlaySoundSettingsItem {
    PlaySoundSettings settings;
    Completion completion;
};

} // namespace vantelo_sounds
