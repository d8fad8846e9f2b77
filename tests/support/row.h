#pragma once

#include <QtTest/QtTest>

/// A row of the table that a test runs over.
template<typename... Values>
void row(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}
