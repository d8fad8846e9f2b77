#pragma once

#include <QtCore/QString>
#include <QtCore/QVariantMap>

/// Wraps blocks of 16-bit PCM in WAV files with a 44-byte header.
///
/// Any thread.
class CWaveWriter
{
public:
    /// Writes the samples under "pcmData" of `pcm`, described by the map under "pcmInfo" with at least
    /// "sampleFormat", "sampleRate" (Hz) and "channels". The header says 16 bits whatever the format is
    /// called, and its RIFF size is the data's plus 32. A file that stands at `path` is written over, not
    /// shortened.
    ///
    /// False when something is missing or the file cannot be written; what was there then stays.
    static bool writeWaveFile(const QVariantMap& pcm, const QString& path);
    /// Decodes the audio of a file, as `CMediaDecode` does, into a WAV file. False on failure.
    static bool transcodeToWave(const QString& srcPath, const QString& dstPath);
};
