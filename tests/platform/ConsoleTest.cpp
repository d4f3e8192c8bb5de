// The console: whole lines to the sink; lines from several threads never mix, and a sink may
// print or replace itself.
#include <string>
#include <thread>
#include <vantelo_sounds/platform/Console.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

class ConsoleTest : public ::testing::Test {
protected:
    ConsoleTest() {
        previous = Console::shared().setSink([this](std::string_view l) { lines.emplace_back(l); });
    }
    ~ConsoleTest() override { Console::shared().setSink(previous); }

    std::vector<std::string> lines;
    Console::Sink previous;
};

TEST_F(ConsoleTest, LinesFromSeveralThreadsArriveWholeOneAtATime) {
    const std::string line = "Sound is playing in channel 1";
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                Console::shared().print(line);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lines, std::vector<std::string>(2000, line));
}

TEST_F(ConsoleTest, ASinkMayPrintAndReplaceItselfWithoutDeadlock) {
    std::vector<std::string> second;
    Console::shared().setSink([&](std::string_view line) {
        lines.emplace_back(line);
        Console::shared().setSink([&](std::string_view l) { second.emplace_back(l); });
        Console::shared().print("from inside");
    });
    Console::shared().print("first");
    EXPECT_EQ(lines, std::vector<std::string>{"first"});
    EXPECT_EQ(second, std::vector<std::string>{"from inside"});
}

} // namespace
} // namespace vantelo_sounds
