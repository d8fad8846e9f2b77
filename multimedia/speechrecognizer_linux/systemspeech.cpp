#include "multimedia/base/processend.h"
#include "multimedia/speechrecognizer_linux/localspeechservice.h"
#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"
#include "multimedia/speechrecognizer_linux/voskengine.h"

namespace speechRecognize {

SpeechService& systemSpeechService()
{
    static LocalSpeechService service([] {
        LocalSpeechService::Engines engines;
        engines.push_back(std::make_unique<VoskEngine>());
        engines.push_back(std::make_unique<PocketSphinxEngine>());
        return engines;
    }());
    static const multimedia::ProcessEnd process_end([] { service.end(); });
    return service;
}

} // namespace speechRecognize
