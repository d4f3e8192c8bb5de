#include "EventLog.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ErrorCaseName.hpp"

namespace vantelo_sounds::cli {

namespace {

EventLog::Fields errorField(const std::optional<std::error_code>& error) {
    return error ? EventLog::Fields(errorCaseName(*error)) : EventLog::Fields(nullptr);
}

EventLog::Fields channelField(std::optional<std::int64_t> channel) {
    return channel ? EventLog::Fields(*channel) : EventLog::Fields(nullptr);
}

} // namespace

double EventLog::secondsOf(Duration t) {
    const double microseconds = std::round(static_cast<double>(t.count()) / 1000.0);
    return microseconds / 1e6;
}

void EventLog::setOrigin(Duration origin) {
    std::lock_guard lock(mMutex);
    mOrigin = origin;
}

void EventLog::record(Duration t, std::string_view type, Fields fields) {
    if (mOut == nullptr) {
        return;
    }
    std::lock_guard lock(mMutex);
    mLast = std::max(mLast, t - mOrigin);
    Fields object = Fields::object();
    object["t"] = secondsOf(mLast);
    object["type"] = type;
    for (auto& [key, value] : fields.items()) {
        object[key] = std::move(value);
    }
    // Console lines and file names may carry bytes that are not UTF-8; they are written with
    // U+FFFD in their place rather than refused. Each line is flushed, so that a run that is
    // killed keeps what happened up to then.
    *mOut << object.dump(-1, ' ', false, Fields::error_handler_t::replace) << std::endl;
}

void EventLog::console(Duration t, std::string_view line) {
    if (enabled()) {
        record(t, "console", {{"line", line}});
    }
}

void EventLog::soundStart(Duration t, std::optional<std::int64_t> channel,
                          const std::string& file) {
    record(t, "soundStart", {{"channel", channelField(channel)}, {"file", file}});
}

void EventLog::soundEnd(Duration t, std::optional<std::int64_t> channel, const std::string& file,
                        std::string_view reason) {
    record(t, "soundEnd", {{"channel", channelField(channel)}, {"file", file}, {"reason", reason}});
}

void EventLog::soundPause(Duration t, std::optional<std::int64_t> channel, const std::string& file,
                          bool resumed) {
    record(t, resumed ? "soundResume" : "soundPause",
           {{"channel", channelField(channel)}, {"file", file}});
}

void EventLog::output(Duration t, const std::string& name, const std::string& device) {
    record(t, "output",
           {{"name", name}, {"device", device.empty() ? Fields(nullptr) : Fields(device)}});
}

void EventLog::recording(Duration t, bool start, const std::string& url) {
    record(t, start ? "recordingStart" : "recordingEnd", {{"url", url}});
}

void EventLog::interruption(Duration t, std::optional<std::uint64_t> type,
                            std::optional<std::uint64_t> options) {
    const auto number = [](std::optional<std::uint64_t> value) {
        return value ? Fields(*value) : Fields(nullptr);
    };
    record(t, "interruption", {{"interruption", number(type)}, {"options", number(options)}});
}

void EventLog::speechStart(Duration t, const std::string& text,
                           const std::optional<std::string>& voice) {
    record(t, "speechStart", {{"text", text}, {"voice", voice ? Fields(*voice) : Fields(nullptr)}});
}

void EventLog::speechEnd(Duration t, const std::string& text, std::string_view reason) {
    record(t, "speechEnd", {{"text", text}, {"reason", reason}});
}

void EventLog::completion(Duration t, const std::string& tag) {
    record(t, "completion", {{"tag", tag}});
}

void EventLog::speechCompletion(Duration t, const std::string& tag, const std::string& text,
                                const std::optional<std::error_code>& error) {
    record(t, "completion", {{"tag", tag}, {"text", text}, {"error", errorField(error)}});
}

void EventLog::recordingCompletion(Duration t, const std::string& tag,
                                   const std::optional<std::string>& url,
                                   const std::optional<std::error_code>& error) {
    record(t, "completion",
           {{"tag", tag},
            {"url", url ? Fields(*url) : Fields(nullptr)},
            {"error", errorField(error)}});
}

void EventLog::permissionCompletion(Duration t, const std::string& tag,
                                    const std::optional<bool>& granted,
                                    const std::optional<std::error_code>& error) {
    record(t, "completion",
           {{"tag", tag},
            {"granted", granted ? Fields(*granted) : Fields(nullptr)},
            {"error", errorField(error)}});
}

} // namespace vantelo_sounds::cli
