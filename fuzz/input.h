#pragma once

#include <QtCore/QString>

#include <cstddef>
#include <cstdint>
#include <string>

/// @file
/// What the fuzzers share. Each defines `fuzz`, which is called over and over again.

/// The bytes of an input as a file in memory.
class InputFile
{
public:
    InputFile(const uint8_t* data, size_t size);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::string path() const;
    QString name() const { return QString::fromStdString(path()); }

private:
    int descriptor = -1;
};

/// A folder for results, in memory; emptied when the program ends.
QString resultFolder();

void fuzz(const uint8_t* data, size_t size);
