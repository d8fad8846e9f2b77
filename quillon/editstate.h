#pragma once

#include <QtCore/QMetaType>

/// Answer to a request to cancel an edit.
enum class EditState : int {
    None = 0,      ///< no edit of that file is under way
    Cancelled = 1, ///< the edit was told to end
};
Q_DECLARE_METATYPE(EditState)
