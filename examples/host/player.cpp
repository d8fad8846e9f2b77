#include "examples/host/player.h"

#include "multimedia/audioplayer/audioplayer.h"

#include <QtCore/QFile>

#include <utility>

Player::Player(QObject* parent)
    : QObject(parent)
    , wanted(0)
{
    AudioPlayer::instance()->regCallBack(announce, this);
}

Player::~Player()
{
    AudioPlayer* player = AudioPlayer::instance();
    player->deregCallBack();
    stop();
    // What is still queued there refers to this object.
    QMetaObject::invokeMethod(
        player, [] {}, Qt::BlockingQueuedConnection);
    dropCover();
}

QUrl Player::cover() const
{
    return cover_file.isEmpty() ? QUrl() : QUrl::fromLocalFile(cover_file);
}

bool Player::open(const QString& file)
{
    stop();
    dropCover();
    path = file;
    album = AudioPlayer::getAlbumInfo(file);
    cover_file = AudioPlayer::getCover(file);
    setPosition(0);
    setDuration(AudioPlayer::duration(file));
    Q_EMIT sourceChanged();
    return duration_ms > 0;
}

void Player::toggle()
{
    switch (now) {
    case Idle:
        play();
        break;
    case Playing:
        AudioPlayer::instance()->pause(true);
        setState(Paused);
        break;
    case Paused:
        AudioPlayer::instance()->pause(false);
        setState(Playing);
        break;
    }
}

void Player::play()
{
    if (path.isEmpty())
        return;
    AudioPlayer* player = AudioPlayer::instance();
    player->breakPlay(path, 0);
    const auto run = [this, player, number = ++wanted, file = path, from = position_ms] {
        if (number != wanted)
            return;
        QMetaObject::invokeMethod(
            this, [this, number] { reporting = number; }, Qt::QueuedConnection);
        player->play(file, from);
    };
    QMetaObject::invokeMethod(player, run, Qt::QueuedConnection);
    closing_for_pause = false;
    setState(Playing);
}

void Player::stop()
{
    ++wanted;
    AudioPlayer::instance()->breakPlay({}, 0);
    setState(Idle);
    setPosition(0);
}

void Player::seek(double ms)
{
    if (now != Idle)
        AudioPlayer::instance()->seekPos(qint64(ms));
    setPosition(qint64(ms));
}

void Player::setSpeed(double speed)
{
    if (qFuzzyCompare(factor, speed))
        return;
    factor = speed;
    AudioPlayer::instance()->setSpeed(speed);
    Q_EMIT speedChanged();
}

void Player::announce(void* player)
{
    auto* self = static_cast<Player*>(player);
    QMetaObject::invokeMethod(
        self, [self] { self->fetch(); }, Qt::QueuedConnection);
}

void Player::fetch()
{
    const AudioEvents event = AudioPlayer::instance()->audioEvent();
    if (reporting != wanted)
        return;
    switch (event.eventId) {
    case EventDuration:
        setDuration(event.info[QStringLiteral("Duration")].toLongLong());
        break;
    case EventProgress:
        if (now == Playing)
            setPosition(event.info[QStringLiteral("PlayTime")].toLongLong());
        break;
    case EventError:
        Q_EMIT failed();
        break;
    case EventPaused:
        closing_for_pause = true;
        break;
    case EventClosed:
        if (!std::exchange(closing_for_pause, false) && now == Playing) {
            setState(Idle);
            setPosition(0);
        }
        break;
    default:
        break;
    }
}

void Player::setState(State state)
{
    if (now == state)
        return;
    now = state;
    Q_EMIT stateChanged();
}

void Player::setPosition(qint64 ms)
{
    if (position_ms == ms)
        return;
    position_ms = ms;
    Q_EMIT positionChanged();
}

void Player::setDuration(qint64 ms)
{
    if (duration_ms == ms)
        return;
    duration_ms = ms;
    Q_EMIT durationChanged();
}

void Player::dropCover()
{
    if (!cover_file.isEmpty())
        QFile::remove(cover_file);
    cover_file.clear();
}
