// Instruction sequences: each text spoken, then its clip, then the next.
#include <algorithm>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {

void VTOSoundsManager::play(const std::vector<SoundInstruction>& instruction) {
    if (offLoopThread()) {
        RunLoop::main().post([this, instruction] { play(instruction); });
        return;
    }
    // Instructions given while a sequence runs join its end; only an idle player starts.
    const std::size_t before = instructionQueue.size();
    instructionQueue.insert(instructionQueue.end(), instruction.begin(), instruction.end());
    if (before == 0 && !instructionQueue.empty()) {
        playInstruction(SoundInstruction(instructionQueue.front()));
    }
}

void VTOSoundsManager::playInstruction(const SoundInstruction& instruction) {
    // The clip-finished step: every instruction with this one's id leaves the list (copies of one
    // instruction share it), and the next head starts at once, with no pause after the clip.
    Completion clipFinished = [this, instruction] {
        std::erase_if(instructionQueue, [&](const SoundInstruction& queued) {
            return queued.id() == instruction.id();
        });
        if (!instructionQueue.empty()) {
            playInstruction(SoundInstruction(instructionQueue.front()));
        }
    };
    if (!voice) {
        // Without a voice only the clips play; instructions without one pass at once.
        Console::shared().print("Voice engine is unavailable for selected language");
        playSound(instruction.soudClip(), std::move(clipFinished));
        return;
    }
    // The speech-finished step, bound to this text's utterance: a cancel (shutup) runs it too, so
    // the clip still plays and the sequence goes on.
    speakUtterance(instruction.text, voice,
                   [this, clip = instruction.soudClip(), clipFinished = std::move(clipFinished)](
                       const std::string&, const std::optional<std::error_code>&) {
                       playSound(clip, clipFinished);
                   });
}

} // namespace vantelo_sounds
