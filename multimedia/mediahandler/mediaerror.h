#pragma once

/// Writes the log line that every helper of this folder leaves for a failure, and hands `code` on.
///
/// It goes to FFmpeg's log, at debug level when the code only says "not now" or "at the end".
int mediaError(int code, int line = __builtin_LINE());
