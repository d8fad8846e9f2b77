#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtGui/QImage>

#include <cstdint>
#include <vector>

/// @file
/// Looks at media files from outside: everything is asked of the `ffmpeg` and `ffprobe` programs.

namespace mediacheck {

/// Standard output of a program; fails the test, and gives nothing, when it cannot be run or exits with an
/// error.
QByteArray output(const QString& program, const QStringList& arguments);

/// `ffprobe`'s "format" and "streams", frames counted by decoding.
QJsonObject probe(const QString& path);
/// First stream of a kind ("video", "audio") in the result of `probe`; empty when there is none.
QJsonObject stream(const QJsonObject& probed, const char* kind);
/// How long the "format" or a stream of `probe` lasts.
double seconds(const QJsonObject& part);
/// What a full decode complains about; empty for a sound file.
QString decodeErrors(const QString& path);

/// Number of different pictures in a video.
int distinctFrames(const QString& path);
/// Picture number `index`, null when there is none.
QImage frameAt(const QString& path, int index);

/// Luma, 0 to 255, in the middle of each picture of the first video stream.
std::vector<int> lumas(const QString& path);
/// When each picture of the first video stream is shown, in seconds.
std::vector<double> pictureTimes(const QString& path);

/// Sound as 16-bit samples of one channel.
std::vector<int16_t> decodeAudio(const QString& path, int sample_rate);

} // namespace mediacheck
