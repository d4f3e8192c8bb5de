// Instructions: the clip decided once at construction, identity by the clock reading.
#include <chrono>
#include <cmath>
#include <filesystem>
#include <unordered_set>
#include <vantelo_sounds/SoundInstruction.hpp>
#include <vantelo_sounds/platform/Date.hpp>

#include <gtest/gtest.h>

#include "platform/TestFolders.hpp"

namespace vts = vantelo_sounds;
using vts::Date;
using vts::FileURL;
using vts::SoundInstruction;

namespace {

class SoundInstructionTest : public ::testing::Test {
protected:
    vts::testing::TempFolder folder;
    ~SoundInstructionTest() override { Date::setNowForTesting(std::nullopt); }
};

struct ClipCase {
    const char* name;
    const char* entry; // made in the folder before construction; empty: nothing
    bool directory;
    bool withURL;
    bool hasClip;
};

class SoundInstructionClipTest : public SoundInstructionTest,
                                 public ::testing::WithParamInterface<ClipCase> {};

TEST_P(SoundInstructionClipTest, AClipOnlyWhenSomethingExistsAtThePath) {
    const ClipCase& c = GetParam();
    if (*c.entry != '\0') {
        if (c.directory) {
            std::filesystem::create_directories(folder / c.entry);
        } else {
            folder.write(c.entry);
        }
    }
    const FileURL url = FileURL::fileURLWithPath(folder / "clip.wav");
    const SoundInstruction instruction("Turn left", c.withURL ? std::optional(url) : std::nullopt);
    EXPECT_EQ(instruction.text, "Turn left");
    EXPECT_EQ(instruction.hasSoundfile, c.hasClip);
    ASSERT_EQ(instruction.soudClip().has_value(), c.hasClip);
    if (c.hasClip) {
        const auto& clip = *instruction.soudClip();
        EXPECT_EQ(clip.filePathURL(), url);
        EXPECT_EQ(clip.fileName, "clip.wav");
        EXPECT_EQ(clip.volume, 0.75f);
        EXPECT_EQ(clip.panTypeValue(), 0.0f);
        EXPECT_FALSE(clip.looped());
        EXPECT_FALSE(clip.queuedPlay);
        EXPECT_EQ(clip.id().size(), 36u);
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, SoundInstructionClipTest,
                         ::testing::Values(ClipCase{"noURL", "clip.wav", false, false, false},
                                           ClipCase{"missingFile", "", false, true, false},
                                           ClipCase{"existingFile", "clip.wav", false, true, true},
                                           ClipCase{"directory", "clip.wav", true, true, true},
                                           ClipCase{"otherFile", "other.wav", false, true, false}),
                         [](const auto& p) { return std::string(p.param.name); });

TEST_F(SoundInstructionTest, TheFileIsLookedAtOnlyAtConstruction) {
    const FileURL url = FileURL::fileURLWithPath(folder / "late.wav");
    const SoundInstruction before("a", url);
    folder.write("late.wav");
    const SoundInstruction after("b", url);
    std::filesystem::remove(url.path());
    EXPECT_FALSE(before.hasSoundfile);
    EXPECT_TRUE(after.hasSoundfile);
    EXPECT_TRUE(after.soudClip().has_value());
}

TEST_F(SoundInstructionTest, TheIdIsTheWallClockInSecondsSince1970) {
    using namespace std::chrono;
    const double before = duration<double>(system_clock::now().time_since_epoch()).count();
    const SoundInstruction instruction("x", std::nullopt);
    const double after = duration<double>(system_clock::now().time_since_epoch()).count();
    EXPECT_GE(instruction.id(), before);
    EXPECT_LE(instruction.id(), after);
}

TEST_F(SoundInstructionTest, InstructionsMadeAtTheSameReadingAreEqualAndHashAlike) {
    Date::setNowForTesting(1700000000.25);
    const SoundInstruction a("first text", std::nullopt);
    const SoundInstruction b("another text", FileURL::fileURLWithPath(folder.path()));
    EXPECT_TRUE(a == b);
    EXPECT_EQ(std::hash<SoundInstruction>{}(a), std::hash<SoundInstruction>{}(b));

    Date::setNowForTesting(1700000000.5);
    const SoundInstruction c("first text", std::nullopt);
    EXPECT_FALSE(a == c) << "same text, other moment";

    std::unordered_set<SoundInstruction> set{a, b, c};
    EXPECT_EQ(set.size(), 2u);
}

TEST_F(SoundInstructionTest, ACopyWithAnotherTextIsStillEqual) {
    const SoundInstruction original("before", std::nullopt);
    SoundInstruction copy = original;
    copy.text = "after";
    copy.hasSoundfile = true;
    EXPECT_TRUE(copy == original);
    EXPECT_EQ(std::hash<SoundInstruction>{}(copy), std::hash<SoundInstruction>{}(original));
}

TEST_F(SoundInstructionTest, MinusZeroAndZeroIdsAreEqualAndHashAlike) {
    Date::setNowForTesting(0.0);
    const SoundInstruction zero("a", std::nullopt);
    Date::setNowForTesting(-0.0);
    const SoundInstruction minusZero("b", std::nullopt);
    EXPECT_TRUE(std::signbit(minusZero.id()));
    EXPECT_TRUE(zero == minusZero);
    EXPECT_EQ(std::hash<SoundInstruction>{}(zero), std::hash<SoundInstruction>{}(minusZero));
}

} // namespace
