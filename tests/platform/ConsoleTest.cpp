// The console: whole lines, to a sink when one is set; lines from several threads never mix.
#include <string>
#include <thread>
#include <vantelo_sounds/platform/Console.hpp>
#include <vector>

#include <gtest/gtest.h>

using vantelo_sounds::Console;

namespace {

class ConsoleTest : public ::testing::Test {
protected:
    std::vector<std::string> lines;
    Console::Sink previous;

    void SetUp() override {
        previous =
            Console::shared().setSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    void TearDown() override { Console::shared().setSink(previous); }
};

TEST_F(ConsoleTest, ConcurrentLinesArriveWholeAndUnmixed) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i) {
                Console::shared().print("Sound is playing in channel " + std::to_string(t));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(lines.size(), 2000u);
    for (const auto& line : lines) {
        ASSERT_EQ(line.rfind("Sound is playing in channel ", 0), 0u) << line;
        ASSERT_EQ(line.size(), std::string("Sound is playing in channel 0").size()) << line;
    }
}

TEST_F(ConsoleTest, ASinkMayPrintAndReplaceItselfWithoutDeadlock) {
    std::vector<std::string> second;
    Console::shared().setSink([&](std::string_view line) {
        lines.emplace_back(line);
        Console::shared().setSink([&](std::string_view l) { second.emplace_back(l); });
        Console::shared().print("from inside");
    });
    Console::shared().print("first");
    EXPECT_EQ(lines, (std::vector<std::string>{"first"}));
    EXPECT_EQ(second, (std::vector<std::string>{"from inside"}));
}

} // namespace
