#include "quillon/basefile.h"

#include <utility>

BaseFile::BaseFile(QString file_id, QString file_path)
    : m_fileId(std::move(file_id))
    , m_filePath(std::move(file_path))
{}

BaseFile::~BaseFile() = default;

QString BaseFile::filePath() const
{
    return m_filePath;
}
