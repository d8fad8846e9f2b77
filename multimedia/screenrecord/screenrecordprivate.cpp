#include "multimedia/screenrecord/screenrecordprivate.h"

#include "multimedia/base/resultfile.h"
#include "multimedia/base/threadinfo.h"
#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/recordingfile.h"
#include "multimedia/screensource/devicepixels.h"
#include "quillon/util.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QLoggingCategory>
#include <QtCore/QStandardPaths>
#include <QtCore/QThread>
#include <QtGui/QGuiApplication>

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>

namespace multimedia {

namespace {

constexpr int kVideoFrameRate = 25;
constexpr int kGifFrameRate = 10;
constexpr int kGifShorterSide = 1080;
constexpr int kSampleRate = 44100;
constexpr int kFrameSamples = 1024;
constexpr int kChannels = 2;
/// Of raw pictures under way: some eight captured ones of 3840x2160.
constexpr std::size_t kPictureBytes = 256 << 20;
/// What a killed process may lose of its recording.
constexpr int64_t kFragment_us = 500'000;
/// How long one track may wait for the other in the muxer.
constexpr int64_t kInterleaving_us = 1'000'000;
/// More frames than any encoder holds back.
constexpr int kFlushFrames = 250;
/// A recording stopped at once has its first picture all the same.
constexpr std::chrono::seconds kFirstPicturePatience(1);

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

/// H.264, which everybody plays, or MPEG-4 where FFmpeg has no encoder for it.
int movieCodec()
{
    if (Encode::findEncoder(AV_CODEC_ID_H264))
        return AV_CODEC_ID_H264;
    warning("openVideo", "no H.264 encoder, MPEG-4 is recorded");
    return AV_CODEC_ID_MPEG4;
}

/// libx264 has a good quality by itself. The others would take a fixed rate of a small picture: they get
/// a tenth of a bit a pixel, which a screen looks well with.
std::unordered_map<std::string, std::string> movieOptions(int codec_id, const QSize& size)
{
    const AVCodec* encoder = Encode::findEncoder(codec_id);
    if (!encoder || QLatin1String(encoder->name) == QLatin1String("libx264"))
        return {};
    const int64_t bits = int64_t(size.width()) * size.height() * kVideoFrameRate / 10;
    return {{"b", std::to_string(std::max<int64_t>(bits, 1'000'000))}};
}

} // namespace

const int ScreenRecordPrivate::kStateChangeEventType = QEvent::registerEventType(-1);

ScreenRecordPrivate::ScreenRecordPrivate(ScreenRecord* q)
    : q(q)
    , budget(kPictureBytes)
    , worker(std::make_unique<Worker>([this] { return run(); }))
{
    // Both belong to the main thread, where a recorder is made: what is asked for first on the pool would
    // live there.
    watchDesktop();
    hasMicrophone();
    if (qGuiApp)
        connect(qGuiApp, &QGuiApplication::screenRemoved, this, &ScreenRecordPrivate::clearRemovedScreen,
                Qt::DirectConnection);
    process_end = std::make_unique<ProcessEnd>([this] {
        changeState(ScreenRecord::Waiting);
        worker->stop();
    });
}

ScreenRecordPrivate::~ScreenRecordPrivate()
{
    process_end.reset();
    worker->stop();
}

void ScreenRecordPrivate::clearRemovedScreen(QScreen* removed)
{
    {
        std::lock_guard lock(mutex);
        if (screen == removed)
            screen = nullptr;
        if (recorded_screen != removed)
            return;
        recorded_screen = nullptr;
    }
    changeState(ScreenRecord::Waiting);
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
    source_changed.notify_all();
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
        return open() ? ScreenRecord::Pausing : ScreenRecord::Waiting;
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

/// False when the screen cannot be had.
bool ScreenRecordPrivate::open()
{
    registAll();
    plan = makePlan();
    source = makeSource();
    if (!sourceIsReady()) {
        source.reset();
        tellOfFile({});
        changeState(ScreenRecord::Waiting);
        return false;
    }
    const QSize size = source->area().size();
    plan.target = roundUpToEven(plan.is_gif ? gifSize(size) : size);
    openOutput();
    openVideo();
    if (plan.has_sound)
        openAudio();
    return true;
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
    made.rect = rect;
    recorded_screen = screen;
    return made;
}

std::unique_ptr<ScreenSource> ScreenRecordPrivate::makeSource()
{
    ScreenSource::Params wanted;
    wanted.screen_index = [this] { return recordedIndex(); };
    wanted.rect = plan.rect;
    wanted.frame_rate = plan.frame_rate;
    wanted.admit = [this](AVBufferRef** picture) { return admit(picture); };
    wanted.on_frame = [this](FrameHandle frame) { crop->crop(std::move(frame)); };
    wanted.on_change = [this](ScreenSource::State next) { onSourceChange(next); };
    return createScreenSource(std::move(wanted));
}

/// Waits for the desktop's answer, as long as a recording is wanted.
bool ScreenRecordPrivate::sourceIsReady()
{
    BlockingSection blocking;
    std::unique_lock lock(mutex);
    source_changed.wait(lock, [this] {
        return source->state() != ScreenSource::State::Asking || target == ScreenRecord::Waiting;
    });
    return source->state() == ScreenSource::State::Ready;
}

void ScreenRecordPrivate::onSourceChange(ScreenSource::State next)
{
    if (next == ScreenSource::State::Ended)
        changeState(ScreenRecord::Waiting);
    std::lock_guard lock(mutex); // or whoever waits has looked, and does not wait yet
    source_changed.notify_all();
}

/// Asked anew for each capture, since another screen may have taken the place of one that has gone.
int ScreenRecordPrivate::recordedIndex() const
{
    std::lock_guard lock(mutex);
    return getVideoIndex(recorded_screen);
}

void ScreenRecordPrivate::openOutput()
{
    last_pts = INT64_MAX;
    audio_end = INT64_MAX;
    packets = 0;
    disk_is_full = false;
    FileInfo info;
    info.dir = QStandardPaths::writableLocation(QStandardPaths::TempLocation).toStdString();
    info.name = Util::instance()->createTmpId(32).toStdString();
    info.format = plan.is_gif ? "gif" : "mp4";
    plan.path = info.path();
    FormatOut::Params output;
    output.format = FormatOut::createFile(info);
    output.on_failure = [this] {
        disk_is_full = true;
        changeState(ScreenRecord::Waiting);
    };
    AVFormatContext* format = output.format.get();
    format_out = std::make_unique<FormatOut>(std::move(output));

    Encode::Params video;
    video.on_packet = [this](PacketHandle packet) { onVideoPacket(std::move(packet)); };
    video.format = format;
    video.is_video = true;
    video.codec_id = plan.is_gif ? int(AV_CODEC_ID_GIF) : movieCodec();
    if (!plan.is_gif) {
        video.options = movieOptions(video.codec_id, plan.target);
        video.color_space = AVCOL_SPC_BT709;
    }
    video.use_global_header = !plan.is_gif;
    video.pixel_format = AV_PIX_FMT_YUV420P;
    video.frame_rate = plan.frame_rate;
    video.width = plan.target.width();
    video.height = plan.target.height();
    encode = std::make_unique<Encode>(std::move(video));

    if (plan.has_sound) {
        Encode::Params audio;
        audio.on_packet = [this](PacketHandle packet) { onAudioPacket(std::move(packet)); };
        audio.format = format;
        audio.codec_id = AV_CODEC_ID_AAC;
        audio.channel_layout = AV_CH_LAYOUT_STEREO;
        audio.sample_rate = kSampleRate;
        audio_encode = std::make_unique<Encode>(std::move(audio));
    }
    if (format) {
        // While it runs the file is made of fragments, each written at once, so that what a killed process
        // leaves behind plays. The first one carries the edit list that the delay of the sound wants.
        av_opt_set(format->priv_data, "movflags", "default_base_moof+delay_moov", 0);
        av_opt_set_int(format->priv_data, "frag_duration", kFragment_us, 0);
        format->flush_packets = 1;
        format->max_interleave_delta = kInterleaving_us;
        makePrivateFile(plan.path);
    }
    format_out->writeHeader(); // all streams exist now
}

void ScreenRecordPrivate::openVideo()
{
    video_feed = std::make_unique<FrameFeed>([this](FrameHandle frame) { encode->encode(std::move(frame)); });
    pace = std::make_unique<Pace>(
        Pace::Params{[this](FrameHandle picture) { onTick(std::move(picture)); }, plan.frame_rate});

    Scale::Params scaled;
    scaled.on_frame = [this](FrameHandle frame) {
        for (AVBufferRef*& plane : frame->buf) {
            if (plane)
                budget.charge(&plane);
        }
        pace->take(std::move(frame));
    };
    scaled.size = plan.target;
    if (!plan.is_gif)
        scaled.color_space = AVCOL_SPC_BT709;
    // What the encoder chose, which for a GIF is not what was asked for.
    scaled.pixel_format = encode->getCodec() ? encode->getCodec()->pix_fmt : AV_PIX_FMT_YUV420P;
    scale = std::make_unique<Scale>(std::move(scaled));

    Crop::Params cropped;
    cropped.on_frame = [this](FrameHandle frame) { scale->scale(std::move(frame)); };
    cropped.rect = source->area();
    crop = std::make_unique<Crop>(std::move(cropped));
    source->open();
}

void ScreenRecordPrivate::openAudio()
{
    audio_feed =
        std::make_unique<FrameFeed>([this](FrameHandle frame) { audio_encode->encode(std::move(frame)); });
    Resample::Params resampled;
    resampled.on_frame = [this](FrameHandle frame) {
        if (canRecord())
            audio_feed->push(std::move(frame));
    };
    resampled.nb_samples = kFrameSamples;
    resampled.channel_layout = AV_CH_LAYOUT_STEREO;
    resampled.sample_format = AV_SAMPLE_FMT_FLTP;
    resampled.sample_rate = kSampleRate;
    resample = std::make_unique<Resample>(std::move(resampled));

    sound_pace = std::make_unique<SoundPace>(
        SoundPace::Params{[this](FrameHandle frame) { resample->resample(std::move(frame)); },
                          {AV_SAMPLE_FMT_S16, kSampleRate, AV_CH_LAYOUT_STEREO}});

    GetQaudio::Params microphone;
    microphone.on_frame = [this](FrameHandle frame) {
        sound_pace->take(std::move(frame), std::chrono::steady_clock::now());
    };
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
    pace->start();
    source->start();
    if (source->state() == ScreenSource::State::Ended) // and whoever started it again did not know
        changeState(ScreenRecord::Waiting);
}

/// Lets a picture that has just been captured into the graph, or says that it is to be left out.
bool ScreenRecordPrivate::admit(AVBufferRef** picture)
{
    const auto captured = std::chrono::steady_clock::now();
    if (!canRecord() || !budget.hasRoom((*picture)->size) || !pace->announce(captured))
        return false;
    if (sound_pace)
        sound_pace->start(*pace->zero());
    if (budget.charge(picture, [this, captured] { pace->forget(captured); }))
        return true;
    pace->forget(captured);
    return false;
}

void ScreenRecordPrivate::onTick(FrameHandle picture)
{
    if (sound_pace)
        sound_pace->advance(std::chrono::steady_clock::now());
    if (canRecord())
        video_feed->push(std::move(picture));
}

void ScreenRecordPrivate::onVideoPacket(PacketHandle packet)
{
    if (packet->pts >= last_pts) {
        end_reached = true;
        return;
    }
    ++packets;
    format_out->write(std::move(packet));
}

void ScreenRecordPrivate::onAudioPacket(PacketHandle packet)
{
    if (packet->pts >= audio_end)
        return;
    ++packets;
    format_out->write(std::move(packet));
}

/// Whether what comes can end in the file. What could not is not let in, so that nothing piles up.
bool ScreenRecordPrivate::canRecord() const
{
    return encode->getCodec() && (!plan.has_sound || audio_encode->getCodec()) && format_out->isWriting();
}

void ScreenRecordPrivate::stop()
{
    const auto now = std::chrono::steady_clock::now();
    // The sources go on meanwhile: what was captured until now is still on its way.
    if (!pace->finish(now, canRecord() && source->canDeliver() ? now + kFirstPicturePatience : now))
        qCDebug(MultimediaCategoryLogging, "[%s]: timeout", "stop");
    if (sound_pace) {
        // For good: sound ends with the first of the running periods.
        const auto zero = pace->zero();
        if (zero && canRecord() && audio_end == INT64_MAX) {
            const AVRational tick = {1, plan.frame_rate};
            audio_end = av_rescale_q(pace->ticks(), tick, audio_encode->getStream()->time_base);
            sound_pace->finish(
                *zero + std::chrono::nanoseconds(av_rescale_q(pace->ticks(), tick, {1, std::nano::den})));
        }
        get_qaudio->stop();
    }
    source->stop();
}

/// Has the encoder give out what it holds back: more of the last picture, of which nothing reaches the file.
void ScreenRecordPrivate::flushVideo()
{
    if (!canRecord())
        return;
    const AVRational tick = {1, plan.frame_rate};
    last_pts = av_rescale_q(pace->ticks(), tick, encode->getStream()->time_base);
    end_reached = false;
    for (int i = 0; i < kFlushFrames && !end_reached; ++i) {
        FrameHandle picture = pace->newest();
        if (!picture)
            return;
        video_feed->push(std::move(picture));
        video_feed->finish();
    }
}

void ScreenRecordPrivate::close()
{
    flushVideo();
    // From source to sink, so that what is in a stage still reaches a living successor.
    source.reset();
    get_qaudio.reset();
    sound_pace.reset();
    resample.reset();
    audio_feed.reset();
    audio_encode.reset();
    crop.reset();
    scale.reset();
    video_feed->close();
    pace.reset();
    encode.reset();
    video_feed.reset();
    format_out.reset();
    finishFile();
}

/// No file is better than one that does not play.
void ScreenRecordPrivate::finishFile()
{
    if (!plan.is_gif && packets > 0 && !disk_is_full) {
        const int code = putIndexInFront(plan.path, packets);
        if (code < 0) // it plays as it is
            warning("close", "error in put index in front", code);
    }
    QString finished = QString::fromStdString(plan.path);
    if (packets == 0 || !hasPicture(plan.path)) {
        QFile::remove(finished);
        finished.clear();
    }
    tellOfFile(finished);
}

void ScreenRecordPrivate::tellOfFile(const QString& finished)
{
    std::lock_guard lock(mutex);
    file = finished;
    ended.push_back(finished);
}

void ScreenRecordPrivate::CloseThread()
{
    if (!thread)
        return;
    thread->quit();
    thread->wait();
}

} // namespace multimedia
