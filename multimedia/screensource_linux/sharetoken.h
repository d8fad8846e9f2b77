#pragma once

#include <QtCore/QString>

namespace multimedia {

/// @file
/// What the user has chosen to share, remembered: by its token the desktop shares the same again without
/// asking. A token is good for one time. They are kept one a screen, in "screencast.json" of the
/// application's configuration folder, for its user's eyes only (0600). Any thread.

/// Empty when there is none.
QString shareToken(const QString& screen);

/// Replaces the token of a screen. An empty one leaves none.
void keepShareToken(const QString& screen, const QString& token);

} // namespace multimedia
