// The test programs' main: tests run with no sound card and never let SDL turn signals into
// quit events (so `timeout` can stop a hung test).
#include <cstdlib>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    setenv("SDL_AUDIODRIVER", "dummy", 0);
    setenv("SDL_NO_SIGNAL_HANDLERS", "1", 1);
    setenv("VANTELO_SOUNDS_OUTPUT", "manual", 0);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
