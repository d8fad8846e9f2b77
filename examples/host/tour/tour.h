#pragma once

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QString>

#include <functional>

class QQmlEngine;

/// The guided tour: drives the library as a client would, on a desktop of its own, and leaves what it made in
/// one folder.
///
/// A stop of the tour is a function that takes the tour; `kStops` in main.cpp lists them. While the tour
/// lives a picture moves on the screen and a voice speaks into the microphone.
class Tour
{
public:
    /// @param out     folder for what is made; created when it is missing
    /// @param engine  the one that the library's types are registered with; must outlive the tour
    Tour(const QString& out, QQmlEngine& engine);
    ~Tour();

    QQmlEngine& engine() const { return qml_engine; }

    /// One line for the person who watches.
    void say(const QString& line) const;
    /// A line that the next one overwrites; only where somebody watches a terminal.
    void showLive(const QString& line) const;
    /// One line for the person who watches, and the tour will count as failed.
    void fail(const QString& line);
    bool failed() const { return has_failed; }

    /// Moves a file that the library made into the folder, under `name`, and puts it on the list.
    void keep(const QString& file, const QString& name);
    /// Makes an input file with the `ffmpeg` program; false, and a failure, if that does not work.
    bool make(const QString& file, const QString& arguments);
    /// What was made, in the order of making.
    const QStringList& made() const { return files; }
    QString path(const QString& name) const { return out.filePath(name); }

    /// Runs the event loop for so long.
    void pass(int duration_ms) const;
    /// Runs the event loop until `condition` holds; false, and a failure, when that takes too long.
    bool waitFor(const QString& what, const std::function<bool()>& condition, int timeout_ms = 20'000);

private:
    void startSurroundings();

    QDir out;
    QQmlEngine& qml_engine;
    QStringList files;
    bool has_failed = false;
    QProcess moving_picture;
    QProcess voice;
};

/// Records the screen with sound to MP4, and to GIF.
void screenStop(Tour& tour);
/// Lists microphones, loudspeakers, cameras and screens.
void deviceStop(Tour& tour);
/// Plays a file at three speeds, and shows its tags and cover.
void playerStop(Tour& tour);
/// Records the microphone in every voice.
void voiceStop(Tour& tour);
/// Records the microphone and turns what is said into text.
void speechStop(Tour& tour);
/// Makes GIFs smaller, turns one into a video, converts a video.
void convertStop(Tour& tour);
/// Shows a video's strip of thumbnails and its facts, and clips it.
void videoStop(Tour& tour);
/// Blurs the faces of a photo, crops, turns and mirrors it, and adjusts its colours.
void pictureStop(Tour& tour);
