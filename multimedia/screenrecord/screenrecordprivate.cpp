#include "multimedia/screenrecord/screenrecordprivate.h"

#include "multimedia/base/screenlist.h"
#include "multimedia/base/threadinfo.h"
#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/devicepixels.h"
#include "quillon/util.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QLoggingCategory>
#include <QtCore/QStandardPaths>
#include <QtCore/QThread>
#include <QtGui/QGuiApplication>

#include <algorithm>

namespace multimedia {

namespace {

constexpr int kVideoFrameRate = 25;
constexpr int kGifFrameRate = 10;
constexpr int kGifShorterSide = 1080;
constexpr int kSampleRate = 44100;
constexpr int kFrameSamples = 1024;
constexpr int kChannels = 2;
constexpr std::chrono::seconds kDrainTimeout(300);
/// How often a drain looks whether its source still lives.
constexpr std::chrono::milliseconds kSourceCheckInterval(100);

QSize gifSize(QSize size)
{
    const int shorter = std::min(size.width(), size.height());
    if (shorter <= kGifShorterSide)
        return size;
    const double factor = double(kGifShorterSide) / shorter;
    const QSize scaled(qRound(size.width() * factor), qRound(size.height() * factor));
    qDebug() << "scaled size:\t" << scaled;
    return scaled;
}

/// Without any device the list may hold one entry with no name.
bool hasMicrophone()
{
    const auto devices = QAudioDeviceInfo::availableDevices(QAudio::AudioInput);
    return std::any_of(devices.begin(), devices.end(),
                       [](const QAudioDeviceInfo& device) { return !device.deviceName().isEmpty(); });
}

} // namespace

const int ScreenRecordPrivate::kStateChangeEventType = QEvent::registerEventType(-1);

ScreenRecordPrivate::ScreenRecordPrivate(ScreenRecord* q)
    : q(q)
    , worker(std::make_unique<Worker>([this] { return run(); }))
{
    // Both belong to the main thread, where a recorder is made: what is asked for first on the pool would
    // live there.
    ScreenList::instance();
    hasMicrophone();
    if (qGuiApp)
        connect(qGuiApp, &QGuiApplication::screenRemoved, this, &ScreenRecordPrivate::clearRemovedScreen,
                Qt::DirectConnection);
}

ScreenRecordPrivate::~ScreenRecordPrivate()
{
    worker->stop();
}

void ScreenRecordPrivate::clearRemovedScreen(QScreen* removed)
{
    std::lock_guard lock(mutex);
    if (screen == removed)
        screen = nullptr;
    if (recorded_screen == removed)
        recorded_screen = nullptr;
}

void ScreenRecordPrivate::changeState(ScreenRecord::State to)
{
    if (to == ScreenRecord::Processing) {
        warning("changeState", "invalid state");
        return;
    }
    std::lock_guard lock(mutex);
    if (state == to || target == to)
        return;
    if (state != ScreenRecord::Processing)
        current = state;
    target = to;
    state = ScreenRecord::Processing;
    worker->start();
}

bool ScreenRecordPrivate::run()
{
    ScreenRecord::State position = ScreenRecord::Waiting;
    ScreenRecord::State destination = ScreenRecord::Waiting;
    {
        std::lock_guard lock(mutex);
        position = current;
        destination = target;
    }
    if (position != destination) // or it was taken back before this pass
        position = step(position, destination);

    std::lock_guard lock(mutex);
    current = position;
    if (current != target)
        return true;
    if (state == ScreenRecord::Processing) {
        state = current;
        QCoreApplication::postEvent(q, new QEvent(QEvent::Type(kStateChangeEventType)));
    }
    return false;
}

ScreenRecord::State ScreenRecordPrivate::step(ScreenRecord::State from, ScreenRecord::State destination)
{
    switch (from) {
    case ScreenRecord::Waiting:
        open();
        return ScreenRecord::Pausing;
    case ScreenRecord::Running:
        stop();
        return ScreenRecord::Pausing;
    case ScreenRecord::Pausing:
        if (destination == ScreenRecord::Waiting) {
            close();
            return ScreenRecord::Waiting;
        }
        start();
        return ScreenRecord::Running;
    default:
        warning("run", "unkown state");
        return from;
    }
}

void ScreenRecordPrivate::open()
{
    registAll();
    plan = makePlan();
    openOutput();
    openVideo();
    if (plan.has_sound)
        openAudio();
}

ScreenRecordPrivate::Plan ScreenRecordPrivate::makePlan()
{
    const bool has_microphone = hasMicrophone();
    std::lock_guard lock(mutex);
    if (!has_microphone)
        is_mute = true;
    Plan made;
    made.is_gif = is_gif;
    made.has_sound = !is_gif && !is_mute;
    made.frame_rate = is_gif ? kGifFrameRate : kVideoFrameRate;
    recorded_screen = screen;
    audio_end = 0; // the microphone runs from now on, and is not kept before the start
    audio_time_base = {0, 1};
    made.source = toDevicePixels(rect, ScreenList::instance().pixelRatio(screen));
    made.target = roundUpToEven(is_gif ? gifSize(made.source.size()) : made.source.size());
    return made;
}

void ScreenRecordPrivate::openOutput()
{
    FileInfo info;
    info.dir = QStandardPaths::writableLocation(QStandardPaths::TempLocation).toStdString();
    info.name = Util::instance()->createTmpId(32).toStdString();
    info.format = plan.is_gif ? "gif" : "mp4";
    format_out = std::make_unique<FormatOut>(FormatOut::Params{FormatOut::createFile(info)});

    Encode::Params video;
    video.on_packet = [this](PacketHandle packet) { onVideoPacket(std::move(packet)); };
    video.format = format_out->getFormat();
    video.is_video = true;
    video.codec_id = plan.is_gif ? AV_CODEC_ID_GIF : AV_CODEC_ID_H264;
    video.use_global_header = !plan.is_gif;
    video.pixel_format = AV_PIX_FMT_YUV420P;
    video.frame_rate = plan.frame_rate;
    video.width = plan.target.width();
    video.height = plan.target.height();
    encode = std::make_unique<Encode>(std::move(video));

    if (plan.has_sound) {
        Encode::Params audio;
        audio.on_packet = [this](PacketHandle packet) { onAudioPacket(std::move(packet)); };
        audio.format = format_out->getFormat();
        audio.codec_id = AV_CODEC_ID_AAC;
        audio.channel_layout = AV_CH_LAYOUT_STEREO;
        audio.sample_rate = kSampleRate;
        audio_encode = std::make_unique<Encode>(std::move(audio));
    }
    format_out->writeHeader(); // all streams exist now
}

void ScreenRecordPrivate::openVideo()
{
    Scale::Params scaled;
    scaled.on_frame = [this](FrameHandle frame) { encode->encode(std::move(frame)); };
    scaled.size = plan.target;
    // What the encoder chose, which for a GIF is not what was asked for.
    scaled.pixel_format = encode->getCodec() ? encode->getCodec()->pix_fmt : AV_PIX_FMT_YUV420P;
    scale = std::make_unique<Scale>(std::move(scaled));

    Crop::Params cropped;
    cropped.on_frame = [this](FrameHandle frame) { scale->scale(std::move(frame)); };
    cropped.rect = plan.source;
    crop = std::make_unique<Crop>(std::move(cropped));
    openCapture();
}

void ScreenRecordPrivate::openCapture()
{
    format_in.reset();
    decode.reset();
    FormatHandle capture = FormatIn::createVideo({plan.frame_rate, recordedIndex()});
    Decode::Params decoded;
    decoded.on_frame = [this](FrameHandle frame) { crop->crop(std::move(frame)); };
    decoded.format = capture.get();
    decoded.is_video = true;
    decode = std::make_unique<Decode>(std::move(decoded));

    FormatIn::Params source;
    source.on_video = [this](PacketHandle packet) { decode->decode(std::move(packet)); };
    source.format = std::move(capture);
    format_in = std::make_unique<FormatIn>(std::move(source));
    capture_idle_since = std::chrono::steady_clock::now();
}

/// Asked anew for each capture, since another screen may have taken the place of one that has gone.
int ScreenRecordPrivate::recordedIndex() const
{
    std::lock_guard lock(mutex);
    return getVideoIndex(recorded_screen);
}

void ScreenRecordPrivate::openAudio()
{
    Resample::Params resampled;
    resampled.on_frame = [this](FrameHandle frame) { audio_encode->encode(std::move(frame)); };
    resampled.nb_samples = kFrameSamples;
    resampled.channel_layout = AV_CH_LAYOUT_STEREO;
    resampled.sample_format = AV_SAMPLE_FMT_FLTP;
    resampled.sample_rate = kSampleRate;
    resample = std::make_unique<Resample>(std::move(resampled));

    GetQaudio::Params microphone;
    microphone.on_frame = [this](FrameHandle frame) { resample->resample(std::move(frame)); };
    microphone.sample_rate = kSampleRate;
    microphone.channels = kChannels;
    microphone.sample_format = AV_SAMPLE_FMT_S16;
    microphone.sample_size = 16;
    get_qaudio = std::make_unique<GetQaudio>(std::move(microphone));
    connect(this, &ScreenRecordPrivate::ToThread, get_qaudio.get(), &GetQaudio::init);
    multimedia::moveToThread(*get_qaudio);
    Q_EMIT ToThread();
}

void ScreenRecordPrivate::start()
{
    {
        std::lock_guard lock(mutex);
        last_pts = INT64_MAX;
        end_reached = false;
    }
    // A capture that was not read for a while hands out the frames that it owes for that time all at once.
    const std::chrono::milliseconds frame_time(1000 / plan.frame_rate);
    if (std::chrono::steady_clock::now() - capture_idle_since > frame_time)
        openCapture();
    running = true;
    start_time = std::chrono::steady_clock::now();
    format_in->start();
}

void ScreenRecordPrivate::onVideoPacket(PacketHandle packet)
{
    {
        std::lock_guard lock(mutex);
        if (!running && packet->pts >= last_pts) {
            end_reached = true;
            condition.notify_all();
            return;
        }
    }
    format_out->write(std::move(packet));
}

void ScreenRecordPrivate::onAudioPacket(PacketHandle packet)
{
    {
        std::lock_guard lock(mutex);
        if (!running && double(packet->pts) * av_q2d(audio_time_base) >= audio_end)
            return;
    }
    format_out->write(std::move(packet));
}

/// Whether a drain has anything to wait for: a capture, an encoder and a muxer that work, and a rectangle on
/// the screen.
bool ScreenRecordPrivate::videoCanCome() const
{
    const AVStream* captured = decode->getStream();
    return format_in->canDeliver() && captured && encode->getStream() &&
           encode->getStream()->time_base.num > 0 &&
           QRect(0, 0, captured->codecpar->width, captured->codecpar->height).contains(plan.source);
}

void ScreenRecordPrivate::stop()
{
    running = false;
    const auto elapsed = std::chrono::steady_clock::now() - start_time;
    const int64_t elapsed_ns = std::chrono::nanoseconds(elapsed).count();

    if (videoCanCome()) {
        const AVRational time_base = encode->getStream()->time_base;
        BlockingSection blocking;
        std::unique_lock lock(mutex);
        last_pts =
            av_rescale_rnd(elapsed_ns, time_base.den, int64_t(time_base.num) * 1'000'000'000, AV_ROUND_DOWN);
        if (!plan.is_gif)
            audio_end = double(last_pts) * time_base.num / time_base.den;
        if (plan.has_sound && audio_encode->getStream())
            audio_time_base = audio_encode->getStream()->time_base;
        // The sources go on meanwhile: it is their later frames that push the earlier ones through the
        // encoder.
        const auto deadline = std::chrono::steady_clock::now() + kDrainTimeout;
        while (!end_reached && videoCanCome() && std::chrono::steady_clock::now() < deadline)
            condition.wait_for(lock, kSourceCheckInterval);
        if (std::chrono::steady_clock::now() >= deadline)
            qCDebug(MultimediaCategoryLogging, "[%s]: timeout", "stop");
    }
    if (get_qaudio)
        get_qaudio->stop();
    format_in->stop();
    capture_idle_since = std::chrono::steady_clock::now();
}

void ScreenRecordPrivate::close()
{
    {
        std::lock_guard lock(mutex);
        file = format_out->getFormat() ? QString::fromUtf8(format_out->getFormat()->url) : QString();
    }
    // From source to sink, so that what is in a stage still reaches a living successor.
    format_in.reset();
    get_qaudio.reset();
    resample.reset();
    audio_encode.reset();
    decode.reset();
    crop.reset();
    scale.reset();
    encode.reset();
    format_out.reset();
}

void ScreenRecordPrivate::CloseThread()
{
    if (!thread)
        return;
    thread->quit();
    thread->wait();
}

} // namespace multimedia
