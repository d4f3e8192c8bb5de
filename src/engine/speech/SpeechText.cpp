#include "engine/speech/SpeechText.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

namespace vantelo_sounds::engine {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// espeak-ng aborts at 68 letters in a chain, so 16 leaves a wide margin and no real word has
// more than two ("rock'n'roll").
constexpr int kMaxChainLetters = 16;
// espeak-ng copies a run of dotted letters into a buffer of about 170 bytes; 12 letters of up
// to four bytes and their dots fill 60, so even two runs it joins where we see two stay inside.
constexpr int kMaxDottedLetters = 12;

// Voices in which a symbol next to punctuation reads an uninitialised value; Hindi crashes on
// it, the others were only seen reading it.
constexpr std::array<std::string_view, 4> kSymbolSensitiveLanguages = {"hi", "ky", "om", "smj"};
constexpr std::u32string_view kSpokenSymbols = U"$%*+=";

enum class Kind { Space, Digit, Letter, Mark };

struct Range {
    char32_t first;
    char32_t last;
};

// Punctuation and symbols outside ASCII, as espeak-ng tells them from letters (found by making
// it read each one as an abbreviation): modifier letters, combining marks, the soft hyphen,
// U+200C, U+FFFD, circled letters and most letter-like symbols are letters to it, so they are
// not listed here.
constexpr Range kPunctuation[] = {
    {0x00A0, 0x00A9}, {0x00AB, 0x00AC}, {0x00AE, 0x00B4}, {0x00B6, 0x00B9}, {0x00BB, 0x00BF},
    {0x00D7, 0x00D7}, {0x00F7, 0x00F7}, {0x02C2, 0x02C5}, {0x02D2, 0x02DF}, {0x02E5, 0x02EB},
    {0x02ED, 0x02ED}, {0x02EF, 0x02FF}, {0x037E, 0x037E}, {0x0387, 0x0387}, {0x055A, 0x055F},
    {0x0589, 0x058A}, {0x05BE, 0x05BE}, {0x05C0, 0x05C0}, {0x05C3, 0x05C3}, {0x05F3, 0x05F4},
    {0x0606, 0x060F}, {0x061B, 0x061F}, {0x066A, 0x066D}, {0x06D4, 0x06D4}, {0x0964, 0x0965},
    {0x0E4F, 0x0E4F}, {0x0E5A, 0x0E5B}, {0x2000, 0x200B}, {0x200D, 0x206F}, {0x20A0, 0x20CF},
    {0x2100, 0x2101}, {0x2103, 0x2106}, {0x2108, 0x2109}, {0x2114, 0x2114}, {0x2116, 0x2118},
    {0x211E, 0x2123}, {0x2125, 0x2125}, {0x2127, 0x2127}, {0x2129, 0x2129}, {0x212E, 0x212E},
    {0x213A, 0x213B}, {0x2140, 0x2144}, {0x214A, 0x214D}, {0x214F, 0x214F}, {0x2190, 0x24B5},
    {0x24EA, 0x24FF}, {0x2500, 0x2BFF}, {0x2E00, 0x2E7F}, {0x3000, 0x3004}, {0x3008, 0x3020},
    {0x302A, 0x3030}, {0x3036, 0x3037}, {0x303D, 0x303F}, {0xFE10, 0xFE1F}, {0xFE30, 0xFE6F},
    {0xFF01, 0xFF20}, {0xFF3B, 0xFF40}, {0xFF5B, 0xFF65}, {0xFFF9, 0xFFFC}, {0x1F000, 0x1FAFF},
};

// Combining marks of the scripts espeak-ng reads, outside the Brahmic blocks (handled by their
// shared layout in isCombiningMark).
constexpr Range kCombiningMarks[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x05BF, 0x05BF}, {0x05C1, 0x05C2},
    {0x05C4, 0x05C5}, {0x05C7, 0x05C7}, {0x0610, 0x061A}, {0x064B, 0x065F}, {0x0670, 0x0670},
    {0x06D6, 0x06DC}, {0x06DF, 0x06E4}, {0x06E7, 0x06E8}, {0x06EA, 0x06ED}, {0x0E31, 0x0E31},
    {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x0EB1, 0x0EB1}, {0x0EB4, 0x0EBC}, {0x0EC8, 0x0ECD},
    {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF}, {0xFE20, 0xFE2F},
};

bool inRanges(char32_t c, const Range* first, const Range* last) {
    return std::any_of(first, last, [c](Range r) { return c >= r.first && c <= r.last; });
}

Kind kindOf(char32_t c) {
    if (c == ' ' || c == '\t' || c == '\n') {
        return Kind::Space;
    }
    if (c >= '0' && c <= '9') {
        return Kind::Digit;
    }
    if (c < 0x80) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        return letter ? Kind::Letter : Kind::Mark;
    }
    return inRanges(c, std::begin(kPunctuation), std::end(kPunctuation)) ? Kind::Mark
                                                                         : Kind::Letter;
}

bool isWordPart(char32_t c) {
    const Kind kind = kindOf(c);
    return kind == Kind::Letter || kind == Kind::Digit;
}

bool isNonCharacter(char32_t c) {
    return (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF);
}

// The soft hyphen and variation selectors ("❤️" is a heart and U+FE0F) change nothing that is
// heard, and espeak-ng takes them for punctuation touching the symbol beside them.
bool isInvisibleHint(char32_t c) {
    return c == 0x00AD || (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0xE0100 && c <= 0xE01EF);
}

// Decodes UTF-8, replacing each byte that does not start a well-formed sequence (overlong,
// surrogate, beyond U+10FFFF, cut short) with U+FFFD. Control characters become spaces, so the
// words on either side stay apart and a NUL cannot end the text early.
std::u32string decode(std::string_view bytes) {
    std::u32string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<std::uint8_t>(bytes[i]);
        int length = 0;
        char32_t c = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            length = 1;
            c = lead;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            c = lead & 0x1Fu;
            minimum = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            c = lead & 0x0Fu;
            minimum = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            c = lead & 0x07u;
            minimum = 0x10000;
        }
        bool valid = length > 0 && i + static_cast<std::size_t>(length) <= bytes.size();
        for (int k = 1; valid && k < length; ++k) {
            const auto next = static_cast<std::uint8_t>(bytes[i + static_cast<std::size_t>(k)]);
            valid = (next & 0xC0u) == 0x80u;
            c = (c << 6) | (next & 0x3Fu);
        }
        valid = valid && c >= minimum && c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF);
        if (!valid) {
            text.push_back(kReplacement);
            ++i;
            continue;
        }
        i += static_cast<std::size_t>(length);
        if (isInvisibleHint(c)) {
            continue;
        }
        if ((c < 0x20 && c != '\t' && c != '\n') || (c >= 0x7F && c <= 0x9F)) {
            c = ' ';
        } else if (isNonCharacter(c)) {
            // espeak-ng reads uninitialised memory on U+FFFE and U+FFFF.
            c = kReplacement;
        }
        text.push_back(c);
    }
    return text;
}

std::string encode(std::u32string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const char32_t c : text) {
        if (c < 0x80) {
            bytes.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            bytes.push_back(static_cast<char>(0xC0 | (c >> 6)));
            bytes.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            bytes.push_back(static_cast<char>(0xE0 | (c >> 12)));
            bytes.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            bytes.push_back(static_cast<char>(0xF0 | (c >> 18)));
            bytes.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            bytes.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return bytes;
}

bool isCombiningMark(char32_t c) {
    if (c >= 0x0900 && c <= 0x0DFF) {
        // Devanagari to Sinhala share one layout: signs, nukta, vowel signs and virama sit at
        // the same offsets in each 128-character block.
        const char32_t offset = c & 0x7F;
        return offset <= 0x03 || (offset >= 0x3A && offset <= 0x4F && offset != 0x3D) ||
               (offset >= 0x51 && offset <= 0x57) || offset == 0x62 || offset == 0x63;
    }
    return inRanges(c, std::begin(kCombiningMarks), std::end(kCombiningMarks));
}

// A combining mark with no letter to sit on ("म'े", "´े") makes espeak-ng read, and after an
// apostrophe write, memory it has freed; alone it says nothing, so it is dropped.
std::u32string dropOrphanMarks(std::u32string_view text) {
    std::u32string out;
    out.reserve(text.size());
    for (const char32_t c : text) {
        if (isCombiningMark(c) && (out.empty() || kindOf(out.back()) != Kind::Letter)) {
            continue;
        }
        out.push_back(c);
    }
    return out;
}

bool isSymbolSensitive(std::string_view languageCode) {
    std::string primary;
    for (const char c : languageCode.substr(0, languageCode.find_first_of("-_"))) {
        primary.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
    }
    return std::find(kSymbolSensitiveLanguages.begin(), kSymbolSensitiveLanguages.end(), primary) !=
           kSymbolSensitiveLanguages.end();
}

// Marks that espeak-ng reads with an uninitialised value when another mark touches them: the
// Devanagari dandas in every voice, and in the symbol-sensitive voices also `$ % * + =` and,
// outside ASCII, everything but general punctuation (quotes, dashes, ellipsis): emoji, ©, ™...
bool isTouchySymbol(char32_t c, bool symbolSensitive) {
    if (c == 0x0964 || c == 0x0965) {
        return true;
    }
    if (!symbolSensitive) {
        return false;
    }
    if (c < 0x80) {
        return kSpokenSymbols.find(c) != std::u32string_view::npos;
    }
    return kindOf(c) == Kind::Mark && !(c >= 0x2000 && c <= 0x206F);
}

// U+200C is a letter inside a word but punctuation next to a symbol.
bool touchesAsMark(char32_t c) {
    return c == 0x200C || kindOf(c) == Kind::Mark;
}

// "\"।" becomes "\" ।"; in Hindi "**" becomes "* *" and "!😀" becomes "! 😀".
std::u32string setSymbolsApart(std::u32string_view text, bool symbolSensitive) {
    std::u32string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        out.push_back(text[i]);
        if (i + 1 < text.size() && touchesAsMark(text[i]) && touchesAsMark(text[i + 1]) &&
            (isTouchySymbol(text[i], symbolSensitive) ||
             isTouchySymbol(text[i + 1], symbolSensitive))) {
            out.push_back(' ');
        }
    }
    return out;
}

// Letters and digits that make a following hyphen part of a word, as in "नमस्ते-दुनिया" or
// "e-मेल". Not '_' or the modifier letters (U+02BB): after them espeak-ng still misreads it.
bool joinsHyphen(char32_t c) {
    if (c < 0x80) {
        return c != '_' && isWordPart(c);
    }
    const bool latin = c >= 0xC0 && c <= 0x24F && c != 0xD7 && c != 0xF7;
    return latin || (c >= 0x370 && kindOf(c) == Kind::Letter);
}

// "---लच्छेद" becomes "--- लच्छेद" and "(-कम" becomes "(- कम": a hyphen that starts a word
// with a letter outside ASCII in it. espeak-ng's word runs on across hyphens, dots and
// apostrophes ("---S-मल" and "(-a.中" are as bad as "---मल"), so all up to the next space
// counts. A hyphen inside a word ("नमस्ते-दुनिया") stays.
std::u32string detachLeadingHyphens(std::u32string_view text) {
    // nonAsciiAhead[i]: the text from i to the next space has a letter outside ASCII; found in
    // one pass from the end, so the text is read once whatever its hyphens.
    std::vector<bool> nonAsciiAhead(text.size() + 1, false);
    for (std::size_t i = text.size(); i-- > 0;) {
        const Kind kind = kindOf(text[i]);
        if (kind != Kind::Space) {
            nonAsciiAhead[i] = (text[i] >= 0x80 && kind == Kind::Letter) || nonAsciiAhead[i + 1];
        }
    }
    std::u32string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        out.push_back(text[i]);
        const bool startsWord = i == 0 || !joinsHyphen(text[i - 1]);
        if (text[i] == '-' && startsWord && i + 1 < text.size() &&
            kindOf(text[i + 1]) == Kind::Letter && nonAsciiAhead[i + 1]) {
            out.push_back(' ');
        }
    }
    return out;
}

// A letter with no letter or digit on either side.
bool isSingleLetter(std::u32string_view text, std::size_t i) {
    return kindOf(text[i]) == Kind::Letter && (i == 0 || !isWordPart(text[i - 1])) &&
           (i + 1 == text.size() || !isWordPart(text[i + 1]));
}

// "s's's'..." is cut into chains of 16 letters by a space.
std::u32string breakLetterChains(std::u32string_view text) {
    std::u32string out;
    out.reserve(text.size());
    int chain = 0;
    std::size_t lastLetter = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isSingleLetter(text, i)) {
            const bool continues =
                chain > 0 && i >= 2 && lastLetter == i - 2 && kindOf(text[i - 1]) == Kind::Mark;
            chain = continues ? chain + 1 : 1;
            lastLetter = i;
            if (chain > kMaxChainLetters) {
                out.push_back(' ');
                chain = 1;
            }
        }
        out.push_back(text[i]);
    }
    return out;
}

// In "a.b.c. ..." the letters after the 12th lose their dots. A run goes on across spaces,
// newlines and punctuation and ends at the first word that is not a dotted letter.
void dropLateDots(std::u32string& text) {
    int run = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!isWordPart(text[i])) {
            continue;
        }
        std::size_t gap = i + 1;
        while (gap < text.size() && text[gap] != '.' && !isWordPart(text[gap])) {
            ++gap;
        }
        const bool dotted = isSingleLetter(text, i) && gap < text.size() && text[gap] == '.';
        if (!dotted) {
            run = 0;
            continue;
        }
        if (++run > kMaxDottedLetters) {
            for (; gap < text.size() && (text[gap] == '.' || kindOf(text[gap]) == Kind::Space);
                 ++gap) {
                if (text[gap] == '.') {
                    text[gap] = ' ';
                }
            }
        }
    }
}

} // namespace

std::string speakableText(std::string_view text, std::string_view languageCode) {
    std::u32string decoded = dropOrphanMarks(decode(text));
    decoded = setSymbolsApart(decoded, isSymbolSensitive(languageCode));
    decoded = breakLetterChains(detachLeadingHyphens(decoded));
    dropLateDots(decoded);
    return encode(decoded);
}

} // namespace vantelo_sounds::engine
