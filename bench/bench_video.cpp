#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoclipthread.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "multimedia/videopreviewthread/videopreviewthread.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>

using namespace multimedia;

namespace {

constexpr int kClipStart_ms = 30'000;
constexpr int kClipEnd_ms = 90'000;
constexpr int kStripFrames = 30;
constexpr double kStripDuration_s = 600;

const QTemporaryDir* folder = nullptr;

QString path(const char* name)
{
    return folder->filePath(QString::fromLatin1(name));
}

bool ffmpeg(const QStringList& arguments)
{
    return QProcess::execute(QStringLiteral("ffmpeg"),
                             QStringList{QStringLiteral("-v"), QStringLiteral("error"),
                                         QStringLiteral("-nostdin"), QStringLiteral("-y")} +
                                 arguments) == 0;
}

/// Ten minutes of 1080p with sound: a minute of moving, noisy picture, ten times.
bool makeMedia()
{
    const QString minute = path("minute.mp4");
    return ffmpeg(QStringLiteral("-f lavfi -i testsrc2=s=1920x1080:r=25:d=60,noise=alls=12:allf=t "
                                 "-f lavfi -i sine=d=60:r=48000 -c:v libx264 -preset ultrafast -bf 2 -g 250 "
                                 "-b:v 8M -pix_fmt yuv420p -c:a aac")
                      .split(QLatin1Char(' ')) +
                  QStringList{minute}) &&
           ffmpeg({QStringLiteral("-stream_loop"), QStringLiteral("9"), QStringLiteral("-i"), minute,
                   QStringLiteral("-c"), QStringLiteral("copy"), path("long.mp4")});
}

double seconds(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

/// A minute of 1080p, with the time that the program takes for the same beside it.
void clip(benchmark::State& state)
{
    const QString source = path("long.mp4");
    double ours_s = 0;
    double theirs_s = 0;
    for ([[maybe_unused]] auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        VideoClipThread thread;
        thread.startClip(source, path("ours.mp4"), kClipStart_ms, kClipEnd_ms, true);
        const auto middle = std::chrono::steady_clock::now();
        if (!ffmpeg({QStringLiteral("-ss"), QString::number(kClipStart_ms / 1000), QStringLiteral("-to"),
                     QString::number(kClipEnd_ms / 1000), QStringLiteral("-i"), source, QStringLiteral("-c"),
                     QStringLiteral("copy"), path("theirs.mp4")}))
            state.SkipWithError("ffmpeg failed");
        ours_s += seconds(middle - begin);
        theirs_s += seconds(std::chrono::steady_clock::now() - middle);
        state.SetIterationTime(seconds(middle - begin));
    }
    state.counters["ffmpeg_s"] = benchmark::Counter(theirs_s, benchmark::Counter::kAvgIterations);
    state.counters["ratio_to_ffmpeg"] = ours_s / theirs_s;
}
BENCHMARK(clip)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

/// Decodes the key frames of the strip's times and nothing else.
bool decodeKeyFrames(AVFormatContext* context, int stream_index, AVCodecContext* codec)
{
    const PacketHandle packet = createPacket();
    const FrameHandle frame = createFrame();
    for (int i = 0; i < kStripFrames; ++i) {
        const double time_s = kStripDuration_s * i / (kStripFrames - 1);
        avcodec_flush_buffers(codec);
        if (av_seek_frame(context, -1, int64_t(time_s * AV_TIME_BASE), AVSEEK_FLAG_BACKWARD) < 0)
            return false;
        do {
            av_packet_unref(packet.get());
            if (av_read_frame(context, packet.get()) < 0)
                return false;
        } while (packet->stream_index != stream_index);
        avcodec_send_packet(codec, packet.get());
        avcodec_send_packet(codec, nullptr);
        if (avcodec_receive_frame(codec, frame.get()) != 0)
            return false;
    }
    return true;
}

/// The strip of a ten-minute file, with the bare decoding of its key frames beside it.
void strip(benchmark::State& state)
{
    VideoEditor::instance()->setImageFrameSize({120, 96});
    VideoEditor::instance()->setTotalGrabImageCount(kStripFrames);
    double ours_s = 0;
    double theirs_s = 0;
    for ([[maybe_unused]] auto _ : state) {
        VideoPreviewThread preview;
        InputPtr input;
        AVFormatContext* context = nullptr;
        AVCodecContext* decoder = nullptr;
        int stream_index = -1;
        if (!preview.load(path("long.mp4")) ||
            !VideoCapture::instance()->initFormat(&context, &stream_index,
                                                  path("long.mp4").toUtf8().constData()) ||
            !VideoCapture::instance()->initDecoder(context->streams[stream_index], &decoder)) {
            state.SkipWithError("file does not open");
            return;
        }
        input.reset(context);
        const CodecContextPtr codec(decoder);
        const auto begin = std::chrono::steady_clock::now();
        preview.fastPreview();
        const auto middle = std::chrono::steady_clock::now();
        if (!decodeKeyFrames(input.get(), stream_index, codec.get()))
            state.SkipWithError("key frames do not decode");
        ours_s += seconds(middle - begin);
        theirs_s += seconds(std::chrono::steady_clock::now() - middle);
        state.SetIterationTime(seconds(middle - begin));
    }
    state.counters["key_frames_s"] = benchmark::Counter(theirs_s, benchmark::Counter::kAvgIterations);
    state.counters["ratio_to_key_frames"] = ours_s / theirs_s;
}
BENCHMARK(strip)->UseManualTime()->Iterations(8)->Unit(benchmark::kMillisecond);

void videoSourceSize(benchmark::State& state)
{
    const QString file = path("long.mp4");
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(VideoCapture::instance()->videoSourceSize(file));
}
BENCHMARK(videoSourceSize)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("quillon.*=false"));
    av_log_set_level(AV_LOG_QUIET);
    benchmark::Initialize(&argc, argv);
    const QTemporaryDir media;
    folder = &media;
    const bool made = makeMedia();
    if (made)
        benchmark::RunSpecifiedBenchmarks();
    folder = nullptr;
    return made ? 0 : 1;
}
