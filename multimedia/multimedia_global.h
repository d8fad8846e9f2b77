#pragma once

#include <QtCore/qglobal.h>

/// @file
/// Export macro of the library: everything else is hidden.

#ifdef MULTIMEDIA_BUILDING
#    define MULTIMEDIA_EXPORT Q_DECL_EXPORT
#else
#    define MULTIMEDIA_EXPORT Q_DECL_IMPORT
#endif
