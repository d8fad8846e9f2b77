#pragma once

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <cstdio>

/// Keeps the lines of Qt's log from all threads while it lives. One at a time.
class LogCapture
{
public:
    LogCapture()
    {
        current = this;
        previous = qInstallMessageHandler(handle);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(previous);
        current = nullptr;
    }
    Q_DISABLE_COPY(LogCapture)

    /// Number of lines that contain `text`.
    int count(const QString& text) const
    {
        QMutexLocker lock(&mutex);
        return lines.filter(text).size();
    }
    int count(const char* text) const { return count(QString::fromUtf8(text)); }

    QString text() const
    {
        QMutexLocker lock(&mutex);
        return lines.join(QLatin1Char('\n'));
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext&, const QString& line)
    {
        if (!current)
            return;
        // Nobody will look at the lines any more.
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(line));
        QMutexLocker lock(&current->mutex);
        current->lines += line;
    }

    static inline LogCapture* current = nullptr;
    mutable QMutex mutex;
    QStringList lines;
    QtMessageHandler previous = nullptr;
};
