#pragma once

#include <optional>
#include <string>
#include <vantelo_sounds/SoundsPanType.hpp>
#include <vantelo_sounds/SoundsVolumeType.hpp>
#include <vantelo_sounds/platform/FileURL.hpp>

namespace vantelo_sounds {

/// One playback request: which file, where it sits between the speakers, how loud, whether it
/// loops and whether it waits in the play queue. A plain value; each record built gets its own
/// random id, so two records are equal only when one is a copy of the other (see operator==).
class PlaySoundSettings {
public:
    /// A new record with a new id. `fileName` is the URL's last path component; no extension is
    /// recorded and nothing checks that the file exists.
    PlaySoundSettings(FileURL fileUrl, SoundsPanType panType, SoundsVolumeType volume,
                      bool queuedPlay, bool looped);

    /// The raw value of the volume level given.
    float volume;
    /// True: the request waits in the play queue; false: it starts at once on a channel.
    bool queuedPlay;
    /// The file's last path component, extension included ("beep.wav").
    std::string fileName;

    /// The identity: an upper-case UUID text made with the record.
    const std::string& id() const noexcept { return mId; }
    /// The file extension; no construction sets it.
    const std::optional<std::string>& ext() const noexcept { return mExt; }
    /// The raw value of the pan position given.
    float panTypeValue() const noexcept { return mPanTypeValue; }
    bool looped() const noexcept { return mLooped; }
    const FileURL& filePathURL() const noexcept { return mFilePathURL; }

    static PlaySoundSettings custom(const FileURL& play, bool loop, SoundsVolumeType volume,
                                    SoundsPanType balance, bool willBlockPlaybackUntilFinished);
    /// The resource `file`.`ext` of the main bundle; when the bundle lacks it, the file named
    /// `file` (without the extension) in the user's caches folder, whether it exists or not.
    static PlaySoundSettings custom(const std::string& file, const std::string& ext, bool loop,
                                    SoundsVolumeType volume, SoundsPanType balance,
                                    bool willBlockPlaybackUntilFinished);
    /// Queued, not looped, volume high, pan center.
    static PlaySoundSettings queued(const FileURL& play);
    /// At once, not looped, volume high, pan center.
    static PlaySoundSettings instanly(const FileURL& play);
    /// At once, looped, volume high, pan center.
    static PlaySoundSettings looped(const FileURL& play);

    /// Equal ids, file names, pans and volumes (as floats) and queuedPlay; the extension, the
    /// loop flag and the URL take no part.
    friend bool operator==(const PlaySoundSettings& a, const PlaySoundSettings& b) noexcept;

private:
    // The library's own code (and its tests) change the internal fields through this.
    friend struct PlaySoundSettingsAccess;

    static PlaySoundSettings standard(const FileURL& play, bool looped, bool queuedPlay);

    std::string mId;
    std::optional<std::string> mExt;
    float mPanTypeValue;
    bool mLooped;
    FileURL mFilePathURL;
};

} // namespace vantelo_sounds
