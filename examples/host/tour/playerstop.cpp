#include "examples/host/tour/tour.h"
#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/devicemgr/deviceinfo.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/multimediaprovider.h"

#include <QtCore/QElapsedTimer>

namespace {

/// Fetches the player's events on the main thread.
class Listener : public QObject
{
public:
    explicit Listener(Tour& tour)
        : tour(tour)
    {
        AudioPlayer::instance()->regCallBack(announce, this);
    }
    ~Listener() override { AudioPlayer::instance()->deregCallBack(); }

    bool closed = false;

private:
    static void announce(void* listener)
    {
        auto* self = static_cast<Listener*>(listener);
        QMetaObject::invokeMethod(
            self, [self] { self->fetch(); }, Qt::QueuedConnection);
    }

    void fetch()
    {
        const AudioEvents event = AudioPlayer::instance()->audioEvent();
        if (event.eventId == EventProgress)
            tour.showLive(
                QStringLiteral("at %1 ms").arg(event.info[QStringLiteral("PlayTime")].toLongLong(), 5));
        if (event.eventId == EventError)
            tour.fail(event.message);
        closed = closed || event.eventId == EventClosed;
    }

    Tour& tour;
};

void list(const Tour& tour, const QString& kind, const DeviceManager::DeviceModel& model)
{
    QStringList names;
    for (int row = 0; row < model.count(); ++row) {
        const auto* device =
            model.data(model.index(row), Qt::UserRole + 1).value<DeviceManager::DeviceInfo*>();
        names += device->description().isEmpty() ? device->deviceName() : device->description();
    }
    tour.say(QStringLiteral("%1 %2").arg(kind, -12).arg(names.isEmpty() ? QStringLiteral("none")
                                                                        : names.join(QStringLiteral(", "))));
}

void play(Tour& tour, const QString& file, double speed)
{
    Listener listener(tour);
    AudioPlayer* player = AudioPlayer::instance();
    player->setSpeed(speed);
    player->breakPlay(file, 0);
    QElapsedTimer clock;
    clock.start();
    QMetaObject::invokeMethod(player, "play", Qt::QueuedConnection, Q_ARG(QString, file),
                              Q_ARG(qlonglong, 0));
    if (tour.waitFor(QStringLiteral("the end of the playback"), [&] { return listener.closed; }))
        tour.say(QStringLiteral("%1 ms of sound at %2 times: played in %3 ms")
                     .arg(AudioPlayer::duration(file))
                     .arg(speed, 0, 'f', 1)
                     .arg(clock.elapsed()));
}

} // namespace

void deviceStop(Tour& tour)
{
    const DeviceManager::DeviceMgr& devices = *MultimediaProvider::instance().deviceMgr();
    tour.waitFor(QStringLiteral("the sound server's devices"),
                 [&] { return devices.audioInputModel()->count() > 0; });
    list(tour, QStringLiteral("microphones"), *devices.audioInputModel());
    list(tour, QStringLiteral("loudspeakers"), *devices.audioOutputModel());
    list(tour, QStringLiteral("cameras"), *devices.cameraModel());
    list(tour, QStringLiteral("screens"), *devices.screenModel());
}

void playerStop(Tour& tour)
{
    const QString file = tour.path(QStringLiteral("song.mp3"));
    if (!tour.make(file,
                   QStringLiteral("-f lavfi -i sine=frequency=440:duration=4 -f lavfi -i "
                                  "testsrc=size=200x200:duration=0.04 -map 0 -map 1 -frames:v 1 -c:v mjpeg "
                                  "-disposition:v attached_pic -metadata title=Tone -metadata artist=Tour "
                                  "-metadata album=Examples")))
        return;
    for (const double speed : {1.0, 1.5, 2.0})
        play(tour, file, speed);

    const QVariantMap album = AudioPlayer::getAlbumInfo(file);
    for (const char* key : {"Name", "Artist", "Album"})
        tour.say(
            QStringLiteral("%1 %2").arg(QLatin1String(key), -12).arg(album[QLatin1String(key)].toString()));
    tour.keep(AudioPlayer::getCover(file), QStringLiteral("song-cover.jpg"));
}
