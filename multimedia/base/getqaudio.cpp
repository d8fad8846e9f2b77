#include "multimedia/base/getqaudio.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/soundend.h"
#include "multimedia/base/threadinfo.h"
#include "multimedia/base/warning.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtMultimedia/QAudioInput>

#include <cstring>
#include <utility>

namespace multimedia {

namespace {
constexpr int kFrameSamples = 1024;
/// Well below the 23 ms that a frame lasts at 44100 Hz.
constexpr int kReadInterval_ms = 10;

int exitEventType()
{
    static const int type = QEvent::registerEventType(1100);
    return type;
}

} // namespace

GetQaudio::GetQaudio(Params params)
    : params(std::move(params))
    , timer(this)
{
    timer.setTimerType(Qt::PreciseTimer);
    timer.setInterval(kReadInterval_ms);
    connect(&timer, &QTimer::timeout, this, [this] { run(); });
}

GetQaudio::~GetQaudio()
{
    exit = true;
    // From here on no `init` begins; one that is under way has ended once its thread has run the lambda.
    QCoreApplication::removePostedEvents(this);
    runOnThreadOf(*this, [this] {
        running = false;
        closeInput();
        delete std::exchange(audio_input, nullptr);
    });
}

void GetQaudio::start()
{
    running = true;
    runOnThreadOf(*this, [this] {
        if (io)
            timer.start();
    });
}

void GetQaudio::stop()
{
    running = false;
    runOnThreadOf(*this, [this] { closeInput(); });
}

void GetQaudio::customEvent(QEvent* event)
{
    if (event->type() == exitEventType())
        exit = true;
}

void GetQaudio::init()
{
    if (!running || audio_input) // stopped before it began, or begun already
        return;
    if (openInput())
        timer.start();
}

bool GetQaudio::openInput()
{
    device = QAudioDeviceInfo::defaultInputDevice();
    if (device.isNull()) {
        warning("init", "error to find audio device");
        return false;
    }
    presence = InputPresence(device);
    format = wantedFormat();
    if (!device.isFormatSupported(format)) {
        format = device.nearestFormat(format);
        warning("init", "open nearestFormat audio device");
    }
    audio_input = new QAudioInput(device, format, this);
    io = audio_input->start();
    soundHasOpened();
    if (!io)
        warning("init", "error to open audio device");
    return io;
}

/// The input itself stays for the destructor: to delete it runs the event loop, and with it what waits for
/// this thread to destroy the object.
void GetQaudio::closeInput()
{
    timer.stop();
    io.clear();
    if (!audio_input)
        return;
    audio_input->stop();
    soundHasClosed();
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

void GetQaudio::run()
{
    if (exit)
        running = false;
    if (!running) {
        closeInput();
        return;
    }
    if (!io || audio_input->error() == QAudio::FatalError || !presence.isThere()) {
        warning("run", "audio device " + device.deviceName().toStdString() + " is gone");
        closeInput();
        return;
    }
    while (fillFrame())
        params.on_frame(std::move(frame));
}

bool GetQaudio::fillFrame()
{
    if (!frame && !makeFrame()) {
        warning("run", "error in alloc frame");
        return false;
    }
    const int size = frame->linesize[0];
    while (io && gathered.size() < size) {
        const QByteArray chunk = io->read(size - gathered.size());
        if (chunk.isEmpty())
            return false;
        gathered += chunk;
    }
    if (gathered.size() < size)
        return false;
    std::memcpy(frame->data[0], gathered.constData(), size_t(size));
    gathered.clear();
    return true;
}

bool GetQaudio::makeFrame()
{
    FrameHandle made = createFrame();
    if (!made)
        return false;
    // The two enumerations number signed 16-bit integers alike.
    made->format = av_get_sample_fmt(av_get_sample_fmt_name(AVSampleFormat(format.sampleType())));
    setChannelMask(*made, defaultChannelMask(format.channelCount()));
    made->nb_samples = kFrameSamples;
    made->sample_rate = format.sampleRate();
    if (av_frame_get_buffer(made.get(), 0) < 0)
        return false;
    frame = std::move(made);
    return true;
}

} // namespace multimedia
