// Speech on the manual clock: the speech list, British speech, shutup and instruction sequences,
// checked in the console, in the completions, in when each utterance sounded and in the mix.
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/platform/PlaybackObserver.hpp>
#include <vantelo_sounds/platform/SpeechUtterance.hpp>

#include <gtest/gtest.h>

#include "support/ManagerFixture.hpp"

namespace vantelo_sounds::test {
namespace {

class SpeechTest : public ManagerFixture, private PlaybackObserver {
protected:
    /// One utterance or sound as it sounded, in frames of the mix.
    struct Sounded {
        std::string what; // the utterance's text, or the sound's file name
        std::size_t start = 0;
        std::size_t end = 0;
        bool stopped = false;
    };

    SpeechTest() { setPlaybackObserver(this); }
    ~SpeechTest() override { setPlaybackObserver(nullptr); }

    /// A speech completion that logs "said <tag>: <text>" and, after a failure, " (<error>)".
    SpeechCompletion said(const std::string& tag) {
        return [this, tag](const std::string& text, const std::optional<std::error_code>& error) {
            note("said " + tag + ": " + text + (error ? " (" + error->message() + ")" : ""));
        };
    }
    /// Advances in steps until `tag`'s completion has run `count` times (at most `limit` seconds).
    void advanceUntilSaid(const std::string& tag, int count, double limit = 30) {
        for (double t = 0; t < limit && saidCount(tag) < count; t += 0.5) {
            advance(0.5);
        }
    }
    /// How many log entries are exactly `line`.
    long lines(const std::string& line) const {
        const auto plain = entries();
        return std::count(plain.begin(), plain.end(), line);
    }
    int saidCount(const std::string& tag) const {
        const auto plain = entries();
        return static_cast<int>(std::count_if(plain.begin(), plain.end(), [&](const auto& e) {
            return e.rfind("said " + tag + ":", 0) == 0;
        }));
    }
    /// True when the mix over [first, last) holds sound rather than silence.
    bool audible(std::size_t first, std::size_t last) const {
        return heard().rms(0, first, last) > 1e-3 && heard().rms(1, first, last) > 1e-3;
    }

    std::vector<Sounded> sounded;

private:
    void playerStarted(const AudioPlayer& player, Duration at) override {
        begin(std::filesystem::path(player.url().path()).filename(), at);
    }
    void playerEnded(const AudioPlayer& player, EndReason reason, Duration at) override {
        finish(std::filesystem::path(player.url().path()).filename(), reason, at);
    }
    void utteranceStarted(const SpeechUtterance& utterance, Duration at) override {
        begin(utterance.speechString(), at);
    }
    void utteranceEnded(const SpeechUtterance& utterance, EndReason reason, Duration at) override {
        finish(utterance.speechString(), reason, at);
    }
    void begin(const std::string& what, Duration at) {
        sounded.push_back({what, AudioSystem::frameOfTime(at), 0, false});
    }
    void finish(const std::string& what, EndReason reason, Duration at) {
        for (auto it = sounded.rbegin(); it != sounded.rend(); ++it) {
            if (it->what == what && it->end == 0) {
                it->end = AudioSystem::frameOfTime(at);
                it->stopped = reason == EndReason::stopped;
                return;
            }
        }
        ADD_FAILURE() << what << " ended without starting";
    }
};

const std::string kQueued = "Speak text put into queue: ";
const std::string kFinished = "speechSynthesizer didFinish";
const std::string kCancelled = "speechSynthesizer didCancel";
const std::string kNoVoice = "Voice engine is unavailable for selected language";

// Three texts, three completions: only the first call started a text, so its completion runs
// after each of the three, with each one's text, and the others never run. The next text starts
// 0.2 s after one ended, to the frame.
TEST_F(SpeechTest, TextsFromTheListAreHeardInOrderTwoTenthsOfASecondApart) {
    manager().speak("Jump to the left.", said("c1"));
    manager().speak("Now duck!", said("c2"));
    manager().speak("", said("c3"));
    advanceUntilSaid("c1", 3);
    advance(1);

    EXPECT_EQ(entries(),
              (std::vector<std::string>{kQueued + "Jump to the left.", kQueued + "Now duck!",
                                        kQueued, kFinished, "said c1: Jump to the left.", kFinished,
                                        "said c1: Now duck!", kFinished, "said c1: "}));
    ASSERT_EQ(sounded.size(), 3u);
    EXPECT_EQ(sounded[1].start, sounded[0].end + frameAt(0.2)) << "the gap, to the frame";
    EXPECT_EQ(sounded[2].start, sounded[1].end + frameAt(0.2));
    EXPECT_TRUE(audible(sounded[0].start, sounded[0].end));
    EXPECT_FALSE(audible(sounded[0].end, sounded[1].start)) << "silence in the gap";
    EXPECT_EQ(sounded[2].end, sounded[2].start) << "an empty text is an utterance of no length";
}

// shutup() silences the text within one mixer block and drops the rest of the list; the text's
// cancel still runs its caller's completion, once and without an error.
TEST_F(SpeechTest, ShutupSilencesTheTextAtOnceAndNothingMoreFromTheListIsHeard) {
    manager().speak("This sentence is long enough to be cut off in the middle of it.", said("c1"));
    manager().speak("Never heard.", said("c2"));
    advance(0.5);
    ASSERT_TRUE(audible(frameAt(0.3), frameAt(0.5)));
    manager().shutup();
    advance(3);

    const std::size_t stoppedAt = frameAt(0.5);
    EXPECT_EQ(heard().peak(0, stoppedAt + 1024), 0.0f) << "silent within one block";
    EXPECT_EQ(heard().peak(1, stoppedAt + 1024), 0.0f);
    ASSERT_EQ(sounded.size(), 1u);
    EXPECT_TRUE(sounded[0].stopped);
    EXPECT_EQ(sounded[0].end, stoppedAt);
    EXPECT_EQ(saidCount("c1"), 1);
    EXPECT_EQ(entries().back(),
              "said c1: This sentence is long enough to be cut off in the middle of it.");
    EXPECT_EQ(lines(kCancelled), 1);
}

// Without a voice for the app's language every text fails at once, before speak() returns, and
// the instructions play only their clips: a list without clips is worked through inside the call.
TEST_F(SpeechTest, WithoutAVoiceTextsFailAtOnceAndInstructionsPlayOnlyTheirClips) {
    simulation::setAvailableLanguages(std::vector<std::string>{});
    const std::string clip = sounds.tone("clip.wav", 440, 0.25);
    manager().speak("Hello", said("c1"));
    const std::string error =
        make_error_code(SoundsError::VoiceEngineIsUnavailableForSelectedLanguage).message();
    EXPECT_EQ(entries(), (std::vector<std::string>{kQueued + "Hello", kNoVoice,
                                                   "Failed to speak text Hello, error: "
                                                   "VoiceEngineIsUnavailableForSelectedLanguage",
                                                   "said c1: Hello (" + error + ")"}));
    manager().speakInBritishEnglish("Cheerio");
    EXPECT_EQ(entries().back(), "British voice not available");

    simulation::setNow(1000.0); // instructions made at one instant share their id
    SoundInstruction one("One", std::nullopt);
    simulation::setNow(1001.0);
    manager().play({one, SoundInstruction("Two", std::nullopt)});
    simulation::setNow(std::nullopt);
    EXPECT_EQ(lines(kNoVoice), 3);
    manager().play({SoundInstruction("Three", FileURL::fileURLWithPath(clip))});
    advance(1);
    simulation::setAvailableLanguages(std::nullopt);

    EXPECT_EQ(lines(kNoVoice), 4);
    ASSERT_EQ(sounded.size(), 1u) << "no speech, one clip";
    EXPECT_EQ(sounded[0].what, "clip.wav");
}

// Each utterance's end runs the step it was started with and nothing else: a British text, an
// instruction text and a list text spoken one after the other each move only their own
// sequence on, and nobody's completion runs twice.
TEST_F(SpeechTest, EachUtterancesEndRunsOnlyItsOwnStep) {
    const std::string clip = sounds.tone("clip.wav", 440, 0.25);
    manager().speak("First.", said("c1"));
    manager().speakInBritishEnglish("Cheerio.");
    manager().play({SoundInstruction("Jump.", FileURL::fileURLWithPath(clip))});
    advanceUntilSaid("c1", 1);
    manager().speak("Second.", said("c2"));
    advanceUntilSaid("c2", 1);
    advance(2);

    std::vector<std::string> order;
    for (const Sounded& s : sounded) {
        order.push_back(s.what);
    }
    // "Second." was given while "Jump." waited: it starts as "Jump." ends, with Jump's clip.
    EXPECT_EQ(order,
              (std::vector<std::string>{"First.", "Cheerio.", "Jump.", "Second.", "clip.wav"}));
    EXPECT_EQ(saidCount("c1"), 1);
    EXPECT_EQ(saidCount("c2"), 1);
    EXPECT_EQ(lines(kFinished), 4);
    EXPECT_EQ(sounded[4].start, sounded[2].end) << "the clip starts as its text ends";
    EXPECT_EQ(sounded[3].start, sounded[2].end);
}

// An instruction's clip starts on the frame its text ends, and the next text on the frame the clip
// ends. shutup() during a text cancels it, and its clip still plays.
TEST_F(SpeechTest, InstructionsSpeakThenPlayTheirClipThenMoveOn) {
    const std::string left = sounds.tone("left.wav", 300, 0.3);
    const std::string right = sounds.tone("right.wav", 600, 0.3);
    simulation::setNow(1000.0);
    SoundInstruction a("Left.", FileURL::fileURLWithPath(left));
    simulation::setNow(1001.0);
    SoundInstruction b("Right, and then a long while of talking.", FileURL::fileURLWithPath(right));
    simulation::setNow(std::nullopt);
    manager().play({a, b, a}); // the copy of a shares its id: it leaves with the first
    for (int i = 0; i < 100 && sounded.size() < 3; ++i) {
        advance(0.05);
    }
    advance(0.3);
    manager().shutup(); // during b's text
    advance(3);

    std::vector<std::string> order;
    for (const Sounded& s : sounded) {
        order.push_back(s.what);
    }
    ASSERT_EQ(order, (std::vector<std::string>{"Left.", "left.wav", b.text, "right.wav"}));
    EXPECT_EQ(sounded[1].start, sounded[0].end);
    EXPECT_EQ(sounded[2].start, sounded[1].end);
    EXPECT_TRUE(sounded[2].stopped);
    EXPECT_EQ(sounded[3].start, sounded[2].end) << "the cancelled text's clip, at once";
    EXPECT_NEAR(heard().zeroCrossingFrequency(0, sounded[1].start, sounded[1].end), 300, 5);
}

// A 100 kB text starts as soon as a short one with the same first words: it is synthesized as it
// plays, never whole. Speech mixes with the sounds: a tone on the left, the voice on both sides.
TEST_F(SpeechTest, ALongTextStartsAsSoonAsAShortOneAndMixesWithTheSounds) {
    std::string longText;
    while (longText.size() < 100'000) {
        longText += "Jump to the left. Then run to the right, and duck! ";
    }
    manager().speak("Jump to the left.");
    advance(3);
    const std::size_t shortStart = *heard().firstNonSilentFrame(1e-3f);
    const std::size_t longSpoken = heard().frames();
    manager().speak(longText);
    advance(1);
    EXPECT_NEAR(static_cast<double>(*heard().firstNonSilentFrame(1e-3f, longSpoken) - longSpoken),
                static_cast<double>(shortStart), 48)
        << "within a millisecond";

    const std::size_t toneStart = heard().frames();
    manager().play(settingsFor(sounds.tone("tone.wav", 440, 5), -1.0f));
    advance(1);
    manager().shutup();
    advance(0.5);
    EXPECT_TRUE(audible(toneStart, toneStart + frameAt(1)));
    EXPECT_GT(heard().rms(0, toneStart, toneStart + frameAt(1)),
              heard().rms(1, toneStart, toneStart + frameAt(1)) + 0.1)
        << "the tone, on the left";
    EXPECT_EQ(heard().peak(1, toneStart + frameAt(1) + 1024), 0.0f) << "the voice stopped";
}

struct CrashText {
    const char* name;
    const char* language;
    std::string text;
};

// A failing case names itself, not its bytes.
void PrintTo(const CrashText& crashText, std::ostream* out) {
    *out << crashText.name;
}

std::string repeated(const std::string& piece, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += piece;
    }
    return text;
}

class SpeechCrashTextTest : public SpeechTest, public ::testing::WithParamInterface<CrashText> {};

// Texts that make Debian's espeak-ng 1.51 abort or corrupt memory when given to it as they are.
// The game goes on: each is spoken (as far as espeak-ng can) and its completion runs.
TEST_P(SpeechCrashTextTest, IsSpokenWithoutEndingTheProcess) {
    Bundle::main().setLocalizations({{"en-GB", GetParam().language}});
    manager().speak(GetParam().text, said("c"));
    advanceUntilSaid("c", 1, 120);
    EXPECT_EQ(saidCount("c"), 1);
    manager().speak("Still here.", said("after"));
    advanceUntilSaid("after", 1);
    EXPECT_EQ(saidCount("after"), 1);
    EXPECT_TRUE(audible(sounded.back().start, sounded.back().end));
}

INSTANTIATE_TEST_SUITE_P(
    EspeakNg151, SpeechCrashTextTest,
    ::testing::Values(CrashText{"ApostropheChain", "en-GB", repeated("s'", 100)},
                      CrashText{"DottedLetters", "en-GB", repeated("\xC3\xA9 . ", 101)},
                      CrashText{"HindiLeadingHyphens", "hi",
                                "---\xE0\xA4\xB2\xE0\xA4\x9A"
                                "\xE0\xA5\x8D\xE0\xA4\x9B"
                                "\xE0\xA5\x87\xE0\xA4\xA6"}),
    [](const ::testing::TestParamInfo<CrashText>& param) { return std::string(param.param.name); });

} // namespace
} // namespace vantelo_sounds::test
