#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>

/// A request to convert a media file; a token that comes back with every report on it.
struct ConvertFileFilter
{
    /// Path of the result, set by the converter; empty after a failure.
    QString outputFile;
};

using ConvertFileFilterPtr = QSharedPointer<ConvertFileFilter>;
Q_DECLARE_METATYPE(ConvertFileFilterPtr)
