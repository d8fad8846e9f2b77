#pragma once

#include <QtTest/QtTest>

/// The columns of the table that a test runs over, in the order of the types.
template<typename... Types, typename... Names>
void columns(Names... names)
{
    static_assert(sizeof...(Types) == sizeof...(Names));
    (QTest::addColumn<Types>(names), ...);
}

/// A row of it.
template<typename... Values>
void row(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}
