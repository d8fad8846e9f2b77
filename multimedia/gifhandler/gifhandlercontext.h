#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QString>

#include <atomic>

/// How much smaller a GIF shall become. Every value but the one below leaves it to the wanted size.
using GifCompressLevel = int;

/// At most half the source's width and height.
constexpr GifCompressLevel kGifCompressHalf = 1;

/// One request to re-encode a GIF.
///
/// Filled by whoever makes it and not changed afterwards; only `cancelled` may be touched while it waits or
/// runs.
struct GifHandlerContext
{
    /// The caller's id of the request.
    QString compressId;
    QString srcFilePath;
    /// Wanted size in pixels; used if both sides are above 0.
    QSize targetSize = {-1, -1};
    /// The suffix decides the container.
    QString destFilePath;
    /// The caller waits for the result, so no signal brings it.
    bool sync = false;
    GifCompressLevel compressLevel = 0;
    /// H.264 in place of GIF.
    bool transcodeToMP4 = false;
    /// Set from any thread, polled by the run.
    std::atomic<bool> cancelled = false;
};

using GifHandlerContextPtr = QSharedPointer<GifHandlerContext>;
Q_DECLARE_METATYPE(GifHandlerContextPtr)
