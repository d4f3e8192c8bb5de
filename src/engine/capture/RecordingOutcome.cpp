#include "engine/capture/RecordingOutcome.hpp"

#include <string>

#include "engine/capture/CaptureError.hpp"
#include "engine/capture/RecordingFile.hpp"

namespace vantelo_sounds::engine {

RecordingOutcome RecordingOutcome::of(const RecordingFile& file, Reason endedFor,
                                      Expected<void> failure, const Expected<void>& finished,
                                      std::uint64_t dropped) {
    RecordingOutcome outcome;
    outcome.reason = endedFor;
    outcome.seconds = file.seconds();
    outcome.droppedFrames = dropped;
    outcome.repairedSamples = file.repairedSamples();
    if (!failure) {
        outcome.reason = Reason::failed;
        outcome.result = std::move(failure);
    } else if (!finished) {
        outcome.reason = Reason::failed;
        outcome.result = finished;
    } else if (dropped > 0) {
        // A gap in a clip is a broken clip: said, never passed off as a good recording.
        const auto ms = dropped * 1000 / static_cast<std::uint64_t>(file.inputRate());
        outcome.result =
            Expected<void>(CaptureError::fellBehind, std::to_string(ms) + " ms of sound lost");
    } else if (endedFor == Reason::deviceLost && file.frames() == 0) {
        outcome.result = Expected<void>(CaptureError::deviceLost, "nothing was captured");
    } else if (file.frames() > 0 && !file.heardAnything()) {
        // A real microphone always hears some noise; exact zeros mean a muted or blocked one.
        outcome.result = Expected<void>(CaptureError::onlySilence);
    }
    return outcome;
}

} // namespace vantelo_sounds::engine
