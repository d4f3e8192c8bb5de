#include "engine/output/NullOutput.hpp"

namespace vantelo_sounds::engine {

Expected<void> NullOutput::start(Mixer& mixer) {
    mThread.start(mixer, true, nullptr, mTap);
    return {};
}

} // namespace vantelo_sounds::engine
