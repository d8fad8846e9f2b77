#include "multimedia/base/crop.h"
#include "multimedia/base/decode.h"
#include "multimedia/base/encode.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/formatin.h"
#include "multimedia/base/formatout.h"
#include "multimedia/base/resample.h"
#include "multimedia/base/scale.h"
#include "multimedia/base/warning.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/threadexecutor.h"

#include <QtTest/QtTest>

#include <array>
#include <atomic>

using namespace multimedia;

namespace {

FileInfo input(const char* name, const char* format)
{
    return {std::string(kMediaFolder) + "/" TEST_MEDIA, name, format};
}

FrameHandle pictureFrame(int width, int height, AVPixelFormat format)
{
    FrameHandle frame = createFrame();
    frame->width = width;
    frame->height = height;
    frame->format = format;
    av_frame_get_buffer(frame.get(), 0);
    return frame;
}

/// Mono, all samples alike.
FrameHandle soundFrame(int samples, int sample_rate, int16_t value)
{
    FrameHandle frame = createFrame();
    frame->nb_samples = samples;
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = sample_rate;
    setChannelMask(*frame, AV_CH_LAYOUT_MONO);
    av_frame_get_buffer(frame.get(), 0);
    std::fill_n(reinterpret_cast<int16_t*>(frame->data[0]), samples, value);
    return frame;
}

} // namespace

class TestStages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createFile_givesNullHandle_forBadInput();
    void copy_keepsEveryPacket();
    void formatIn_stops_andGoesOn();
    void inertStages_reportAndEnd();
    void formatOut_reportsAndEnds_withoutHeader();
    void decode_deliversEveryFrame_whenDestroyed();
    void encode_choosesFormat();
    void crop_movesToTheRectangle();
    void scale_convertsSizeAndFormat();
    void scale_losesFrames_thatItsScalerCannotRead();
    void resample_givesWholeFrames_andLosesNothing();

private:
    QTemporaryDir directory;
    std::string dir() const { return directory.path().toStdString(); }
};

void TestStages::createFile_givesNullHandle_forBadInput()
{
    LogCapture log;
    for (const char* name : {"missing", "empty", "truncated"})
        QVERIFY2(!FormatIn::createFile(input(name, "mp4")), name);
    QVERIFY(!FormatOut::createFile({dir(), "no", "suchmuxer"}));
    QCOMPARE(log.count("[createFile]:\terror in open file format\t"), 4);
}

void TestStages::copy_keepsEveryPacket()
{
    const QString target = directory.filePath("copy.mp4");
    writeFile(target, "old");
    {
        FormatHandle source = FormatIn::createFile(input("both", "mp4"));
        FormatHandle made = FormatOut::createFile({dir(), "copy", "mp4"});
        QVERIFY(source && made);
        QVERIFY(!QFile::exists(target));
        std::vector<AVRational> from;
        for (unsigned i = 0; i < source->nb_streams; ++i) {
            AVStream* stream = avformat_new_stream(made.get(), nullptr);
            avcodec_parameters_copy(stream->codecpar, source->streams[i]->codecpar);
            from.push_back(source->streams[i]->time_base);
        }
        FormatOut format_out({std::move(made)});
        format_out.writeHeader();
        format_out.writeHeader(); // the second one finds it written
        std::atomic<int> ends = 0;
        const auto copy = [&](PacketHandle packet) {
            if (!packet || !packet->data) {
                ++ends;
                return;
            }
            const auto index = size_t(packet->stream_index);
            av_packet_rescale_ts(packet.get(), from[index],
                                 format_out.getFormat()->streams[index]->time_base);
            format_out.write(std::move(packet));
        };
        {
            LogCapture log;
            MultimediaCategoryLogging().setEnabled(QtDebugMsg, true);
            FormatIn format_in({copy, copy, std::move(source)});
            format_in.start();
            QTRY_COMPARE(ends.load(), 2);
            QCOMPARE(log.count("[run]: end of format"), 1);
            MultimediaCategoryLogging().setEnabled(QtDebugMsg, false);
        }
        QCOMPARE(ends.load(), 2);
    }
    const QJsonObject before = mediacheck::probe(media("both.mp4"));
    const QJsonObject after = mediacheck::probe(target);
    for (const char* kind : {"video", "audio"})
        QCOMPARE(mediacheck::stream(after, kind)["nb_read_frames"],
                 mediacheck::stream(before, kind)["nb_read_frames"]);
    QCOMPARE(mediacheck::decodeErrors(target), QString());
}

void TestStages::formatIn_stops_andGoesOn()
{
    std::atomic<int> packets = 0;
    std::atomic<int> ends = 0;
    FormatIn* reader = nullptr;
    FormatIn format_in({[&](PacketHandle packet) {
                            if (!packet->data) {
                                ++ends;
                            } else if (++packets == 10) {
                                reader->stop();
                            }
                        },
                        {},
                        FormatIn::createFile(input("both", "mp4"))});
    reader = &format_in;
    QVERIFY(format_in.canDeliver());
    format_in.start();
    QTRY_COMPARE(packets.load(), 10);
    QTest::qWait(50); // long enough to read the rest, if it went on
    QCOMPARE(packets.load(), 10);
    format_in.start();
    QTRY_COMPARE(packets.load(), 50);
    QTRY_COMPARE(ends.load(), 1);
}

void TestStages::inertStages_reportAndEnd()
{
    LogCapture log;
    {
        FormatIn format_in({});
        format_in.start();
        QTRY_VERIFY(log.count("[run]:\tempty format") >= 2); // each pass says so, at its own pace
    }
    {
        Decode decode({{}, nullptr, true});
        QVERIFY(!decode.getCodec() && !decode.getStream());
    }
    QCOMPARE(log.count("[open]:\terror in find stream"), 1);
    QCOMPARE(log.count("[run]:\tempty decode"), 1);

    Encode::Params params;
    params.is_video = true;
    params.codec_id = 1'000'000;
    {
        Encode encode(params);
        QVERIFY(!encode.getCodec() && !encode.getStream());
        encode.encode(pictureFrame(16, 16, AV_PIX_FMT_YUV420P));
        QTRY_COMPARE(log.count("[run]:\tempty encode"), 1);
    }
    QCOMPARE(log.count("[openVideo]:\terror in find decoder"), 1);
    params.codec_id = AV_CODEC_ID_H264;
    Encode without_format(params);
    QCOMPARE(log.count("[openVideo]:\terror in open stream"), 1);
}

void TestStages::formatOut_reportsAndEnds_withoutHeader()
{
    LogCapture log;
    {
        FormatOut format_out({});
        format_out.writeHeader();
        QCOMPARE(log.count("[writeHeader]:\tempty format"), 1);
        format_out.write(createPacket());
        QTRY_VERIFY(log.count("[run]:\tempty format") >= 2);
    }
    {
        FormatOut format_out({FormatOut::createFile({dir(), "nostream", "mp4"})});
        format_out.writeHeader();
        QCOMPARE(log.count("[writeHeader]:\terror in write header\t"), 1);
    }
    QCOMPARE(log.count("trailer"), 0);
}

void TestStages::decode_deliversEveryFrame_whenDestroyed()
{
    FormatHandle source = FormatIn::createFile(input("both", "mp4"));
    AVFormatContext* format = source.get();
    std::vector<int> greys;
    {
        // Keeps the input open until the decoder has gone.
        FormatIn format_in({{}, {}, std::move(source)});
        Decode decode({[&](FrameHandle frame) { greys.push_back(frame->data[0][0]); }, format, true});
        QVERIFY(decode.open());
        std::vector<PacketHandle> packets;
        for (;;) {
            PacketHandle packet = createPacket();
            if (av_read_frame(format, packet.get()) < 0)
                break;
            if (packet->stream_index == decode.getStream()->index)
                decode.decode(std::move(packet));
        }
    }
    QCOMPARE(int(greys.size()), 50);
    for (size_t i = 0; i < greys.size(); ++i)
        QVERIFY2(std::abs(greys[i] - int(16 + 4 * i)) <= 2, qPrintable(QString::number(i)));
}

void TestStages::encode_choosesFormat()
{
    // The format asked for, and the one that is taken.
    for (const auto& [codec_id, wanted, chosen] :
         {std::tuple(int(AV_CODEC_ID_H264), int(AV_PIX_FMT_YUV444P), int(AV_PIX_FMT_YUV444P)),
          {AV_CODEC_ID_GIF, AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB8},
          {AV_CODEC_ID_AAC, -1, AV_SAMPLE_FMT_FLTP},
          {AV_CODEC_ID_AAC, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_FLTP}}) {
        const InCase in_case(codec_id, wanted);
        const FormatHandle made =
            FormatOut::createFile({dir(), "choice", codec_id == AV_CODEC_ID_GIF ? "gif" : "mp4"});
        Encode::Params params;
        params.format = made.get();
        params.is_video = codec_id != AV_CODEC_ID_AAC;
        params.codec_id = codec_id;
        params.pixel_format = wanted;
        params.sample_format = wanted;
        params.frame_rate = 10;
        params.width = 32;
        params.height = 32;
        params.channel_layout = AV_CH_LAYOUT_STEREO;
        params.sample_rate = 44100;
        params.options = {{"preset", "nonsense"}}; // audio never sees it, and a video encoder refuses it
        if (codec_id == AV_CODEC_ID_H264) {
            LogCapture log;
            QVERIFY(!Encode(params).getCodec());
            QCOMPARE(log.count("[openVideo]:\terror in open encode\t"), 1);
            params.options.clear();
        }
        const Encode encode(params);
        QVERIFY(encode.getCodec());
        const AVCodecContext& codec = *encode.getCodec();
        QCOMPARE(codec.flags & AV_CODEC_FLAG_GLOBAL_HEADER, 0);
        QCOMPARE(params.is_video ? int(codec.pix_fmt) : int(codec.sample_fmt), chosen);
    }
}

void TestStages::crop_movesToTheRectangle()
{
    for (const QRect& rect :
         {QRect(0, 0, 40, 30), QRect(3, 5, 7, 11), QRect(39, 29, 1, 1), QRect(1, 0, 40, 30),
          QRect(-1, 0, 10, 10), QRect(4000, 3000, 10, 10), QRect()}) {
        const InCase in_case(rect);
        LogCapture log;
        FrameHandle cropped;
        {
            Crop crop({[&](FrameHandle frame) { cropped = std::move(frame); }, rect});
            FrameHandle frame = pictureFrame(40, 30, AV_PIX_FMT_BGR0);
            for (int y = 0; y < 30; ++y)
                for (int x = 0; x < 40; ++x) {
                    frame->data[0][y * frame->linesize[0] + 4 * x] = uint8_t(x);
                    frame->data[0][y * frame->linesize[0] + 4 * x + 1] = uint8_t(y);
                }
            crop.crop(std::move(frame));
        }
        const bool fits = QRect(0, 0, 40, 30).contains(rect);
        QCOMPARE(bool(cropped), fits);
        QCOMPARE(log.count("[run]:\terror in crop\t"), fits ? 0 : 1);
        if (!fits)
            continue;
        QCOMPARE(QSize(cropped->width, cropped->height), rect.size());
        QCOMPARE(int(cropped->data[0][0]), rect.left());
        QCOMPARE(int(cropped->data[0][1]), rect.top());
    }
}

void TestStages::scale_convertsSizeAndFormat()
{
    // A size with a side open keeps the frame's.
    for (const QSize& size : {QSize(-1, -1), QSize(20, -1), QSize(20, 14), QSize(100, 80)}) {
        const InCase in_case(size);
        FrameHandle scaled;
        {
            Scale scale({[&](FrameHandle frame) { scaled = std::move(frame); }, size, AV_PIX_FMT_YUV420P});
            FrameHandle frame = pictureFrame(40, 30, AV_PIX_FMT_BGR0);
            memset(frame->data[0], 255, size_t(frame->linesize[0]) * 30);
            scale.scale(std::move(frame));
        }
        QVERIFY(scaled);
        QCOMPARE(QSize(scaled->width, scaled->height), size.isValid() ? size : QSize(40, 30));
        QCOMPARE(scaled->format, int(AV_PIX_FMT_YUV420P));
        QCOMPARE(int(scaled->data[0][scaled->width / 2]), 235); // white, in limited range
        QCOMPARE(int(scaled->data[1][0]), 128);
    }
}

void TestStages::scale_losesFrames_thatItsScalerCannotRead()
{
    LogCapture log;
    int delivered = 0;
    {
        Scale scale({[&](FrameHandle) { ++delivered; }, {20, 20}, AV_PIX_FMT_YUV420P});
        scale.scale(pictureFrame(40, 30, AV_PIX_FMT_BGR0));
        scale.scale(pictureFrame(80, 60, AV_PIX_FMT_BGR0));
        scale.scale(pictureFrame(39, 30, AV_PIX_FMT_BGR0));
        scale.scale(pictureFrame(40, 30, AV_PIX_FMT_GRAY8));
    }
    QCOMPARE(delivered, 2);
    QCOMPARE(log.count("[run]:\terror in scale"), 2);
}

void TestStages::resample_givesWholeFrames_andLosesNothing()
{
    constexpr int kFrames = 50;
    for (const std::array<int, 2> sound :
         {std::array{44100, 1024}, {44100, 480}, {44100, 5000}, {48000, 480}}) {
        const int rate = sound[0];
        const int samples = sound[1];
        const InCase in_case(rate, samples);
        const int expected = int(int64_t(kFrames) * samples * 44100 / rate);
        std::atomic<int> total = 0;
        std::atomic<int> frames = 0;
        std::atomic<bool> in_order = true;
        float last = -1; // passes only
        {
            Resample resample({[&](FrameHandle frame) {
                                   QCOMPARE(frame->format, int(AV_SAMPLE_FMT_FLTP));
                                   QCOMPARE(channelCount(*frame), 2);
                                   for (int i = 0; i < frame->nb_samples; ++i) {
                                       const float value = reinterpret_cast<const float*>(frame->data[1])[i];
                                       in_order = in_order && (rate != 44100 || value >= last);
                                       last = value;
                                   }
                                   ++frames;
                                   total += frame->nb_samples;
                               },
                               1024, AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP, 44100});
            // A ramp that climbs by one step a frame shows a lost or a doubled piece.
            for (int i = 0; i < kFrames; ++i) {
                resample.resample(soundFrame(samples, rate, int16_t(100 * i)));
                QTest::qWait(0); // let some of them come one by one
            }
            const int whole = (expected - 32) / 1024; // the filter of the resampler keeps a little
            QTRY_VERIFY(frames >= whole);
            QCOMPARE(total % 1024, 0);
            resample.takeAll();
            QTRY_VERIFY(std::abs(total - expected) <= 32);
        }
        QVERIFY(in_order);
    }
}

QTEST_GUILESS_MAIN(TestStages)
#include "test_stages.moc"
