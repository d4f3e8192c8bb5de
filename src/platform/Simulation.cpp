#include <atomic>
#include <mutex>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include "platform/SimulationState.hpp"

namespace vantelo_sounds::simulation {

namespace {

std::mutex gMutex; // guards the pretend languages and microphone
std::optional<std::vector<std::string>> gLanguages;
std::optional<Microphone> gMicrophone;

std::atomic<bool> gHasNow{false};
std::atomic<double> gNow{0.0};

} // namespace

/// The one friend of the platform classes whose state the controls reach into.
struct Access {
    static AudioSession& session() { return AudioSession::sharedInstance(); }

    static void resetSession() {
        AudioSession& s = session();
        std::lock_guard lock(s.mMutex);
        s.mCategory = AudioSessionCategory::soloAmbient;
        s.mMode = AudioSessionMode::defaultMode;
        s.mOptions = 0;
        s.mActive = false;
        s.mCategoryCalls = 0;
        s.mActiveCalls = 0;
        s.mCategoryRefusal.reset();
        s.mActiveRefusal.reset();
        s.mPermission = RecordPermission::undetermined;
        s.mPersistPermission = false;
        s.mPrompt = nullptr;
    }

    static void refuse(AudioSessionOperation operation, std::optional<std::error_code> error) {
        AudioSession& s = session();
        std::lock_guard lock(s.mMutex);
        (operation == AudioSessionOperation::setCategory ? s.mCategoryRefusal : s.mActiveRefusal) =
            error;
    }

    static int callCount(AudioSessionOperation operation) {
        AudioSession& s = session();
        std::lock_guard lock(s.mMutex);
        return operation == AudioSessionOperation::setCategory ? s.mCategoryCalls : s.mActiveCalls;
    }

    static void setPermission(RecordPermission permission) {
        AudioSession& s = session();
        std::lock_guard lock(s.mMutex);
        s.mPermission = permission;
    }

    static void post(Notification notification) {
        AudioSession::postNotification(std::move(notification));
    }

    static void dropObservers() { NotificationCenter::defaultCenter().removeAllObservers(); }
};

void resetAudioSession() {
    Access::resetSession();
}

void refuseAudioSession(AudioSessionOperation operation, std::optional<std::error_code> error) {
    Access::refuse(operation, error);
}

int audioSessionCallCount(AudioSessionOperation operation) {
    return Access::callCount(operation);
}

void setRecordPermission(RecordPermission permission) {
    Access::setPermission(permission);
}

void postAudioSessionNotification(Notification notification) {
    Access::post(std::move(notification));
}

void setAvailableLanguages(std::optional<std::vector<std::string>> codes) {
    std::lock_guard lock(gMutex);
    gLanguages = std::move(codes);
}

void setMicrophone(std::optional<Microphone> microphone) {
    std::lock_guard lock(gMutex);
    gMicrophone = std::move(microphone);
}

std::optional<Microphone> simulatedMicrophone() {
    std::lock_guard lock(gMutex);
    return gMicrophone;
}

void resetDefaultNotificationCenter() {
    Access::dropObservers();
}

void setNow(std::optional<double> secondsSince1970) {
    if (secondsSince1970) {
        gNow.store(*secondsSince1970, std::memory_order_relaxed);
    }
    gHasNow.store(secondsSince1970.has_value(), std::memory_order_release);
}

std::optional<std::vector<std::string>> simulatedLanguages() {
    std::lock_guard lock(gMutex);
    return gLanguages;
}

std::optional<double> simulatedNow() {
    if (!gHasNow.load(std::memory_order_acquire)) {
        return std::nullopt;
    }
    return gNow.load(std::memory_order_relaxed);
}

} // namespace vantelo_sounds::simulation
