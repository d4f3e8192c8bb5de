#pragma once

#include <string>
#include <string_view>

namespace vantelo_sounds::engine {

/// Turns any bytes into UTF-8 text that espeak-ng 1.51 can speak as plain text without crashing
/// the process. A game speaks what players type, and a few ordinary-looking texts make that
/// espeak-ng overflow a buffer or read out of bounds, so these are reshaped before it sees them:
///
/// - bytes that are not UTF-8, and the non-characters (U+FFFE...), become U+FFFD; control
///   characters (C0 except tab and newline, DEL, C1) become spaces; the soft hyphen and variation
///   selectors, which are not heard, are dropped, and so is a combining mark with no letter to
///   sit on ("म'े" makes espeak-ng write to memory it has freed);
/// - a chain of single letters each followed by one punctuation mark ("s's's'...": 68 of them
///   abort espeak-ng) gets a space before every 17th letter;
/// - a run of single letters followed by dots ("a.b.c....", "é . é . ...": 85 ASCII letters or
///   57 two-byte ones smash its stack) keeps the dots of its first 12 letters only;
/// - a hyphen that starts a word holding a letter outside ASCII ("---लच्छेद", "(-कम") gets a
///   space after it: espeak-ng reads before the word and crashes;
/// - a Devanagari danda touching another mark ("\"।"), and in Hindi also `$ % * + =`, emoji and
///   other symbols touching one ("**", "$,", "❤!"), are set apart by a space: espeak-ng reads an
///   uninitialised value there, and Hindi crashes on it about one time in four.
///
/// Anything else is left as it is, and the length is not bounded: long texts are spoken in
/// pieces by the caller. `languageCode` is the voice's language ("hi", "en-GB").
std::string speakableText(std::string_view text, std::string_view languageCode);

} // namespace vantelo_sounds::engine
