#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace vantelo_sounds::engine {

class SoundStream;

/// The one thread that speaks. It owns every espeak-ng call (the library is one global,
/// non-thread-safe instance) and turns each utterance into a SoundStream that a mixer voice
/// plays: speech is mixed, timed and stopped like any sound.
///
/// Synthesis streams. A text is spoken in pieces of at most a few hundred bytes, cut at sentence
/// ends where it can be, and espeak-ng holds its lock only while it makes one piece (about a
/// thousand times faster than real time). The samples go into the stream's one-second window as
/// they come, so speech starts with espeak-ng's first chunk, and a piece that runs ahead of the
/// voice waits beside it; a long text never sits whole in memory.
///
/// An utterance whose stream nobody holds any more (its voice was stopped) is dropped: its
/// synthesis ends through espeak-ng's callback, the only way that stops it.
class SpeechWorker {
public:
    /// What to speak: the text as given (made speakable here, see speakableText), an espeak-ng
    /// voice identifier ("gmw/en"), the voice's language code ("en-GB") and the speaking rate in
    /// words per minute.
    struct Utterance {
        std::string text;
        std::string voice;
        std::string language;
        int wordsPerMinute = 175;
    };

    SpeechWorker();
    ~SpeechWorker(); ///< ends the utterance in progress and those waiting, as failed
    SpeechWorker(const SpeechWorker&) = delete;
    SpeechWorker& operator=(const SpeechWorker&) = delete;

    /// A stream that fills with the utterance, mono at the mixer's rate, once the utterances
    /// before it are done. It completes at the utterance's end; it fails when the voice cannot be
    /// selected or espeak-ng has no data.
    std::shared_ptr<SoundStream> speak(Utterance utterance);
    /// The streams were read: top them up now (offline renders, far faster than real time).
    void wake();

    /// One utterance on its way into its stream (espeak-ng's callback gets it as user data).
    struct Job;

private:
    void run();
    void speakJob(Job& job);

    std::mutex mMutex;
    std::condition_variable mWork;
    std::deque<std::unique_ptr<Job>> mJobs;
    std::atomic<bool> mStopping{false};
    std::atomic<bool> mWoken{false};
    std::thread mThread;
};

} // namespace vantelo_sounds::engine
