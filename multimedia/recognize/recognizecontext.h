#pragma once

#include <QtCore/QString>
#include <QtCore/QVariantMap>

namespace speechRecognize {

/// One request to turn sound into text. Not changed once it is queued.
struct RecognizeContext
{
    QString recognizeId; ///< the caller's
    QString path;        ///< the sound file; empty for a buffer
    QString language;    ///< a locale as "en_US"; empty for the system's
    QVariantMap pcmInfo; ///< "pcmData" and "pcmInfo", as `SpeechRecognizer` takes them; empty for a file
};

} // namespace speechRecognize
