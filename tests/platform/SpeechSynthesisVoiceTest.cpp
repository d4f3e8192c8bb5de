// Voices by language, answered from espeak-ng's installed voice list.
#include <thread>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "engine/speech/EspeakLibrary.hpp"

using vantelo_sounds::SpeechSynthesisVoice;
using vantelo_sounds::engine::EspeakLibrary;

namespace {

class SpeechSynthesisVoiceTest : public ::testing::Test {
protected:
    SpeechSynthesisVoiceTest() {
        SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::nullopt);
    }
    ~SpeechSynthesisVoiceTest() override {
        SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::nullopt);
    }
};

struct LanguageCase {
    const char* code;
    bool available;
};

class VoiceLookupTest : public SpeechSynthesisVoiceTest,
                        public ::testing::WithParamInterface<LanguageCase> {};

TEST_P(VoiceLookupTest, InstalledLanguagesHaveAVoice) {
    const auto voice = SpeechSynthesisVoice::voiceWithLanguage(GetParam().code);
    ASSERT_EQ(voice != nullptr, GetParam().available);
    if (voice) {
        EXPECT_EQ(voice->language(), GetParam().code);
        EXPECT_FALSE(voice->identifier().empty());
        EXPECT_NE(voice->identifier().rfind("mb/", 0), 0u) << "MBROLA voices cannot speak here";
        EXPECT_FALSE(voice->name().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, VoiceLookupTest,
                         ::testing::Values(LanguageCase{"en-GB", true}, LanguageCase{"en-gb", true},
                                           LanguageCase{"EN-GB", true}, LanguageCase{"fr", true},
                                           LanguageCase{"de-XX", true},
                                           LanguageCase{"xx-XX", false}, LanguageCase{"xx", false},
                                           LanguageCase{"", false}, LanguageCase{"en GB", false},
                                           LanguageCase{"-en", false}, LanguageCase{"en\n", false}),
                         [](const auto& p) { return "case" + std::to_string(p.index); });

TEST_F(SpeechSynthesisVoiceTest, BritishEnglishIsTheBritishVoice) {
    const auto voice = SpeechSynthesisVoice::voiceWithLanguage("en-GB");
    ASSERT_NE(voice, nullptr);
    EXPECT_EQ(voice->identifier(), "gmw/en");
    EXPECT_EQ(voice->name(), "English (Great Britain)");
}

TEST_F(SpeechSynthesisVoiceTest, TheTestingListDecidesWhichLanguagesHaveVoices) {
    SpeechSynthesisVoice::setAvailableLanguagesForTesting(
        std::vector<std::string>{"fr-FR", "xx-XX"});
    EXPECT_EQ(SpeechSynthesisVoice::voiceWithLanguage("en-GB"), nullptr);
    const auto french = SpeechSynthesisVoice::voiceWithLanguage("FR-fr");
    ASSERT_NE(french, nullptr);
    EXPECT_EQ(french->language(), "FR-fr");
    EXPECT_NE(SpeechSynthesisVoice::voiceWithLanguage("xx-XX"), nullptr)
        << "a listed language counts even when espeak-ng lacks it";

    SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::vector<std::string>{});
    EXPECT_EQ(SpeechSynthesisVoice::voiceWithLanguage("fr-FR"), nullptr);

    SpeechSynthesisVoice::setAvailableLanguagesForTesting(std::nullopt);
    EXPECT_NE(SpeechSynthesisVoice::voiceWithLanguage("en-GB"), nullptr);
}

TEST_F(SpeechSynthesisVoiceTest, LookupsFromSeveralThreadsAgree) {
    std::vector<std::thread> threads;
    std::vector<std::string> identifiers(4);
    for (std::size_t t = 0; t < identifiers.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                auto voice = SpeechSynthesisVoice::voiceWithLanguage(t % 2 ? "en-GB" : "en-gb");
                identifiers[t] = voice ? voice->identifier() : "none";
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(identifiers, std::vector<std::string>(4, "gmw/en"));
}

TEST(EspeakLibraryTest, IsInitialisedOnceAndListsBestMatchFirst) {
    EspeakLibrary& library = EspeakLibrary::instance();
    EXPECT_EQ(&library, &EspeakLibrary::instance());
    ASSERT_TRUE(library.isAvailable());
    EXPECT_EQ(library.sampleRate(), 22050);
    const auto voices = library.voicesForLanguage("en-GB");
    ASSERT_FALSE(voices.empty());
    EXPECT_EQ(voices.front().identifier, "gmw/en");
    for (const auto& voice : voices) {
        EXPECT_NE(voice.identifier.rfind("mb/", 0), 0u) << voice.identifier;
    }
    EXPECT_EQ(library.voicesForLanguage("de-XX").front().language.substr(0, 2), "de");
}

} // namespace
