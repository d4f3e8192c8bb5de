#pragma once

// The sound-description value types in one include.
#include <vantelo_sounds/GameSkinName.hpp>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/SoundsFileType.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
