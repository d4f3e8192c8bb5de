// Instruction sequences: each text spoken, then its clip, then the next.
#include <vantelo_sounds/VTOSoundsManager.hpp>

namespace vantelo_sounds {

// Instruction playback needs the speech queue; until it exists the instructions are accepted and
// nothing is played.
void VTOSoundsManager::play(const std::vector<SoundInstruction>&) {}

} // namespace vantelo_sounds
