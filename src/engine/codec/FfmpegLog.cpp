#include "engine/codec/FfmpegLog.hpp"

#include <cstdarg>
#include <cstdio>
#include <mutex>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace vantelo_sounds::engine {
namespace {

thread_local std::string tFirstError;

void quietCallback(void* /*avcl*/, int level, const char* format, va_list args) {
    if (level > AV_LOG_ERROR || !tFirstError.empty()) {
        return;
    }
    char line[512];
    std::vsnprintf(line, sizeof line, format, args);
    std::string text(line);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '.')) {
        text.pop_back();
    }
    tFirstError = std::move(text);
}

} // namespace

void FfmpegLog::install() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_ERROR);
        av_log_set_callback(quietCallback);
    });
}

void FfmpegLog::reset() {
    tFirstError.clear();
}

std::string FfmpegLog::firstError() {
    return tFirstError;
}

std::string FfmpegLog::describe(int errorCode) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(errorCode, text, sizeof text) < 0) {
        std::snprintf(text, sizeof text, "error %d", errorCode);
    }
    return text;
}

} // namespace vantelo_sounds::engine
