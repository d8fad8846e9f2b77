#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>
#include <QtCore/QSize>
#include <QtCore/QString>

struct AVCodecContext;
struct AVFilterContext;
struct AVFilterGraph;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace multimedia {
class MediaSource;
}

/// Answers, while the caller waits, what a video file is: duration, container, shown size, first picture.
/// Pictures of more than 100 million pixels count as what cannot be read.
///
/// Paths are local. The answer to what cannot be read is false, (-1, -1) or 0, its reason a line in the
/// category "quillon.multimedia". Functions that hand out FFmpeg objects through pointers give them away on
/// success and touch nothing on failure.
///
/// All functions may be called from any thread; the object lives until the process ends.
class MULTIMEDIA_EXPORT VideoCapture : public QObject
{
    Q_OBJECT

public:
    static VideoCapture* instance();

    /// What the container says, and the first picture as a file in the temporary folder, which becomes the
    /// caller's.
    ///
    /// False for a file without a video that can be decoded, for a cover picture, and for a container that
    /// was recognised by its name only. A first picture that cannot be made is no failure.
    ///
    /// @param duration  milliseconds
    /// @param format    first of the extensions that belong to the container, "mov" for an MP4, too
    /// @param image     path of the first picture; left alone if there is none
    /// @param size      of the video as it is shown
    bool syncDecodeFormat(const QString& path, long long& duration, QString& format, QString& image,
                          QSize& size);
    /// The same without the picture; `size` is left alone if the decoder does not open.
    bool syncDecodeFormat(const QString& path, long long& duration, QString& format, QSize& size);

    /// Writes the first picture of the video at `path` to `image`, upright and at most 1024 pixels wide
    /// before it is turned. The suffix of `image` decides its format.
    bool syncDecodeCapture(const QString& path, const QString& image);
    /// `syncDecodeCapture` for a path in UTF-8.
    bool captureFirstFrame(const char* path, const QString& image);

    /// The container's own "rotation" entry, which says nothing about its streams. 0 without one.
    int rotation(const QString& path);
    /// Counterclockwise degrees of a stream's display matrix, 0 to 359; 0 without one.
    int getDisplayMatrix(AVStream* stream);

    /// Opens a file and finds its best video stream.
    bool initFormat(AVFormatContext** context, int* videoIndex, const char* path);
    /// Opens a decoder for a stream.
    bool initDecoder(AVStream* stream, AVCodecContext** codecContext);
    /// Makes what one decoded picture needs: a scaler to RGB of at most 1024 pixels' width, an empty frame, a
    /// frame of that size, a packet.
    bool initSWScale(AVCodecContext* codecContext, SwsContext** sws, AVFrame** frame, AVFrame** scaled,
                     AVPacket** packet);
    /// Makes the graph that scales a picture to at most 1024 pixels' width and turns it upright, into RGBA.
    ///
    /// @param source, sink  ends of the graph, which owns them
    /// @param rotation      as `getDisplayMatrix` gives it; other angles than 90, 180 and 270 are not turned
    bool initFilter(AVCodecContext* codecContext, AVStream* stream, AVFilterGraph** graph,
                    AVFilterContext** source, AVFilterContext** sink, int rotation);
    /// Writes the next picture of an open file to `image`, see `syncDecodeCapture`.
    ///
    /// @param size  of the video as it is shown, known as soon as its decoder is open
    bool decodeFirstFrame(AVFormatContext* context, int videoIndex, const QString& image, QSize& size);
    /// Writes a frame, whose pixels are RGBA, to `image`.
    bool toRGB24(AVFrame* frame, int width, int height, const QString& image);

public Q_SLOTS:
    /// Size of the video as it is shown, (-1, -1) if it cannot be decoded.
    QSize videoSourceSize(const QString& path);

private:
    VideoCapture();

    bool saveFirstFrame(multimedia::MediaSource& source, const QString& image, QSize& size);

    const QString m_tempPath;
};
