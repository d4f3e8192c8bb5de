#include <filesystem>
#include <vantelo_sounds/PlaySoundSettings.hpp>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/SearchPaths.hpp>
#include <vantelo_sounds/platform/UUID.hpp>

namespace vantelo_sounds {

PlaySoundSettings::PlaySoundSettings(FileURL fileUrl, SoundsPanType panType,
                                     SoundsVolumeType volumeLevel, bool queued, bool loop)
    : volume(volumeLevel.rawValue())
    , queuedPlay(queued)
    , fileName(fileUrl.lastPathComponent())
    , mId(UUID::make().uuidString())
    , mPanTypeValue(panType.rawValue())
    , mLooped(loop)
    , mFilePathURL(std::move(fileUrl)) {}

PlaySoundSettings PlaySoundSettings::custom(const FileURL& play, bool loop, SoundsVolumeType volume,
                                            SoundsPanType balance,
                                            bool willBlockPlaybackUntilFinished) {
    return PlaySoundSettings(play, balance, volume, willBlockPlaybackUntilFinished, loop);
}

PlaySoundSettings PlaySoundSettings::custom(const std::string& file, const std::string& ext,
                                            bool loop, SoundsVolumeType volume,
                                            SoundsPanType balance,
                                            bool willBlockPlaybackUntilFinished) {
    std::optional<FileURL> url = Bundle::main().urlForResource(file, ext);
    if (!url) {
        // Not in the bundle: the file of that name, without the extension, in the caches folder,
        // whether it exists or not (playback reports a missing file). With no home folder at all
        // there is no caches folder, and the system's temporary folder stands in for it.
        const auto caches = SearchPaths::cachesDirectories();
        std::string folder;
        if (!caches.empty()) {
            folder = caches.front();
        } else {
            std::error_code error;
            folder = std::filesystem::temp_directory_path(error).string();
            if (error || folder.empty()) {
                folder = "/tmp";
            }
        }
        url = FileURL::fileURLWithPath(folder + "/" + file);
    }
    return PlaySoundSettings(*url, balance, volume, willBlockPlaybackUntilFinished, loop);
}

PlaySoundSettings PlaySoundSettings::standard(const FileURL& play, bool looped, bool queuedPlay) {
    return PlaySoundSettings(play, SoundsPanType::center(), SoundsVolumeType::high(), queuedPlay,
                             looped);
}

PlaySoundSettings PlaySoundSettings::queued(const FileURL& play) {
    return standard(play, false, true);
}

PlaySoundSettings PlaySoundSettings::instanly(const FileURL& play) {
    return standard(play, false, false);
}

PlaySoundSettings PlaySoundSettings::looped(const FileURL& play) {
    return standard(play, true, false);
}

bool operator==(const PlaySoundSettings& a, const PlaySoundSettings& b) noexcept {
    return a.mId == b.mId && a.fileName == b.fileName && a.mPanTypeValue == b.mPanTypeValue &&
           a.volume == b.volume && a.queuedPlay == b.queuedPlay;
}

} // namespace vantelo_sounds
