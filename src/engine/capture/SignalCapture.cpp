#include "engine/capture/SignalCapture.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <vector>

#include "engine/capture/CaptureError.hpp"
#include "engine/codec/Decoder.hpp"
#include "engine/rt/FrameRing.hpp"
#include "engine/sound/FrameSink.hpp"
#include "engine/sound/SoundData.hpp"

namespace vantelo_sounds::engine {

namespace {

// Keeps a decoded file as mono samples.
class MonoSink final : public FrameSink {
public:
    explicit MonoSink(int channels)
        : mChannels(channels) {}
    int channels() const noexcept override { return mChannels; }
    std::size_t append(const float* interleaved, std::size_t frames) override {
        for (std::size_t i = 0; i < frames; ++i) {
            float sum = 0.0f;
            for (int c = 0; c < mChannels; ++c) {
                sum += interleaved[i * static_cast<std::size_t>(mChannels) +
                                   static_cast<std::size_t>(c)];
            }
            samples.push_back(sum / static_cast<float>(mChannels));
        }
        return frames;
    }
    std::vector<float> samples;

private:
    int mChannels;
};

// Pushed every 10 ms: small steps keep the ring's latency low and cost nothing measurable.
constexpr auto kPacing = std::chrono::milliseconds(10);

} // namespace

SignalCapture::SignalCapture(Generator generator, int rate)
    : mGenerator(std::move(generator))
    , mRate(rate) {}

SignalCapture::~SignalCapture() {
    stop();
}

std::unique_ptr<SignalCapture> SignalCapture::silence() {
    return std::make_unique<SignalCapture>(
        [](float* out, std::size_t frames, std::uint64_t) { std::fill_n(out, frames, 0.0f); },
        kMixRate);
}

std::unique_ptr<SignalCapture> SignalCapture::tone(double frequency, double amplitude) {
    constexpr int rate = kMixRate;
    const double step = 2.0 * std::numbers::pi * frequency / rate;
    return std::make_unique<SignalCapture>(
        [step, amplitude](float* out, std::size_t frames, std::uint64_t first) {
            for (std::size_t i = 0; i < frames; ++i) {
                // The phase restarts every second (a whole number of frames) so that it stays
                // exact however long the tone runs.
                const auto n = static_cast<double>((first + i) % static_cast<std::uint64_t>(rate));
                out[i] = static_cast<float>(amplitude * std::sin(step * n));
            }
        },
        kMixRate);
}

Expected<std::unique_ptr<SignalCapture>> SignalCapture::file(const std::string& path) {
    auto decoder = Decoder::open(path);
    if (!decoder) {
        return Failure{CaptureError::signalUnavailable, path + ": " + decoder.failure().describe()};
    }
    MonoSink sink((*decoder)->info().channels);
    while ((*decoder)->decodeInto(sink, 1 << 16) > 0) {
    }
    if (!(*decoder)->outcome() && sink.samples.empty()) {
        return Failure{CaptureError::signalUnavailable,
                       path + ": " + (*decoder)->outcome().failure().describe()};
    }
    auto samples = std::make_shared<const std::vector<float>>(std::move(sink.samples));
    return std::make_unique<SignalCapture>(
        [samples](float* out, std::size_t frames, std::uint64_t first) {
            for (std::size_t i = 0; i < frames; ++i) {
                const std::uint64_t at = first + i;
                out[i] = at < samples->size() ? (*samples)[static_cast<std::size_t>(at)] : 0.0f;
            }
        },
        kMixRate);
}

void SignalCapture::read(float* out, std::size_t frames) {
    mGenerator(out, frames, mPosition);
    mPosition += frames;
}

Expected<void> SignalCapture::start(FrameRing& ring) {
    stop();
    mStopping = false;
    mThread = std::thread([this, &ring] { pace(ring); });
    return {};
}

void SignalCapture::pace(FrameRing& ring) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    std::uint64_t pushed = 0;
    std::vector<float> block;
    std::unique_lock lock(mMutex);
    while (!mStopping) {
        mWake.wait_for(lock, kPacing, [this] { return mStopping; });
        const auto elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
        const auto due = static_cast<std::uint64_t>(elapsed * mRate);
        if (due > pushed) {
            block.resize(static_cast<std::size_t>(due - pushed));
            read(block.data(), block.size());
            ring.push(block.data(), block.size());
            pushed = due;
        }
    }
}

void SignalCapture::stop() noexcept {
    if (!mThread.joinable()) {
        return;
    }
    {
        std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mWake.notify_all();
    mThread.join();
}

} // namespace vantelo_sounds::engine
