// Choosing the output through the public API: an offline render into a file, and the requests
// that do not fit the clock or the output, each refused with its own error.
#include <memory>
#include <vantelo_sounds/platform/AudioOutput.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

#include <gtest/gtest.h>

#include "support/SoundFixtures.hpp"
#include "support/WavFile.hpp"

namespace vantelo_sounds {
namespace {

using Kind = AudioOutput::Kind;

TEST(AudioOutputTest, AnOfflineRenderHoldsTheClocksTimeAndMismatchedRequestsAreRefused) {
    test::SoundFixtures files;
    RunLoop::resetMain(std::make_shared<SteadyClock>());
    EXPECT_EQ(AudioOutput::select(Kind::offline).error(), AudioOutputError::needsManualClock);
    RunLoop& loop = RunLoop::resetMainManual();
    EXPECT_EQ(AudioOutput::select(Kind::null).error(), AudioOutputError::needsRealTimeClock);

    const std::string path = files.path("render.wav");
    ASSERT_TRUE(AudioOutput::select(Kind::offline, path));
    EXPECT_EQ(AudioOutput::name(), "manual");
    EXPECT_EQ(AudioOutput::startRecordingMix(files.path("tap.wav")).error(),
              AudioOutputError::offlineWritesItsOwnFile);
    EXPECT_EQ(AudioOutput::stopRecordingMix().error(), AudioOutputError::notRecording);
    loop.advanceTo(seconds(0.5));
    ASSERT_TRUE(AudioOutput::finishRender());
    EXPECT_EQ(test::WavFile::read(path).frames(), 24000u);

    const auto unwritable = AudioOutput::select(Kind::offline, files.path("no/such/dir/x.wav"));
    EXPECT_EQ(unwritable.error(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(AudioOutput::status().error(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(AudioOutput::name(), "manual") << "still offline, in step with the manual clock";
    ASSERT_TRUE(AudioOutput::select(Kind::offline)); // leaves no stand-in output running
}

} // namespace
} // namespace vantelo_sounds
