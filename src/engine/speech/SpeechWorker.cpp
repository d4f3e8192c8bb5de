#include "engine/speech/SpeechWorker.hpp"

#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include <espeak-ng/speak_lib.h>

#include "engine/codec/FfmpegPtr.hpp"
#include "engine/codec/Resampler.hpp"
#include "engine/sound/SoundData.hpp"
#include "engine/sound/SoundStream.hpp"
#include "engine/speech/EspeakLibrary.hpp"
#include "engine/speech/SpeechText.hpp"

namespace vantelo_sounds::engine {
namespace {

// espeak-ng makes one piece of text at a time, holding its lock; a piece of this size is at most
// some ten seconds of speech.
constexpr std::size_t kPieceBytes = 300;
// A piece that ran ahead of its voice waits this long at most before it looks again.
constexpr auto kRoomWait = std::chrono::milliseconds(5);

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The next piece of `text` from `from`: up to a sentence end if one is near, else up to a space,
// else cut between two UTF-8 characters.
std::size_t pieceEnd(const std::string& text, std::size_t from) {
    if (text.size() - from <= kPieceBytes) {
        return text.size();
    }
    const std::size_t limit = from + kPieceBytes;
    std::size_t space = std::string::npos;
    for (std::size_t i = limit; i > from + kPieceBytes / 3; --i) {
        const char c = text[i - 1];
        if ((c == '.' || c == '!' || c == '?' || c == '\n') && text[i] == ' ') {
            return i;
        }
        if (space == std::string::npos && c == ' ') {
            space = i;
        }
    }
    if (space != std::string::npos) {
        return space;
    }
    std::size_t cut = limit;
    while (cut > from + 1 && isContinuation(static_cast<unsigned char>(text[cut]))) {
        --cut;
    }
    return cut;
}

} // namespace

struct SpeechWorker::Job {
    Utterance utterance;
    std::shared_ptr<SoundStream> stream;
    std::optional<Resampler> resampler;
    ffmpeg::FramePtr frame;
    std::vector<float> pending; // made, not yet in the stream: it was full
    SpeechWorker* worker = nullptr;
    bool failed = false;

    bool abandoned() const noexcept { return stream.use_count() == 1 || worker->mStopping; }

    // Puts what the resampler has made into the stream, and what does not fit into `pending`.
    void take() {
        const float* made = resampler->data();
        std::size_t count = resampler->available();
        if (pending.empty()) {
            const std::size_t taken = stream->append(made, count);
            made += taken;
            count -= taken;
        }
        pending.insert(pending.end(), made, made + count);
        resampler->consume(resampler->available());
    }
};

namespace {

int onSynthesized(short* samples, int count, espeak_EVENT* events) {
    auto* job = static_cast<SpeechWorker::Job*>(events != nullptr ? events->user_data : nullptr);
    if (job == nullptr) {
        return 0;
    }
    if (job->abandoned()) {
        return 1; // the only way to stop espeak-ng part-way
    }
    if (samples == nullptr || count <= 0) {
        return 0;
    }
    AVFrame& frame = *job->frame;
    frame.format = AV_SAMPLE_FMT_S16;
    frame.sample_rate = EspeakLibrary::instance().sampleRate();
    frame.nb_samples = count;
    frame.data[0] = reinterpret_cast<std::uint8_t*>(samples);
    frame.extended_data = frame.data;
    frame.linesize[0] = count * static_cast<int>(sizeof(short));
    if (!job->resampler->convert(frame, 0, count)) {
        job->failed = true;
        return 1;
    }
    job->take();
    return 0;
}

} // namespace

SpeechWorker::SpeechWorker()
    : mThread([this] { run(); }) {}

SpeechWorker::~SpeechWorker() {
    {
        std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mWork.notify_all();
    mThread.join();
    for (auto& job : mJobs) {
        job->stream->finish(false);
    }
}

std::shared_ptr<SoundStream> SpeechWorker::speak(Utterance utterance) {
    auto job = std::make_unique<Job>();
    job->utterance = std::move(utterance);
    job->stream = std::make_shared<SoundStream>(1, kMixRate);
    job->worker = this;
    std::shared_ptr<SoundStream> stream = job->stream;
    {
        std::lock_guard lock(mMutex);
        mJobs.push_back(std::move(job));
    }
    mWork.notify_all();
    return stream;
}

void SpeechWorker::wake() {
    mWoken.store(true, std::memory_order_relaxed);
    mWork.notify_all();
}

void SpeechWorker::run() {
    std::unique_lock lock(mMutex);
    for (;;) {
        mWork.wait(lock, [this] { return mStopping || !mJobs.empty(); });
        if (mStopping) {
            return;
        }
        std::unique_ptr<Job> job = std::move(mJobs.front());
        mJobs.pop_front();
        lock.unlock();
        speakJob(*job);
        job.reset();
        lock.lock();
    }
}

void SpeechWorker::speakJob(Job& job) {
    EspeakLibrary& espeak = EspeakLibrary::instance();
    SoundStream& stream = *job.stream;
    const std::string text = speakableText(job.utterance.text, job.utterance.language);
    job.frame.reset(av_frame_alloc());
    if (!espeak.isAvailable() || !job.frame) {
        stream.finish(false);
        return;
    }
    av_channel_layout_default(&job.frame->ch_layout, 1);
    job.resampler.emplace(1);

    const auto waitForRoom = [&] {
        while (!job.pending.empty() && !job.abandoned()) {
            const std::size_t taken = stream.append(job.pending.data(), job.pending.size());
            job.pending.erase(job.pending.begin(),
                              job.pending.begin() + static_cast<std::ptrdiff_t>(taken));
            if (!job.pending.empty()) {
                std::unique_lock lock(mMutex);
                mWork.wait_for(lock, kRoomWait, [this] {
                    return mStopping || mWoken.exchange(false, std::memory_order_relaxed);
                });
            }
        }
    };

    bool voiceSet = false;
    for (std::size_t from = 0; from < text.size() && !job.abandoned() && !job.failed;) {
        const std::size_t to = pieceEnd(text, from);
        const std::string piece = text.substr(from, to - from);
        from = to;
        {
            auto lock = espeak.lock();
            if (!voiceSet) {
                if (espeak_SetVoiceByName(job.utterance.voice.c_str()) != EE_OK) {
                    job.failed = true;
                    break;
                }
                espeak_SetParameter(espeakRATE, job.utterance.wordsPerMinute, 0);
                espeak_SetSynthCallback(onSynthesized);
                voiceSet = true;
            }
            if (espeak_Synth(piece.c_str(), piece.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8,
                             nullptr, &job) != EE_OK) {
                job.failed = true;
            }
        }
        waitForRoom();
    }
    if (!job.abandoned()) {
        job.resampler->finish();
        job.take();
        waitForRoom();
    }
    stream.finish(!job.failed);
}

} // namespace vantelo_sounds::engine
