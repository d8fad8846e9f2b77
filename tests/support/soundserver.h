#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

/// The rig's sound server, from the side of who plugs devices in and out and pulls the plug.
class SoundServer
{
public:
    ~SoundServer();

    /// What `pactl` printed; fails the process's test by an empty answer and a warning.
    static QByteArray control(const QStringList& arguments);
    /// Adds a null sink of this name; returns its module for `unload`.
    static QString addSink(const QString& name, const QString& description = QStringLiteral("Added"));
    static void unload(const QString& module);
    static bool answers();

    /// Ends the server as a crash would, and waits until it is gone.
    void kill();
    /// Starts it anew and waits until it answers.
    void start();

private:
    QProcess server; ///< the one started here; the rig's own before that
};
