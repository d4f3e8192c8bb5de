// Voices by language, from espeak-ng's installed voices (a pretended list is ManagerCoreTest's).
#include <thread>
#include <vantelo_sounds/platform/SpeechSynthesisVoice.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "support/NamedCase.hpp"

namespace vantelo_sounds {
namespace {

using Codes = std::vector<std::string>;

struct LanguageCase : test::NamedCase {
    const char* code;
    bool available;
};

class VoiceLookupTest : public ::testing::TestWithParam<LanguageCase> {};

TEST_P(VoiceLookupTest, InstalledLanguagesHaveAVoiceThatCanSpeak) {
    const auto voice = SpeechSynthesisVoice::voiceWithLanguage(GetParam().code);
    ASSERT_EQ(voice != nullptr, GetParam().available);
    if (voice) {
        EXPECT_EQ(voice->language(), GetParam().code);
        EXPECT_FALSE(voice->name().empty());
        EXPECT_NE(voice->identifier().rfind("mb/", 0), 0u) << "MBROLA voices cannot speak here";
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, VoiceLookupTest,
                         ::testing::Values(LanguageCase{"British English", "en-GB", true},

                                           LanguageCase{"language only", "fr", true},
                                           LanguageCase{"unknown region", "de-XX", true},
                                           LanguageCase{"unknown language", "xx-XX", false},
                                           LanguageCase{"empty", "", false},

                                           LanguageCase{"newline", "en\n", false}),
                         test::CaseName());

TEST(SpeechSynthesisVoiceTest, LookupsFromSeveralThreadsAllFindTheBritishVoice) {
    Codes identifiers(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < identifiers.size(); ++t) {
        threads.emplace_back([&identifiers, t] {
            for (int i = 0; i < 20; ++i) {
                auto voice = SpeechSynthesisVoice::voiceWithLanguage(t % 2 ? "en-GB" : "en-gb");
                identifiers[t] = voice ? voice->identifier() : "none";
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(identifiers, Codes(4, "gmw/en"));
}

} // namespace
} // namespace vantelo_sounds
