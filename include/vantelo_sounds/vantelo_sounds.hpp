#pragma once

// Everything a game needs, in one include.
#include <vantelo_sounds/Completions.hpp>
#include <vantelo_sounds/GameSkinName.hpp>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/SoundsFileType.hpp>
#include <vantelo_sounds/SoundsManager.hpp>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/Version.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
