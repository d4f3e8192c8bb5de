#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vantelo_sounds/ErrorCategory.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/SearchPaths.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include "platform/Interruptible.hpp"

namespace vantelo_sounds {

namespace {

const char* describe(AudioSessionError error) noexcept {
    switch (error) {
    case AudioSessionError::incompatibleCategory:
        return "The audio session refused the category";
    case AudioSessionError::isBusy:
        return "The audio session refused to change its activation: the device is busy";
    case AudioSessionError::insufficientPriority:
        return "The audio session's priority is too low to take the device";
    }
    return nullptr;
}

const char* permissionWord(RecordPermission permission) {
    switch (permission) {
    case RecordPermission::denied:
        return "denied";
    case RecordPermission::granted:
        return "granted";
    case RecordPermission::undetermined:
        break;
    }
    return "undetermined";
}

std::optional<RecordPermission> permissionFromWord(std::string word) {
    while (!word.empty() && (word.back() == '\n' || word.back() == '\r' || word.back() == ' ')) {
        word.pop_back();
    }
    if (word == "granted") {
        return RecordPermission::granted;
    }
    if (word == "denied") {
        return RecordPermission::denied;
    }
    if (word == "undetermined") {
        return RecordPermission::undetermined;
    }
    return std::nullopt;
}

std::optional<RecordPermission> permissionFromEnvironment() {
    const char* value = std::getenv("VANTELO_SOUNDS_RECORD_PERMISSION");
    return value ? permissionFromWord(value) : std::nullopt;
}

// <config>/vantelo_sounds/<executable name>/record-permission
std::optional<std::filesystem::path> permissionFile() {
    auto config = SearchPaths::configDirectory();
    if (!config) {
        return std::nullopt;
    }
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string app = error ? "unknown" : executable.filename().string();
    return std::filesystem::path(*config) / "vantelo_sounds" / app / "record-permission";
}

// Asks on the controlling terminal; without one nobody can answer, so the answer is no.
bool askOnTerminal() {
    if (!::isatty(STDIN_FILENO)) {
        return false;
    }
    std::FILE* tty = std::fopen("/dev/tty", "r+");
    if (tty == nullptr) {
        return false;
    }
    std::fputs("Allow microphone access? [y/N] ", tty);
    std::fflush(tty);
    char answer[16] = {};
    const bool read = std::fgets(answer, sizeof answer, tty) != nullptr;
    std::fclose(tty);
    return read && (answer[0] == 'y' || answer[0] == 'Y');
}

} // namespace

const std::error_category& audioSessionErrorCategory() noexcept {
    static const EnumErrorCategory<AudioSessionError> category("vantelo_sounds.AudioSessionError",
                                                               describe);
    return category;
}

std::error_code make_error_code(AudioSessionError e) noexcept {
    return {static_cast<int>(e), audioSessionErrorCategory()};
}

AudioSession::AudioSession() = default;

AudioSession& AudioSession::sharedInstance() {
    static AudioSession session;
    return session;
}

std::error_code AudioSession::setCategory(AudioSessionCategory category, AudioSessionMode mode,
                                          AudioSessionCategoryOptions options) {
    std::lock_guard lock(mMutex);
    ++mCategoryCalls;
    if (mCategoryRefusal) {
        return *mCategoryRefusal;
    }
    mCategory = category;
    mMode = mode;
    mOptions = options;
    return {};
}

std::error_code AudioSession::setActive(bool active, std::uint32_t /*options*/) {
    std::lock_guard lock(mMutex);
    ++mActiveCalls;
    if (mActiveRefusal) {
        return *mActiveRefusal;
    }
    mActive = active;
    return {};
}

AudioSessionCategory AudioSession::category() const {
    std::lock_guard lock(mMutex);
    return mCategory;
}

AudioSessionMode AudioSession::mode() const {
    std::lock_guard lock(mMutex);
    return mMode;
}

AudioSessionCategoryOptions AudioSession::categoryOptions() const {
    std::lock_guard lock(mMutex);
    return mOptions;
}

bool AudioSession::isActive() const {
    std::lock_guard lock(mMutex);
    return mActive;
}

void AudioSession::loadPermissionLocked() {
    if (mPermission) {
        return;
    }
    if (auto preset = permissionFromEnvironment()) {
        mPermission = preset;
        mPersistPermission = false; // the environment decides; nothing is written
        return;
    }
    mPermission = RecordPermission::undetermined;
    mPersistPermission = true;
    if (auto file = permissionFile()) {
        std::ifstream in(*file);
        std::string word;
        if (in && std::getline(in, word)) {
            mPermission = permissionFromWord(word).value_or(RecordPermission::undetermined);
        }
    }
}

void AudioSession::storePermission(RecordPermission permission) {
    auto file = permissionFile();
    if (!file) {
        return;
    }
    // Written to a side file and renamed, so a crash never leaves half a word behind.
    std::error_code error;
    std::filesystem::create_directories(file->parent_path(), error);
    const auto temporary = file->string() + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << permissionWord(permission) << '\n';
        if (!out) {
            return;
        }
    }
    std::filesystem::rename(temporary, *file, error);
}

RecordPermission AudioSession::recordPermission() {
    std::lock_guard lock(mMutex);
    loadPermissionLocked();
    return *mPermission;
}

void AudioSession::requestRecordPermission(std::function<void(bool granted)> response) {
    std::unique_lock lock(mMutex);
    loadPermissionLocked();
    if (*mPermission == RecordPermission::undetermined) {
        const std::function<bool()> prompt = mPrompt ? mPrompt : askOnTerminal;
        const bool persist = mPersistPermission;
        lock.unlock(); // the prompt may take as long as the user likes
        const bool answer = prompt();
        const RecordPermission permission =
            answer ? RecordPermission::granted : RecordPermission::denied;
        if (persist) {
            storePermission(permission);
        }
        lock.lock();
        mPermission = permission;
    }
    const bool granted = *mPermission == RecordPermission::granted;
    lock.unlock();
    if (response) {
        RunLoop::main().post([response = std::move(response), granted] { response(granted); });
    }
}

void AudioSession::setPermissionPrompt(std::function<bool()> prompt) {
    std::lock_guard lock(mMutex);
    mPrompt = std::move(prompt);
}

void AudioSession::reloadRecordPermission() {
    std::lock_guard lock(mMutex);
    mPermission.reset();
}

Notification AudioSession::interruption(const AudioSession* sender, std::uint64_t type,
                                        std::optional<std::uint64_t> options) {
    std::map<std::string, std::any> info;
    info[kAudioSessionInterruptionTypeKey] = type;
    if (options) {
        info[kAudioSessionInterruptionOptionKey] = *options;
    }
    return Notification{kAudioSessionInterruptionNotification, sender, std::move(info)};
}

void AudioSession::postInterruption(std::uint64_t type, std::optional<std::uint64_t> options) {
    RunLoop::main().post([notification = interruption(this, type, options), type] {
        if (type == kAudioSessionInterruptionTypeBegan) {
            Interruptible::interruptAll();
        }
        NotificationCenter::defaultCenter().post(notification);
    });
}

void AudioSession::postOutputInterruption(std::uint64_t type,
                                          std::optional<std::uint64_t> options) {
    postNotification(interruption(this, type, options));
}

void AudioSession::postNotification(Notification notification) {
    RunLoop::main().post([notification = std::move(notification)] {
        NotificationCenter::defaultCenter().post(notification);
    });
}

} // namespace vantelo_sounds
