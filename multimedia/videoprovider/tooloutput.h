#pragma once

#include <QtCore/QString>

/// @file
/// What the texts of the tools say. They hold tags of files, which say what a stranger likes.

namespace tooloutput {

/// Seconds that a file lasts; -1 where the text does not say.
int duration(const QString& text);
/// Seconds that have been converted, as it is told at last; -1 where the text does not say.
int progress(const QString& text);
/// Degrees by which the display matrix turns; 0 where the text does not say.
int rotation(const QString& text);

} // namespace tooloutput
