#pragma once

#include <functional>
#include <memory>
#include <vantelo_sounds/Expected.hpp>
#include <vantelo_sounds/platform/Clock.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

class AudioPlayer;

/// Receives the end of a player's sound. Called on the run loop's thread.
class AudioPlayerDelegate {
public:
    virtual ~AudioPlayerDelegate() = default;
    /// The player's sound ended by itself (not by stop()). `successfully` is false when its
    /// source failed while playing (a file that turned out to be cut short, for instance), or
    /// when its voice was given to a newer sound because every voice was in use.
    virtual void audioPlayerDidFinishPlaying(const std::shared_ptr<AudioPlayer>& player,
                                             bool successfully) = 0;
};

/// A file-backed player: one sound file, one voice in the mixer. Used on the run loop's thread.
///
/// - play() starts (or continues, after pause()) the sound and returns at once; the first play of a
///   file does not wait for the whole file to be decoded.
/// - isPlaying() is true from play() until the sound is stopped, paused, or its end has been
///   delivered on the run loop: it turns false just before the delegate hears of the end. Players
///   whose sounds end together are told one at a time, so each of them still plays while the end
///   of another is handled.
/// - stop() stops without a callback (a short fade, never a click); a later play() starts again
///   from the beginning.
/// - pan (-1 left .. 1 right) and volume (0 .. 1) report the value given; the mixer receives a
///   harmless version of it (NaN counts as 0 pan / 0 volume, values are clamped to the range).
/// - numberOfLoops: 0 plays once, n plays n + 1 times, any negative value loops until stopped.
class AudioPlayer : public std::enable_shared_from_this<AudioPlayer> {
public:
    /// Creates a player for a local sound file. Fails with an AudioPlayerError (see
    /// audioPlayerErrorCategory()) that says why: missing, not a regular file, not audio,
    /// unsupported or protected codec. Opening reads only the file's head.
    static Expected<std::shared_ptr<AudioPlayer>> create(const FileURL& url);

    ~AudioPlayer();
    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    /// Not owned; the delegate must outlive the player or clear itself.
    void setDelegate(AudioPlayerDelegate* delegate) noexcept { mDelegate = delegate; }
    AudioPlayerDelegate* delegate() const noexcept { return mDelegate; }

    void setPan(float pan);
    float pan() const noexcept { return mPan; }
    void setVolume(float volume);
    float volume() const noexcept { return mVolume; }
    void setNumberOfLoops(long loops);
    long numberOfLoops() const noexcept { return mNumberOfLoops; }

    bool play();
    void pause();
    void stop();
    bool isPlaying() const noexcept;

    const FileURL& url() const noexcept { return mUrl; }
    /// Length of one pass of the sound, in seconds (known once the file is fully decoded; an
    /// estimate from the container before).
    double duration() const noexcept;

    struct Impl;

private:
    AudioPlayer(FileURL url, std::unique_ptr<Impl> impl);

    FileURL mUrl;
    std::unique_ptr<Impl> mImpl;
    AudioPlayerDelegate* mDelegate = nullptr;
    float mPan = 0.0f;
    float mVolume = 1.0f;
    long mNumberOfLoops = 0;
};

/// Errors of AudioPlayer::create, under the category "vantelo_sounds.AudioPlayerError".
enum class AudioPlayerError {
    fileNotFound = 1,  ///< nothing at the path
    notARegularFile,   ///< a directory, FIFO, device or socket
    notReadable,       ///< no permission, or the read failed
    notAudio,          ///< no audio stream, empty or unrecognised data
    unsupportedFormat, ///< a container or codec outside the allowed set (playlists, scripts)
    protectedContent,  ///< DRM-protected audio
    corrupt,           ///< the data is damaged beyond decoding
    tooLarge,          ///< larger than the decoded-sound cache may hold
    notAFileURL,       ///< the URL is not an absolute local path
};
const std::error_category& audioPlayerErrorCategory() noexcept;
std::error_code make_error_code(AudioPlayerError e) noexcept;

} // namespace vantelo_sounds

template <>
struct std::is_error_code_enum<vantelo_sounds::AudioPlayerError> : std::true_type {};
