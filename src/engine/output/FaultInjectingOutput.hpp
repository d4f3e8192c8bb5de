#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/output/FaultInjectingDevice.hpp"
#include "engine/output/Output.hpp"

namespace vantelo_sounds::engine {

/// One open stream on a FaultInjectingDevice: a manual output that can be lost. Rendered on the
/// control thread as the manual clock advances, in blocks of the device's format; while the
/// device is unplugged or stalled the frames rendered are played to nobody, as SDL keeps calling
/// a removed device's callback.
class FaultInjectingOutput final : public Output {
public:
    explicit FaultInjectingOutput(std::shared_ptr<FaultInjectingDevice> device);
    ~FaultInjectingOutput() override { stop(); }

    const char* name() const noexcept override { return "fault"; }
    Expected<void> start(Mixer& mixer) override { return openThenResume(mixer); }
    void stop() noexcept override;
    bool isManual() const noexcept override { return true; }
    std::size_t render(std::size_t frames) override;

    bool canBeLost() const noexcept override { return true; }
    bool lost() const noexcept override;
    Expected<void> open(Mixer& mixer) override;
    void resume() noexcept override { mRendering = true; }
    void detach() noexcept override { mRendering = false; }
    std::uint64_t framesConsumed() const noexcept override { return mConsumed; }
    std::unique_ptr<Output> makeAnother() const override { return mDevice->makeOutput(); }
    std::string deviceName() const override { return "fault-injecting device"; }

private:
    std::shared_ptr<FaultInjectingDevice> mDevice;
    Mixer* mMixer = nullptr;
    bool mRendering = false;
    std::uint64_t mOpenedAtUnplugs = 0;
    FaultInjectingDevice::Format mFormat;
    std::vector<float> mBlock;
    std::uint64_t mConsumed = 0;
};

} // namespace vantelo_sounds::engine
