#pragma once

#include <QtCore/QDebug>
#include <QtTest/QtTest>

#include <tuple>
#include <utility>

/// Says at which case of a loop a test failed, by these values: QtTest itself names the rows of tables only.
/// The cases of a loop are pairs or tuples.
class InCase
{
public:
    template<typename... Values>
    explicit InCase(const Values&... values)
    {
        QDebug stream(&name);
        (stream << ... << values);
    }
    ~InCase()
    {
        if (QTest::currentTestFailed())
            qWarning("in case %s", qPrintable(name));
    }

private:
    Q_DISABLE_COPY(InCase)

    QString name;
};
