#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vantelo_sounds/platform/Notification.hpp>

namespace vantelo_sounds {

namespace simulation {
struct Access;
}

enum class AudioSessionCategory { ambient, soloAmbient, playback, record, playAndRecord };

enum class AudioSessionMode {
    defaultMode,
    gameChat,
    measurement,
    moviePlayback,
    spokenAudio,
    videoChat,
    voiceChat,
    voicePrompt,
};

/// A bit set of category options.
using AudioSessionCategoryOptions = std::uint32_t;
inline constexpr AudioSessionCategoryOptions kMixWithOthers = 0x1;
inline constexpr AudioSessionCategoryOptions kDuckOthers = 0x2;
inline constexpr AudioSessionCategoryOptions kDefaultToSpeaker = 0x8;
inline constexpr AudioSessionCategoryOptions kInterruptSpokenAudioAndMixWithOthers = 0x11;

/// The microphone permission; the values are the platform's four-character codes.
enum class RecordPermission : std::uint32_t {
    undetermined = 1970168948, // 'undt'
    denied = 1684369017,       // 'deny'
    granted = 1735552628,      // 'grnt'
};

/// Errors of the audio session, under the category "vantelo_sounds.AudioSessionError". The values
/// are four-character codes, never 0, so that an error never reads as success.
enum class AudioSessionError : int {
    incompatibleCategory = 560161140, // '!cat'
    isBusy = 560030580,               // '!act'
    insufficientPriority = 561017449, // '!pri'
};
const std::error_category& audioSessionErrorCategory() noexcept;
std::error_code make_error_code(AudioSessionError e) noexcept;

/// The interruption notification: posted when something else takes the device's audio and again
/// when it gives it back.
inline constexpr const char* kAudioSessionInterruptionNotification =
    "AudioSessionInterruptionNotification";
/// userInfo key: std::uint64_t, 1 = began, 0 = ended.
inline constexpr const char* kAudioSessionInterruptionTypeKey = "AudioSessionInterruptionTypeKey";
/// userInfo key: std::uint64_t bit set; bit 0 = playback should resume.
inline constexpr const char* kAudioSessionInterruptionOptionKey =
    "AudioSessionInterruptionOptionKey";
inline constexpr std::uint64_t kAudioSessionInterruptionTypeBegan = 1;
inline constexpr std::uint64_t kAudioSessionInterruptionTypeEnded = 0;
inline constexpr std::uint64_t kAudioSessionInterruptionOptionShouldResume = 1;

/// The application's one audio session: how its audio mixes with others', whether it is
/// active, the microphone permission and interruptions. Thread-safe.
///
/// Activation controls nothing harmful here: the mixer keeps running. The session keeps and
/// reports what it is told; platform/Simulation.hpp makes it refuse, count calls and pretend.
class AudioSession {
public:
    static AudioSession& sharedInstance();

    /// Sets category, mode and options together. A refused call changes nothing.
    std::error_code setCategory(AudioSessionCategory category, AudioSessionMode mode,
                                AudioSessionCategoryOptions options);
    /// Activates or deactivates the session. `options` is kept but has no effect. A refused call
    /// changes nothing.
    std::error_code setActive(bool active, std::uint32_t options = 0);

    AudioSessionCategory category() const;
    AudioSessionMode mode() const;
    AudioSessionCategoryOptions categoryOptions() const;
    bool isActive() const;

    // ---- record permission ------------------------------------------------------------------

    /// The stored answer: from $VANTELO_SOUNDS_RECORD_PERMISSION ("undetermined", "denied" or
    /// "granted") when set, else from the application's file
    /// $XDG_CONFIG_HOME/vantelo_sounds/<executable name>/record-permission.
    RecordPermission recordPermission();
    /// When undetermined, asks the prompt and stores the answer; then calls `response` with
    /// whether recording is granted, later, on the main run loop.
    void requestRecordPermission(std::function<void(bool granted)> response);
    /// Replaces the question put to the user (empty: the default, which asks on the terminal
    /// when standard input is one, else refuses). Called on the requesting thread.
    void setPermissionPrompt(std::function<bool()> prompt);
    /// Forgets the answer in memory: the next read takes it again from the environment or the
    /// application's file, and later answers are stored there (unless the environment set it).
    void reloadRecordPermission();

    // ---- interruptions ----------------------------------------------------------------------

    /// Something else takes the audio, or gives it back (the game is suspended and resumed, a
    /// call comes): posts, through the main run loop, the interruption notification with `type`
    /// and, when given, `options` in its userInfo (std::uint64_t values) to the default center.
    /// Safe to call from any thread.
    ///
    /// When an interruption begins (type 1), every player that sounds is paused where it is
    /// (silent within one mixer block, isPlaying() false, no callback) and speech in progress is
    /// cancelled, just before the notification is delivered. When it ends, nothing resumes by
    /// itself: whoever observes the notification plays again what it wants back. Sounds started
    /// during an interruption play.
    void postInterruption(std::uint64_t type, std::optional<std::uint64_t> options);

private:
    friend struct simulation::Access; // refusals, call counts and resets
    friend class AudioSystem;         // device losses

    /// The output device was lost (type 1) or sound is back on a device (type 0 with
    /// should-resume): posted like postInterruption(), but nothing is paused, as the mix never
    /// stopped.
    void postOutputInterruption(std::uint64_t type, std::optional<std::uint64_t> options);
    static Notification interruption(const AudioSession* sender, std::uint64_t type,
                                     std::optional<std::uint64_t> options);

    AudioSession();
    /// Posts through the main run loop to the default center.
    static void postNotification(Notification notification);
    void loadPermissionLocked();
    void storePermission(RecordPermission permission);

    mutable std::mutex mMutex;
    AudioSessionCategory mCategory = AudioSessionCategory::soloAmbient;
    AudioSessionMode mMode = AudioSessionMode::defaultMode;
    AudioSessionCategoryOptions mOptions = 0;
    bool mActive = false;
    int mCategoryCalls = 0;
    int mActiveCalls = 0;
    std::optional<std::error_code> mCategoryRefusal;
    std::optional<std::error_code> mActiveRefusal;
    std::optional<RecordPermission> mPermission; // empty until loaded
    bool mPersistPermission = false;             // answers are written to the file
    std::function<bool()> mPrompt;
};

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::AudioSessionError> : std::true_type {};
