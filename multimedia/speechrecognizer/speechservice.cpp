#include "multimedia/speechrecognizer/speechservice.h"

#include <atomic>

namespace speechRecognize {

namespace {
std::atomic<SpeechService*> g_replacement = nullptr;
}

SpeechService& SpeechService::instance()
{
    SpeechService* replacement = g_replacement;
    return replacement ? *replacement : systemSpeechService();
}

void SpeechService::setInstance(SpeechService* service)
{
    g_replacement = service;
}

} // namespace speechRecognize
