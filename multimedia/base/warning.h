#pragma once

#include <string>

/// @file
/// How stages report: a failure has no other report than its log line.

class QLoggingCategory;

namespace multimedia {

/// Makes FFmpeg's capture devices known. May be called any number of times, from any thread.
void registAll();

/// Writes "[where]:\twhat" to Qt's default warning log, and FFmpeg's text for `code` behind it unless that is
/// 0.
///
/// @param where  method that failed, without its class
/// @param what   short lower-case phrase
/// @param code   FFmpeg's negative error code, or 0
/// Any thread.
void warning(std::string where, std::string what, int code = 0);

} // namespace multimedia

/// FFmpeg's text for an error code.
std::string ffmpegErrorString(int code);

/// "quillon.multimedia": debug lines of the stages and the device listeners.
QLoggingCategory& MultimediaCategoryLogging();
