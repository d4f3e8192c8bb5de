#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <vantelo_sounds/platform/Clock.hpp>

#include <nlohmann/json.hpp>

namespace vantelo_sounds::cli {

/// The events of one run, written as JSON lines ({"t": seconds, "type": ..., fields...}) to a
/// stream as they happen, so the order of the lines is the order of cause and effect and nothing
/// is kept in memory. A time is never written earlier than the line before it: sources that
/// report a sound's time to the mix frame may be a few microseconds behind the run loop's clock.
/// Without a stream the log is off and every call costs next to nothing. Safe to call from any
/// thread.
class EventLog {
public:
    using Fields = nlohmann::ordered_json;

    /// Writes each event to `out`, which must outlive the log; nullptr: writes nothing.
    explicit EventLog(std::ostream* out = nullptr)
        : mOut(out) {}

    bool enabled() const noexcept { return mOut != nullptr; }

    /// The run loop's time at which the scenario starts; events are written relative to it (a
    /// real-time run spends a moment opening the device before its time 0). Times before it
    /// count as 0.
    void setOrigin(Duration origin);

    /// Writes an event of `type` at run-loop time `t`; `fields` is an object of the other fields.
    void record(Duration t, std::string_view type, Fields fields = Fields::object());

    void console(Duration t, std::string_view line);
    /// A sound began (`channel` absent when the player has no channel).
    void soundStart(Duration t, std::optional<std::int64_t> channel, const std::string& file);
    /// A sound stopped sounding; `reason` is "finished" or "stopped".
    void soundEnd(Duration t, std::optional<std::int64_t> channel, const std::string& file,
                  std::string_view reason);
    /// An interruption paused a player (`resumed` false), or play() started it again (true).
    void soundPause(Duration t, std::optional<std::int64_t> channel, const std::string& file,
                    bool resumed);
    /// The output in use: at the start of a run and whenever it changes.
    void output(Duration t, const std::string& name, const std::string& device);
    /// recordingStart or recordingEnd, with the file's URL.
    void recording(Duration t, bool start, const std::string& url);
    /// The session's interruption notification was delivered with these userInfo values (absent
    /// when not an unsigned number).
    void interruption(Duration t, std::optional<std::uint64_t> type,
                      std::optional<std::uint64_t> options);
    /// An utterance began to sound in the voice of language `voice` (absent: the synthesizer's
    /// default voice).
    void speechStart(Duration t, const std::string& text, const std::optional<std::string>& voice);
    /// An utterance stopped sounding; `reason` is "finished" or "cancelled".
    void speechEnd(Duration t, const std::string& text, std::string_view reason);

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

    /// Seconds with microsecond precision, as they appear in "t".
    static double secondsOf(Duration t);

private:
    std::mutex mMutex;
    std::ostream* mOut = nullptr;
    Duration mOrigin{};
    Duration mLast{}; // scenario time of the last line written
};

} // namespace vantelo_sounds::cli
