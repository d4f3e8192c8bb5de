#include "engine/output/NullOutput.hpp"

namespace vantelo_sounds::engine {

bool NullOutput::start(Mixer& mixer, std::string& /*error*/) {
    mThread.start(mixer, true, nullptr, mTap);
    return true;
}

} // namespace vantelo_sounds::engine
