#pragma once

/// @file
/// Export macro of the library: everything else is hidden. It needs no Qt, so that headers without Qt may use
/// it.

#define MULTIMEDIA_EXPORT __attribute__((visibility("default")))
