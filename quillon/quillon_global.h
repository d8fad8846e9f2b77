#pragma once

#include <QtCore/qglobal.h>

/// @file
/// Export macro of the base library.

#ifdef QUILLON_BUILDING
#    define QUILLON_EXPORT Q_DECL_EXPORT
#else
#    define QUILLON_EXPORT Q_DECL_IMPORT
#endif
