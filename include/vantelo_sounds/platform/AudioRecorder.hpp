#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vantelo_sounds/Expected.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

class AudioRecorder;

/// Hears how a recording ended. Called on the run loop's thread, once per recording: either
/// audioRecorderDidFinishRecording or audioRecorderEncodeErrorDidOccur.
class AudioRecorderDelegate {
public:
    virtual ~AudioRecorderDelegate() = default;
    /// The recording ended by reaching its duration, by stop(), by an interruption, or because
    /// the microphone went away after it had captured something; the file is complete.
    virtual void audioRecorderDidFinishRecording(AudioRecorder& recorder, bool successfully) = 0;
    /// The recording could not be made into a good clip (an AudioRecorderError says why); what
    /// was captured is still in a complete file.
    virtual void audioRecorderEncodeErrorDidOccur(AudioRecorder& recorder,
                                                  const std::optional<Failure>& error) = 0;
};

/// A recorder's settings: text keys to integers.
using AudioRecorderSettings = std::map<std::string, std::int64_t>;
inline constexpr const char* kAudioFormatIDKey = "AVFormatIDKey";
inline constexpr const char* kAudioSampleRateKey = "AVSampleRateKey";
inline constexpr const char* kAudioNumberOfChannelsKey = "AVNumberOfChannelsKey";
inline constexpr const char* kAudioEncoderQualityKey = "AVEncoderAudioQualityKey";
/// The format it records: MPEG-4 AAC in an M4A file ('aac ').
inline constexpr std::int64_t kAudioFormatMPEG4AAC = 0x61616320;
/// Encoder quality levels, 0 to 127; higher spends more bits.
inline constexpr std::int64_t kAudioQualityMin = 0x00;
inline constexpr std::int64_t kAudioQualityLow = 0x20;
inline constexpr std::int64_t kAudioQualityMedium = 0x40;
inline constexpr std::int64_t kAudioQualityHigh = 0x60;
inline constexpr std::int64_t kAudioQualityMax = 0x7F;

/// Records the microphone into one file: AAC in a fragmented M4A whose fragments reach the disk as
/// they are made (a process killed while recording leaves a file that plays up to its last
/// tenth of a second or so), completed properly when the recording ends. Used on the run loop's
/// thread.
///
/// - The microphone is the default capture device in real time (or the signal set through
///   platform/Simulation.hpp); a manual run loop's recorder hears that signal, silence unless
///   set, and counts its length on the loop's clock.
/// - The length is counted in captured samples, so a recording of 2.5 s holds 2.5 s of sound
///   however late the device started.
/// - The delegate set when a recording begins hears its end, on the run loop's thread. A
///   recording replaced by a new one before its end was delivered is not reported.
/// - An interruption of the audio session ends a recording as stop() does: the file keeps what
///   was captured.
class AudioRecorder : public std::enable_shared_from_this<AudioRecorder> {
public:
    /// A recorder for the file at `url`. Fails with AudioRecorderError::unsupportedSettings when
    /// the settings ask for something it cannot record: another format than AAC, a rate outside
    /// 8000..48000, other than 1 or 2 channels, a quality outside 0..127. Absent keys take AAC,
    /// 44100 Hz, 1 channel and high quality. The file is not touched until prepareToRecord().
    static Expected<std::shared_ptr<AudioRecorder>> create(const FileURL& url,
                                                           const AudioRecorderSettings& settings);

    /// A recording under way is abandoned: its file is completed, nobody is told.
    ~AudioRecorder();
    AudioRecorder(const AudioRecorder&) = delete;
    AudioRecorder& operator=(const AudioRecorder&) = delete;

    /// Not owned: a recording whose delegate has gone away ends unreported.
    void setDelegate(std::weak_ptr<AudioRecorderDelegate> delegate) {
        mDelegate = std::move(delegate);
    }

    /// Creates the file (truncating what is there) and writes its header. A recording under way
    /// is abandoned first, unreported. False when the file cannot be created; the following
    /// recordForDuration() then reports the error through the delegate.
    bool prepareToRecord();
    /// Records for at most `seconds` (0 or less: ends at once, holding nothing), preparing first
    /// when prepareToRecord() was not called since the last recording. Returns true: the end is
    /// always reported, through the delegate, also when the microphone or the file fails.
    bool recordForDuration(double seconds);
    /// Ends the recording; the delegate hears of it on the run loop shortly after. Does nothing
    /// when not recording.
    void stop();
    /// True from recordForDuration() until stop() or until the end is delivered.
    bool isRecording() const noexcept;
    /// Seconds captured into the file of the recording under way, or of the last one.
    double currentTime() const noexcept;

    const FileURL& url() const noexcept { return mUrl; }
    const AudioRecorderSettings& settings() const noexcept { return mSettings; }

    struct Impl;

private:
    AudioRecorder(FileURL url, AudioRecorderSettings settings, std::unique_ptr<Impl> impl);

    FileURL mUrl;
    AudioRecorderSettings mSettings;
    std::unique_ptr<Impl> mImpl;
    std::weak_ptr<AudioRecorderDelegate> mDelegate;
};

} // namespace vantelo_sounds
