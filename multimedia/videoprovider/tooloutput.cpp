#include "multimedia/videoprovider/tooloutput.h"

#include "multimedia/videoprovider/toolcommand.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QTime>

namespace tooloutput {

namespace {

/// The seconds of the clock time that `pattern` finds in `text`; -1 without one.
int secondsIn(const QString& text, const QString& pattern)
{
    const QRegularExpressionMatch match = QRegularExpression(pattern).match(text);
    if (!match.hasMatch())
        return -1;
    return QTime::fromString(QStringLiteral("00:00:00")).secsTo(QTime::fromString(match.captured(1)));
}

} // namespace

int duration(const QString& text)
{
    return secondsIn(toolcommand::onOneLine(text),
                     QStringLiteral(".*Duration:\\s*(\\d{2}:\\d{2}:\\d{2})\\..*"));
}

int progress(const QString& text)
{
    // The first label of each kind will do: the text may hold thousands, from a file's tags.
    return secondsIn(toolcommand::onOneLine(text),
                     QStringLiteral("^(?>.*?frame=)(?>.*?fps=)(?>.*?q=)(?>.*?size=)"
                                    ".*time=(\\d{2}:\\d{2}:\\d{2})\\..*"));
}

int rotation(const QString& text)
{
    QString line = toolcommand::onOneLine(text);
    // An expression that looks for the end itself takes minutes over a file whose tags repeat the beginning.
    line.truncate(line.lastIndexOf(QLatin1String(" degrees")));
    line.replace(QRegularExpression(QStringLiteral(".* displaymatrix: rotation of ([-\\d]+).*")),
                 QStringLiteral("\\1"));
    return line.toInt(nullptr, 10);
}

} // namespace tooloutput
