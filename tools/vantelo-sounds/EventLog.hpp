#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <vantelo_sounds/platform/Clock.hpp>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantelo_sounds::cli {

/// The events of one run, written as JSON lines: {"t": seconds, "type": ..., fields...}.
///
/// Events come from several sources (console lines, completions, the playback observer) that each
/// report in time order but may be a few microseconds apart from one another, so the log keeps
/// them and sorts them by time (stably: equal times keep the order of arrival) when written.
/// Safe to call from any thread.
class EventLog {
public:
    using Fields = nlohmann::ordered_json;

    /// The run loop's time at which the scenario starts; events are written relative to it (a
    /// real-time run spends a moment opening the device before its time 0). Times before it
    /// count as 0.
    void setOrigin(Duration origin);

    /// Adds an event of `type` at run-loop time `t`; `fields` is an object of the other fields.
    void record(Duration t, std::string_view type, Fields fields = Fields::object());

    void console(Duration t, std::string_view line);
    /// A sound began (`channel` absent when the player had no channel).
    void soundStart(Duration t, std::optional<std::int64_t> channel, const std::string& file);
    /// A sound stopped sounding; `reason` is "finished" or "stopped".
    void soundEnd(Duration t, std::optional<std::int64_t> channel, const std::string& file,
                  std::string_view reason);
    void speechStart(Duration t, const std::string& text, const std::string& voice);
    /// `reason` is "finished" or "cancelled".
    void speechEnd(Duration t, const std::string& text, std::string_view reason);
    void recordingStart(Duration t, const std::string& url);
    void recordingEnd(Duration t, const std::string& url);

    /// A sound's completion ran.
    void completion(Duration t, const std::string& tag);
    void speechCompletion(Duration t, const std::string& tag, const std::string& text,
                          const std::optional<std::error_code>& error);
    void recordingCompletion(Duration t, const std::string& tag,
                             const std::optional<std::string>& url,
                             const std::optional<std::error_code>& error);
    void permissionCompletion(Duration t, const std::string& tag,
                              const std::optional<bool>& granted,
                              const std::optional<std::error_code>& error);

    std::size_t size() const;

    /// Writes every event, one JSON object per line, in time order.
    void write(std::ostream& out) const;

    /// Seconds with microsecond precision, as they appear in "t".
    static double secondsOf(Duration t);

private:
    struct Event {
        Duration t;
        Fields object;
    };

    mutable std::mutex mMutex;
    Duration mOrigin{};
    std::vector<Event> mEvents;
};

} // namespace vantelo_sounds::cli
