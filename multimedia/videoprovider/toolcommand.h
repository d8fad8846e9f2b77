#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

class QProcess;

/// @file
/// Command lines of the tools beside the application, written as text, and what the tools print.
///
/// A path without anything unusual stands in the text as it is. Any other is written so that the tool sees
/// one path: neither several words, nor an option, nor the name of a protocol.

namespace toolcommand {

/// `path` between double quotes.
QString quoted(const QString& path);
/// `path` as it is, between double quotes only where it would fall into several words.
QString asOneWord(const QString& path);
/// A path to read, as the tool is to get it: relative ones that begin like an option or a protocol become
/// "file:" addresses. Not quoted.
QString inputPath(const QString& path);

/// A program that cannot be started gives a line in the log. Once for each process object.
void logStartFailure(QProcess& process);
/// Starts `command`; returns at once. A question of the tool's finds its standard input at an end.
void start(QProcess& process, const QString& command);
/// Runs `command` for at most `timeout_ms` and ends it then.
///
/// @return what it printed on standard error, as far as the first NUL; at most the first MiB of it
QString standardErrorOf(const QString& command, int timeout_ms = 30'000);

/// The tool's text in a chunk of standard error, as far as the first NUL.
QString text(const QByteArray& standard_error);
/// `text` on one line with single blanks, for expressions that reach across lines.
QString onOneLine(QString text);

} // namespace toolcommand
