// The console: whole lines to the sink, and lines from several threads never mix.
#include <string>
#include <thread>
#include <vantelo_sounds/platform/Console.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

using Lines = std::vector<std::string>;

TEST(ConsoleTest, LinesFromSeveralThreadsArriveWholeOneAtATime) {
    Console& console = Console::shared();
    Lines lines;
    const Console::Sink previous =
        console.setSink([&](std::string_view line) { lines.emplace_back(line); });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                console.print("Sound is playing in channel 1");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lines, Lines(2000, "Sound is playing in channel 1"));

    console.setSink(previous);
}

} // namespace
} // namespace vantelo_sounds
