#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtCore/QVariantMap>

#include <atomic>

/// The library's player as the host's QML sees it: one file, open until the next one.
///
/// Lives on the main thread. The library's player announces events on its own thread; they are fetched here.
/// Each playback has a number, so that what an earlier one still reports is told apart.
class Player : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString source READ source NOTIFY sourceChanged)
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(double position READ position NOTIFY positionChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
    Q_PROPERTY(double speed READ speed WRITE setSpeed NOTIFY speedChanged)
    Q_PROPERTY(QVariantMap tags READ tags NOTIFY sourceChanged)
    Q_PROPERTY(QUrl cover READ cover NOTIFY sourceChanged)

public:
    enum State { Idle, Playing, Paused };
    Q_ENUM(State)

    explicit Player(QObject* parent = nullptr);
    ~Player() override;

    QString source() const { return path; }
    State state() const { return now; }
    double position() const { return double(position_ms); }
    double duration() const { return double(duration_ms); }
    double speed() const { return factor; }
    void setSpeed(double speed);
    /// "Name", "Artist" and "Album", as far as the file has them.
    QVariantMap tags() const { return album; }
    QUrl cover() const;

public Q_SLOTS:
    /// Makes a file the one to play, and reads what it says of itself. False if there is no sound in it.
    bool open(const QString& file);
    /// Plays, pauses and goes on.
    void toggle();
    void seek(double ms);
    void stop();

Q_SIGNALS:
    void sourceChanged();
    void stateChanged();
    void positionChanged();
    void durationChanged();
    void speedChanged();
    /// The file could not be played to its end.
    void failed();

private:
    static void announce(void* player);
    void fetch();
    void play();
    void setState(State state);
    void setPosition(qint64 ms);
    void setDuration(qint64 ms);
    void dropCover();

    QString path;
    State now = Idle;
    qint64 position_ms = 0;
    qint64 duration_ms = 0;
    double factor = 1;
    QVariantMap album;
    QString cover_file; ///< temporary, this object's own
    bool closing_for_pause = false;
    int reporting = 0;       ///< number of the playback whose events come in
    std::atomic<int> wanted; ///< number of the playback asked for last; read on the player's thread
};
