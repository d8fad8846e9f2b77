#pragma once

#include "multimedia/base/mediasource.h"
#include "multimedia/base/pixelscaler.h"
#include "multimedia/base/resultfile.h"
#include "multimedia/gifhandler/gifhandlercontext.h"

#include <QtCore/QObject>

#include <atomic>
#include <cstdint>
#include <memory>

class CMediaScale;

/// Re-encodes one file into a GIF, or into H.264, at another size.
///
/// There is no setting of quality: a GIF gets smaller by getting fewer pixels. Pictures are converted to the
/// encoder's first pixel format, which for GIF is a fixed palette of 256 colours without transparency: what
/// was transparent comes out white, which is what FFmpeg's decoder has behind it.
///
/// One run at a time, on one thread; only `cancelCompress` may be called from another. A failure has no
/// report but its log line and the result false. The destination comes whole, or is as it was before.
///
/// Sources of strangers are bounded: a GIF that is cut off, has pictures of over 36 megapixels, a single
/// compressed picture of over 64 MiB, or more pixels in all its frames than a run could ever get through, is
/// refused before it is decoded.
class CompressGif : public QObject
{
    Q_OBJECT

public:
    CompressGif();
    ~CompressGif() override;

    /// Ends the run under way at its next frame. A run that begins later is not cancelled.
    void cancelCompress();

    /// `size` with the aspect ratio of `sourceSize` if it is smaller than that on either side, else as it is.
    /// Of a wide size the width is corrected, of others the height; both truncate.
    static QSize checkSize(const QSize& size, const QSize& sourceSize);

public Q_SLOTS:
    /// Blocks for the whole run. A cancel while the files are still being opened gives true, for nothing went
    /// wrong; one during the encoding gives false.
    bool doCompressGif(GifHandlerContextPtr gifHandlerCtxPtr);

Q_SIGNALS:
    /// The result of a run whose context is not `sync`; on the thread of the run.
    void compressResult(bool ret);

private:
    struct Input
    {
        multimedia::MediaSource source;
        multimedia::PictureFormat picture;
        QString path;
    };
    struct Output
    {
        explicit Output(const QString& path)
            : path(path)
            , file(path.toStdString())
        {}

        multimedia::OutputPtr format;
        multimedia::CodecContextPtr encoder;
        multimedia::PictureFormat picture;
        const QString path;
        multimedia::ResultFile file;
        /// Of the last picture, in the time base of the source.
        int64_t lastDuration = 0;
    };
    /// What one run of `reEncode` works with.
    struct Conversion;

    bool run(const GifHandlerContext& context);
    bool initInput(const QString& path);
    bool isSound(const AVFormatContext& format, const QString& path) const;
    bool openInputCodec();
    bool initOutput(const QString& path);
    bool openOutCodec(const GifHandlerContext& context);
    QSize outputSize(const GifHandlerContext& context) const;
    bool openOutputFile();
    bool reEncode();
    int reEncodeFrames(Conversion& conversion);
    int encodeDecoded(Conversion& conversion);
    int encodeToPacket(const AVFrame* frame, AVPacket* packet);
    bool finishOutput(bool is_whole);
    void clear();
    bool isCancelled() const;

    AVStream* sourceStream() const { return input->source.stream(); }
    AVStream* targetStream() const { return output->format->streams[0]; }

    std::unique_ptr<Input> input;
    std::unique_ptr<Output> output;
    /// The request under way; null between runs.
    GifHandlerContextPtr request;
    /// Polled by the run; set from any thread.
    std::atomic<bool> cancelled = false;
};
