// A bad request never disturbs a sound that plays: each bad file gives the failure line with a
// reason, and the mix is the same sample for sample as if the request had never been made. One
// file per reason; every unusual file and its reason is the decoder test's UnusualFiles table.
#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"
#include "support/NamedCase.hpp"

namespace vantelo_sounds::test {
namespace {

struct BadCase : NamedCase {
    SoundFixtures::BadFile kind;
    int code; // AudioPlayerError
};

class BadFileTest : public ManagerFixture, public ::testing::WithParamInterface<BadCase> {};

TEST_P(BadFileTest, FailsWithItsReasonAndLeavesThePlayingSoundUntouched) {
    // 0.25 s of 480 Hz is a whole number of periods: every loop pass is the same samples.
    const auto loopTone =
        sounds.tone("steady.wav", 480, 0.25, 48000, 1, 0.5f, SoundFixtures::WavEncoding::float32);
    const auto bad = sounds.bad(GetParam().kind);
    manager().play(settingsFor(loopTone, 0, 1, false, true));
    advance(0.3);
    manager().play(settingsFor(bad), completionNoting("bad"));
    advance(0.45);

    const auto log = entries();
    ASSERT_EQ(log.size(), 3u);
    const std::string prefix =
        "Failed 2 creating audio player for url " + FileURL::fileURLWithPath(bad).description() +
        ": Error Domain=vantelo_sounds.AudioPlayerError Code=" + std::to_string(GetParam().code) +
        " \"";
    EXPECT_EQ(log[1].rfind(prefix, 0), 0u) << log[1];
    EXPECT_EQ(log[2], "Sound is playing in channel 2");
    EXPECT_EQ(completions("bad"), 0);
    EXPECT_EQ(table().size(), 1u);

    const OfflineAudio audio = heard();
    // Compared with the same samples one loop pass earlier (after the start's short fade-in).
    for (std::size_t frame = frameAt(0.3); frame < frameAt(0.75); ++frame) {
        ASSERT_EQ(audio.sample(frame, 0), audio.sample(frame - frameAt(0.25), 0))
            << "the mix changed at frame " << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadFileTest,
    ::testing::Values(BadCase{"missing", SoundFixtures::BadFile::missing, 1},
                      BadCase{"empty", SoundFixtures::BadFile::empty, 4},
                      BadCase{"directory", SoundFixtures::BadFile::directory, 2},
                      BadCase{"concatScript", SoundFixtures::BadFile::concatScript, 5},
                      BadCase{"m4aOnlyFtyp", SoundFixtures::BadFile::m4aOnlyFtyp, 7},
                      BadCase{"protectedM4p", SoundFixtures::BadFile::protectedM4p, 6}),
    CaseName());

struct OddCase : NamedCase {
    SoundFixtures::BadFile kind;
};

class OddButPlayableFileTest : public ManagerFixture,
                               public ::testing::WithParamInterface<OddCase> {};

TEST_P(OddButPlayableFileTest, PlaysWhatIsThereThenCompletesOnce) {
    const auto path = sounds.bad(GetParam().kind);
    manager().play(settingsFor(path), completionNoting("odd"));
    EXPECT_EQ(entries(), std::vector<std::string>{"Sound is playing in channel 1"});
    advance(3.0);
    EXPECT_EQ(completions("odd"), 1);
    EXPECT_TRUE(table().empty());
    EXPECT_GT(heard().rms(0), 0.01) << "something was heard";
    EXPECT_TRUE(heard().allFiniteAndInRange());
}

INSTANTIATE_TEST_SUITE_P(Files, OddButPlayableFileTest,
                         ::testing::Values(OddCase{"truncatedMp3",
                                                   SoundFixtures::BadFile::truncatedMp3},
                                           OddCase{"truncatedFragmentedM4a",
                                                   SoundFixtures::BadFile::truncatedFragmentedM4a}),
                         CaseName());

} // namespace
} // namespace vantelo_sounds::test
