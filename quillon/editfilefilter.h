#pragma once

#include "quillon/basefile.h"

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>
#include <QtCore/QVariantMap>

#include <functional>

/// A request to edit a picture or to clip a video.
///
/// Filled by the client before it is handed over and not changed afterwards; only `clipCallback` is called
/// by the library, always on the thread that the request was made on.
struct EditFileFilter
{
    /// Told how the edit ended: the stage, and 0 done, 1 cancelled, 2 failed. May be empty.
    std::function<void(int stage, int code)> clipCallback;
    /// The file to edit. Not owned; must outlive the request.
    BaseFile* file = nullptr;
    /// Path of the result. The suffix decides its format.
    QString savePath;
    /// What is to be done, by key.
    QVariantMap editInfo;
};

using EditFileFilterPtr = QSharedPointer<EditFileFilter>;
Q_DECLARE_METATYPE(EditFileFilterPtr)
