#pragma once

#include <string>

namespace speechRecognize {

/// A language as locales and the recognisers' models name it, in one spelling. Equal names are equal.
struct SpeechLanguage
{
    std::string language; ///< lower case, ISO 639 where there is such a code: "en", "zh"; empty is none
    std::string region;   ///< upper case: "US"; empty where none is named

    /// "en_US", "en".
    std::string name() const { return region.empty() ? language : language + '_' + region; }
    /// Whether blanks stand between words when it is written.
    bool writesBlanks() const;
};

bool operator==(const SpeechLanguage& a, const SpeechLanguage& b);

/// Reads "zh_CN", "zh-cn", "zh_Hans_CN.UTF-8@mod", "zh" and the names that models have for some languages:
/// "cn", "vn", "kz". "C" and "POSIX" are American English.
SpeechLanguage speechLanguage(const std::string& locale);

/// The language of the user's interface, from the environment. Any thread.
SpeechLanguage systemSpeechLanguage();

/// Words with one blank between them, as the language is written: where it has no blanks they stay only
/// between words in Latin letters.
std::string written(const std::string& words, const SpeechLanguage& language);

} // namespace speechRecognize
