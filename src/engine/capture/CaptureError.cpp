#include "engine/capture/CaptureError.hpp"

#include <vantelo_sounds/ErrorCategory.hpp>

namespace vantelo_sounds::engine {

namespace {

const char* describe(CaptureError error) noexcept {
    switch (error) {
    case CaptureError::deviceUnavailable:
        return "No microphone could be opened";
    case CaptureError::deviceLost:
        return "The microphone went away";
    case CaptureError::signalUnavailable:
        return "The microphone's signal cannot be read";
    case CaptureError::fellBehind:
        return "The recording fell behind the microphone and lost sound";
    case CaptureError::onlySilence:
        return "The microphone gave only silence: it may be muted or blocked";
    }
    return nullptr;
}

} // namespace

const std::error_category& captureErrorCategory() noexcept {
    static const EnumErrorCategory<CaptureError> category("vantelo_sounds.CaptureError", describe);
    return category;
}

std::error_code make_error_code(CaptureError error) noexcept {
    return {static_cast<int>(error), captureErrorCategory()};
}

} // namespace vantelo_sounds::engine
