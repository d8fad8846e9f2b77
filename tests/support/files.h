#pragma once

#include "tests/support/paths.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtTest/QtTest>

/// An input file, as the script in tests/media makes it that the test's CMake entry names.
inline QString media(const QString& name)
{
    return QLatin1String(kMediaFolder) + QLatin1String("/" TEST_MEDIA "/") + name;
}

/// A file of tests/data.
inline QString dataFile(const QString& name)
{
    return QLatin1String(kDataFolder) + QLatin1Char('/') + name;
}

inline void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

/// Empty, too, if there is no such file.
inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
