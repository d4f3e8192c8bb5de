#pragma once

#include "engine/output/Output.hpp"
#include "engine/output/PacedRenderThread.hpp"

namespace vantelo_sounds::engine {

/// Plays to nowhere, in real time: a thread paced by the steady clock renders the mix and discards
/// it, so that sounds still end and their callbacks still come when there is no device.
class NullOutput final : public Output {
public:
    const char* name() const noexcept override { return "null"; }
    Expected<void> start(Mixer& mixer) override;
    void stop() noexcept override { mThread.stop(); }

private:
    PacedRenderThread mThread;
};

} // namespace vantelo_sounds::engine
