#include "multimedia/speechrecognizer_linux/speechlanguage.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace speechRecognize {

namespace {

constexpr std::array<std::pair<const char*, const char*>, 3> kModelNames = {
    {{"cn", "zh"}, {"kz", "kk"}, {"vn", "vi"}}};
constexpr std::array kWithoutBlanks = {"ja", "km", "lo", "my", "th", "zh"};

// Locale names are ASCII, whatever the process's own locale says of letters.
bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
    return text;
}

std::string upper(std::string text)
{
    for (char& c : text)
        c = c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
    return text;
}

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

} // namespace

bool SpeechLanguage::writesBlanks() const
{
    return std::find(kWithoutBlanks.begin(), kWithoutBlanks.end(), language) == kWithoutBlanks.end();
}

bool operator==(const SpeechLanguage& a, const SpeechLanguage& b)
{
    return a.language == b.language && a.region == b.region;
}

SpeechLanguage speechLanguage(const std::string& locale)
{
    const std::string plain = locale.substr(0, locale.find_first_of(".@"));
    if (plain == "C" || plain == "POSIX")
        return {"en", "US"};
    std::size_t end = plain.find_first_of("_-");
    SpeechLanguage result{lower(plain.substr(0, end)), {}};
    for (const auto& [name, code] : kModelNames) {
        if (result.language == name)
            result.language = code;
    }
    // Behind the language may stand a script, which has four letters.
    while (end != std::string::npos && result.region.empty()) {
        const std::size_t begin = end + 1;
        end = plain.find_first_of("_-", begin);
        const std::string part = plain.substr(begin, end - begin);
        if (part.size() == 2 && isLetter(part[0]) && isLetter(part[1]))
            result.region = upper(part);
    }
    return result;
}

SpeechLanguage systemSpeechLanguage()
{
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (locale.empty())
            locale = environment(name);
    }
    // The languages that the interface is wanted in, the first one first; not heeded by the C locale.
    const std::string wanted = environment("LANGUAGE");
    const std::string first = wanted.substr(0, wanted.find(':'));
    const bool is_plain = locale.empty() || locale == "C" || locale == "POSIX";
    return speechLanguage(is_plain ? "C" : first.empty() ? locale : first);
}

std::string written(const std::string& words, const SpeechLanguage& language)
{
    if (language.writesBlanks())
        return words;
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool is_between_latin =
            i > 0 && i + 1 < words.size() && isAscii(words[i - 1]) && isAscii(words[i + 1]);
        if (words[i] != ' ' || is_between_latin)
            text += words[i];
    }
    return text;
}

} // namespace speechRecognize
