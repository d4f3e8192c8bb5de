// Speech: texts spoken one after another through the synthesizer, 0.2 s apart.
#include <algorithm>
#include <vantelo_sounds/SoundsError.hpp>
#include <vantelo_sounds/VTOSoundsManager.hpp>
#include <vantelo_sounds/platform/AudioSession.hpp>
#include <vantelo_sounds/platform/Console.hpp>
#include <vantelo_sounds/platform/ErrorDescription.hpp>
#include <vantelo_sounds/platform/RunLoop.hpp>

namespace vantelo_sounds {
namespace {

// The pause between the end of one text from the list and the start of the next.
constexpr Duration kGapBetweenTexts = std::chrono::milliseconds(200);

// How a speech error reads in the failure line: a SoundsError by its case name.
std::string describeSpeechError(const std::error_code& error) {
    if (error.category() == soundsErrorCategory() &&
        error.value() ==
            static_cast<int>(SoundsError::VoiceEngineIsUnavailableForSelectedLanguage)) {
        return "VoiceEngineIsUnavailableForSelectedLanguage";
    }
    return errorDescription(error);
}

} // namespace

void VTOSoundsManager::speak(const std::string& text) {
    speak(text, [](const std::string&, const std::optional<std::error_code>&) {});
}

void VTOSoundsManager::speak(const std::string& text, SpeechCompletion completion) {
    if (offLoopThread()) {
        RunLoop::main().post([this, text, completion = std::move(completion)]() mutable {
            speak(text, std::move(completion));
        });
        return;
    }
    speakingQueue(text, std::move(completion));
}

void VTOSoundsManager::speakingQueue(const std::optional<std::string>& text,
                                     SpeechCompletion completion) {
    if (text) {
        thingsNeedToBeSaid.push_back(*text);
        Console::shared().print("Speak text put into queue: " + *text);
    }
    // A text that waits behind another is started by the gap's timer, under the completion of
    // the text that ended before it: its own completion is not kept.
    if (isSpeaking || thingsNeedToBeSaid.empty()) {
        return;
    }
    const std::string head = thingsNeedToBeSaid.front();
    isSpeaking = true;

    // The after-utterance step. Its order matters: when the caller's completion runs, the head is
    // gone, the gap's timer is pending and isSpeaking is false, so a completion that speaks again
    // starts its text at once and the timer then finds nothing to do.
    SpeechCompletion step = [this, started = head, completion = std::move(completion)](
                                const std::string& spoken,
                                const std::optional<std::error_code>& error) {
        if (error) {
            Console::shared().print("Failed to speak text " + started +
                                    ", error: " + describeSpeechError(*error));
        }
        if (!thingsNeedToBeSaid.empty()) {
            thingsNeedToBeSaid.erase(thingsNeedToBeSaid.begin());
            RunLoop::main().scheduleTimer(
                kGapBetweenTexts, [this, completion] { speakingQueue(std::nullopt, completion); });
        }
        isSpeaking = false;
        if (completion) {
            completion(spoken, error);
        }
    };
    if (voice) {
        speakUtterance(head, voice, std::move(step));
        return;
    }
    Console::shared().print("Voice engine is unavailable for selected language");
    step(head, make_error_code(SoundsError::VoiceEngineIsUnavailableForSelectedLanguage));
}

void VTOSoundsManager::speakInBritishEnglish(const std::string& text) {
    if (offLoopThread()) {
        RunLoop::main().post([this, text] { speakInBritishEnglish(text); });
        return;
    }
    if (!britishVoice) {
        Console::shared().print("British voice not available");
        return;
    }
    // Bound to no step: its end runs nobody's completion.
    speakUtterance(text, britishVoice, nullptr);
}

void VTOSoundsManager::shutup() {
    if (offLoopThread()) {
        RunLoop::main().post([this] { shutup(); });
        return;
    }
    // The cancels come on the next pass, once the list is empty: the step of the text that was
    // speaking then runs its completion once and schedules nothing.
    syntesizer->stopSpeakingAtBoundary(SpeechBoundary::immediate);
    thingsNeedToBeSaid.clear();
    isSpeaking = false;
}

void VTOSoundsManager::speakUtterance(const std::string& text,
                                      const std::shared_ptr<const SpeechSynthesisVoice>& in,
                                      SpeechCompletion step) {
    auto utterance = std::make_shared<SpeechUtterance>(text);
    utterance->setVoice(in);
    utterance->setRate(SpeechUtterance::kDefaultSpeechRate);
    if (step) {
        speakCompletion.emplace_back(utterance, std::move(step));
    }
    syntesizer->speakUtterance(std::move(utterance));
}

// Each utterance runs the step it was started with, once, and then lets go of it. The
// synthesizer says which utterance ended, so a British utterance's end runs nobody's step, a
// list text and an instruction text spoken one after the other each advance their own sequence,
// and a step that has run is never run again by a later end. The step receives the text of the
// utterance that ended, which is also what textCurrentlySpoken holds from then on.
void VTOSoundsManager::runStepOf(const std::shared_ptr<SpeechUtterance>& utterance) {
    const auto bound = std::find_if(speakCompletion.begin(), speakCompletion.end(),
                                    [&](const auto& entry) { return entry.first == utterance; });
    if (bound == speakCompletion.end()) {
        return;
    }
    const SpeechCompletion step = std::move(bound->second);
    speakCompletion.erase(bound);
    textCurrentlySpoken = utterance->speechString();
    step(utterance->speechString(), std::nullopt);
}

void VTOSoundsManager::speechSynthesizerDidFinish(
    SpeechSynthesizer&, const std::shared_ptr<SpeechUtterance>& utterance) {
    Console::shared().print("speechSynthesizer didFinish");
    // A refused deactivation changes nothing that matters here, and is not reported.
    (void)AudioSession::sharedInstance().setActive(false, 0);
    runStepOf(utterance);
}

void VTOSoundsManager::speechSynthesizerDidCancel(
    SpeechSynthesizer&, const std::shared_ptr<SpeechUtterance>& utterance) {
    Console::shared().print("speechSynthesizer didCancel");
    runStepOf(utterance);
}

} // namespace vantelo_sounds
