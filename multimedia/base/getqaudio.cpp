#include "multimedia/base/getqaudio.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/threadinfo.h"
#include "multimedia/base/warning.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtMultimedia/QAudioInput>

#include <chrono>
#include <cstring>

namespace multimedia {

namespace {
constexpr int kFrameSamples = 1024;
/// Between two reads that did not fill a frame: well below the 23 ms that a frame lasts at 44100 Hz.
constexpr std::chrono::milliseconds kReadInterval(5);

int exitEventType()
{
    static const int type = QEvent::registerEventType(1100);
    return type;
}

} // namespace

GetQaudio::GetQaudio(Params params)
    : params(std::move(params))
{}

GetQaudio::~GetQaudio()
{
    exit = true;
    // From here on no `init` begins; one that is under way has ended once its thread has run the lambda.
    QCoreApplication::removePostedEvents(this);
    runOnThreadOf(*this, [this] {
        std::lock_guard lock(mutex);
        running = false;
        io = nullptr;
        delete std::exchange(audio_input, nullptr);
    });
    condition.notify_all();
    worker.reset();
}

void GetQaudio::start()
{
    std::lock_guard lock(mutex);
    running = true;
    if (worker)
        worker->start();
}

void GetQaudio::stop()
{
    const bool stopped = runOnThreadOf(*this, [this] {
        std::lock_guard lock(mutex);
        if (audio_input)
            audio_input->stop();
        io = nullptr;
        running = false;
    });
    if (!stopped) { // no thread, so no input
        std::lock_guard lock(mutex);
        running = false;
    }
    condition.notify_all();
}

void GetQaudio::customEvent(QEvent* event)
{
    if (event->type() == exitEventType())
        exit = true;
}

void GetQaudio::init()
{
    std::lock_guard lock(mutex);
    if (!running || audio_input) // stopped before it began, or begun already
        return;
    device = QAudioDeviceInfo::defaultInputDevice();
    if (device.isNull()) {
        warning("init", "error to find audio device");
        return;
    }
    format = wantedFormat();
    if (!device.isFormatSupported(format)) {
        format = device.nearestFormat(format);
        warning("init", "open nearestFormat audio device");
    }
    audio_input = new QAudioInput(device, format, this);
    buffer.setBuffer(&bytes);
    if (!buffer.isOpen() && !buffer.open(QIODevice::ReadWrite | QIODevice::Truncate)) {
        warning("init", "error to open audio device");
        return;
    }
    io = audio_input->start();
    if (!io) {
        warning("init", "error to open audio device");
        return;
    }
    worker = std::make_unique<Worker>([this] { return run(); });
    worker->start();
}

QAudioFormat GetQaudio::wantedFormat() const
{
    QAudioFormat wanted;
    wanted.setCodec(QStringLiteral("audio/pcm"));
    wanted.setSampleSize(params.sample_size);
    wanted.setByteOrder(QAudioFormat::LittleEndian);
    wanted.setSampleType(QAudioFormat::SignedInt);
    wanted.setSampleRate(params.sample_rate);
    wanted.setChannelCount(params.channels);
    return wanted;
}

bool GetQaudio::run()
{
    if (exit) {
        std::lock_guard lock(mutex);
        running = false;
        return false;
    }
    FrameHandle frame = makeFrame();
    if (!frame)
        warning("run", "error in alloc frame");
    if (frame && fillFrame(frame)) {
        params.on_frame(std::move(frame));
        std::lock_guard lock(mutex);
        return running;
    }
    BlockingSection blocking;
    std::unique_lock lock(mutex);
    condition.wait_for(lock, kReadInterval, [this] { return !running || exit; });
    return running;
}

FrameHandle GetQaudio::makeFrame() const
{
    FrameHandle frame = createFrame();
    if (!frame)
        return {};
    // The two enumerations number signed 16-bit integers alike.
    frame->format = av_get_sample_fmt(av_get_sample_fmt_name(AVSampleFormat(format.sampleType())));
    setChannelMask(*frame, defaultChannelMask(format.channelCount()));
    frame->nb_samples = kFrameSamples;
    frame->sample_rate = format.sampleRate();
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    return frame;
}

bool GetQaudio::fillFrame(FrameHandle& frame)
{
    std::lock_guard lock(mutex);
    const int size = frame->linesize[0];
    while (io && gathered.size() < size) {
        const QByteArray chunk = io->read(size - gathered.size());
        if (chunk.isEmpty())
            break;
        gathered += chunk;
    }
    if (gathered.size() < size)
        return false;
    std::memcpy(frame->data[0], gathered.constData(), size_t(size));
    gathered.clear();
    return true;
}

} // namespace multimedia
