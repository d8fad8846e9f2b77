// What a recogniser has heard, line by line: first the language, then the answers of the engine.
#include "fuzz/input.h"
#include "multimedia/speechrecognizer_linux/transcription.h"
#include "multimedia/speechrecognizer_linux/voskengine.h"

#include <sstream>

using namespace speechRecognize;

namespace {

/// Hears a line each time.
class Lines : public SpeechDecoder
{
public:
    explicit Lines(std::istream& text)
        : text(text)
    {}
    void startStream(const SpeechSamples& /*beginning*/) override {}
    bool startUtterance() override { return true; }
    Heard process(const std::int16_t* /*samples*/, std::size_t /*count*/) override
    {
        std::getline(text, line);
        return text ? Heard(1 + line.size() % 3) : Heard::Failure;
    }
    void endUtterance() override {}
    std::string words() override { return wordsIn(line.c_str(), "text"); }

private:
    std::istream& text;
    std::string line;
};

} // namespace

void fuzz(const uint8_t* data, size_t size)
{
    std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
    std::string locale;
    std::getline(text, locale);
    Lines decoder(text);
    const SpeechSamples piece(kSpeechRate / 2);
    size_t length = 0;
    Transcription transcription(
        decoder, [&](const SpeechResult& result) { length += result.text.size(); }, speechLanguage(locale),
        piece);
    while (transcription.feed(piece.data(), piece.size())) {
    }
    transcription.finish();
}
