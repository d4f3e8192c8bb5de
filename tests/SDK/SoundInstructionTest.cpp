// Instructions: the clip decided once at construction, identity by the clock reading.
#include <chrono>
#include <filesystem>
#include <unordered_set>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/platform/Simulation.hpp>

#include <gtest/gtest.h>

#include "support/TempFolder.hpp"

namespace vantelo_sounds {
namespace {

class SoundInstructionTest : public ::testing::Test {
protected:
    ~SoundInstructionTest() override { simulation::setNow(std::nullopt); }

    test::TempFolder folder;
};

TEST_F(SoundInstructionTest, HasAnInstantClipOnlyWhenSomethingIsAtThePath) {
    const auto url = [&](const std::string& name) {
        return FileURL::fileURLWithPath(folder / name);
    };
    folder.write("clip.wav");
    std::filesystem::create_directories(folder / "folder.wav");
    EXPECT_FALSE(SoundInstruction("a", std::nullopt).hasSoundfile);
    const SoundInstruction missing("a", url("missing.wav"));
    EXPECT_FALSE(missing.hasSoundfile);
    EXPECT_FALSE(missing.soudClip().has_value());
    EXPECT_TRUE(SoundInstruction("a", url("folder.wav")).hasSoundfile) << "any entry counts";

    const SoundInstruction instruction("Turn left", url("clip.wav"));
    EXPECT_EQ(instruction.text, "Turn left");
    EXPECT_TRUE(instruction.hasSoundfile);
    ASSERT_TRUE(instruction.soudClip().has_value());
    const PlaySoundSettings& clip = *instruction.soudClip();
    EXPECT_EQ(clip.filePathURL(), url("clip.wav"));
    EXPECT_FALSE(clip.looped() || clip.queuedPlay) << "an instant clip";
    EXPECT_EQ(clip.volume, 0.75f);
}

TEST_F(SoundInstructionTest, TheIdIsTheClockInSecondsSince1970AndOneReadingIsOneInstruction) {
    using namespace std::chrono;
    const double before = duration<double>(system_clock::now().time_since_epoch()).count();
    const SoundInstruction now("x", std::nullopt);
    EXPECT_GE(now.id(), before);
    EXPECT_LE(now.id(), duration<double>(system_clock::now().time_since_epoch()).count());

    simulation::setNow(1700000000.25);
    const SoundInstruction a("first text", std::nullopt);
    SoundInstruction b("another text", FileURL::fileURLWithPath(folder.path()));
    b.text = "changed";
    b.hasSoundfile = false;
    EXPECT_TRUE(a == b);
    EXPECT_EQ(std::hash<SoundInstruction>{}(a), std::hash<SoundInstruction>{}(b));
    simulation::setNow(1700000000.5);
    const SoundInstruction c("first text", std::nullopt);
    EXPECT_FALSE(a == c) << "same text, other moment";
    EXPECT_EQ((std::unordered_set<SoundInstruction>{a, b, c}.size()), 2u);
}

} // namespace
} // namespace vantelo_sounds
