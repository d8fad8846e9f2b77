#pragma once

#include "quillon/quillon_global.h"

#include <QtCore/QString>

/// A file of a conversation: its id in the client, and where it lies on this machine.
///
/// Immutable here, so it may be read from any thread.
class QUILLON_EXPORT BaseFile
{
public:
    BaseFile(QString file_id, QString file_path);
    virtual ~BaseFile();
    BaseFile(const BaseFile&) = delete;
    BaseFile& operator=(const BaseFile&) = delete;

    const QString& fileId() const { return m_fileId; }
    /// Path or "file:" URL. A kind of file that lies elsewhere until it is wanted may override this.
    virtual QString filePath() const;

private:
    const QString m_fileId;
    const QString m_filePath;
};
