#include "multimedia/base/ffmpegversion.h"
#include "multimedia/mediahandler/cmediadecode.h"
#include "multimedia/mediahandler/cmediaencode.h"
#include "multimedia/mediahandler/cmediaoutput.h"
#include "multimedia/mediahandler/cmediaresample.h"
#include "multimedia/mediahandler/cmediascale.h"
#include "multimedia/mediahandler/cwavewriter.h"
#include "tests/support/files.h"
#include "tests/support/mediacheck.h"
#include "tests/support/soundcheck.h"

#include <QtTest/QtTest>

#include <array>

namespace {

constexpr int kRate = 24000;

using soundcheck::samplesOf;

void writePacket(AVPacket* packet, CMediaOutput* output)
{
    packet->stream_index = int(output->audioIndex());
    output->write(packet);
}

int packets = 0;
void countPacket(AVPacket*, CMediaOutput*)
{
    ++packets;
}

/// Mono frames of a 440 Hz tone.
void encodeTone(CMediaEncode& encoder, int frames, int frame_samples)
{
    const auto tone = soundcheck::tone(kRate, 440, double(frames) * frame_samples / kRate + 1);
    for (int i = 0; i < frames; ++i) {
        const multimedia::FrameHandle frame = multimedia::createFrame();
        frame->nb_samples = frame_samples;
        frame->format = AV_SAMPLE_FMT_FLTP;
        multimedia::setChannelMask(*frame, AV_CH_LAYOUT_MONO);
        QVERIFY(av_frame_get_buffer(frame.get(), 0) == 0);
        auto* data = reinterpret_cast<float*>(frame->data[0]);
        for (int k = 0; k < frame_samples; ++k)
            data[k] = float(tone[size_t(i) * size_t(frame_samples) + size_t(k)]) / 32768.0F;
        frame->pts = qint64(i) * frame_samples;
        QCOMPARE(encoder.encode(frame.get()), AVERROR(EAGAIN));
    }
}

int openAac(CMediaEncode& encoder)
{
    int frame_samples = 0;
    if (encoder.setEncodeId(AV_CODEC_ID_AAC) < 0)
        return 0;
    encoder.setEncodeAudioParam(128000, kRate, 1, AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_FLTP, frame_samples);
    return frame_samples;
}

QVariantMap pcmMap(const QByteArray& data, const QVariantMap& info)
{
    return {{"pcmData", data}, {"pcmInfo", info}};
}

const QVariantMap kInfo = {{"channels", 2}, {"sampleRate", 44100}, {"sampleFormat", "PCMFormatFloat32"}};

} // namespace

class TestMediaHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodeAudio_givesSpeech_ofEncodedFile();
    void decodeAudio_keepsFirstPlane_ofPlanarStereo();
    void decodeAudio_keepsFirstValues_ofInterleavedStereo();
    void decodeAudio_givesNothing_onBadInput();
    void decodeAudio_givesNothing_whenCancelled();
    void writeWaveFile_writesHeaderAndData();
    void writeWaveFile_keepsTail_ofLongerFile();
    void writeWaveFile_makesNoFile_whenKeyIsMissing();
    void transcodeToWave_isAcceptedByOthers();
    void encoder_writesAdtsFile();
    void encoder_flushes_whenSetUpAgain();
    void encoder_refuses_whatItCannotEncode();
    void output_fails_withoutFile();
    void output_keepsContainer_whenDiskIsFull();
    void resample_fails_withoutOptions();
    void scale_makesScaler_onFirstUse();

private:
    QTemporaryDir dir;
};

void TestMediaHandler::decodeAudio_givesSpeech_ofEncodedFile()
{
    CMediaDecode decode;
    const QByteArray pcm = decode.decodeAudio(media("speech.aac"));
    QCOMPARE(decode.audioInfo(), (QVariantMap{{"channels", 1},
                                              {"sampleRate", kRate},
                                              {"sampleFormat", "PCMFormatInt16"},
                                              {"interleaved", false}}));
    const auto decoded = samplesOf(pcm);
    const auto original = mediacheck::decodeAudio(media("speech.wav"), kRate);
    QVERIFY(qAbs(int(decoded.size()) - int(original.size())) < 3 * 1024);
    const soundcheck::Samples part(original.begin() + 24000, original.begin() + 36000);
    const soundcheck::Samples near(decoded.begin() + 22000, decoded.begin() + 40000);
    QVERIFY(soundcheck::bestCorrelation(near, part) > 0.99);
}

void TestMediaHandler::decodeAudio_keepsFirstPlane_ofPlanarStereo()
{
    CMediaDecode decode;
    const auto decoded = samplesOf(decode.decodeAudio(media("planar.m4a")));
    QCOMPARE(decode.audioInfo().value("sampleRate").toInt(), 32000);
    QVERIFY(qAbs(int(decoded.size()) - 32000) < 3 * 1024);
    QVERIFY(soundcheck::energyShare(decoded, 32000, 440) > 0.95);
}

void TestMediaHandler::decodeAudio_keepsFirstValues_ofInterleavedStereo()
{
    const QByteArray raw = contentOf(media("interleaved.wav")).right(32000 * 2 * 2);
    CMediaDecode decode;
    const QByteArray pcm = decode.decodeAudio(media("interleaved.flac"));
    QCOMPARE(pcm.size(), raw.size() / 2);
    // A frame of n samples gives n of its 2n values: as long as the first frame lasts, the file's own order.
    constexpr int kFirstFrameBytes = 2048;
    QCOMPARE(pcm.left(kFirstFrameBytes), raw.left(kFirstFrameBytes));
    QCOMPARE(pcm.mid(kFirstFrameBytes, kFirstFrameBytes), raw.mid(2 * kFirstFrameBytes, kFirstFrameBytes));
}

void TestMediaHandler::decodeAudio_givesNothing_onBadInput()
{
    // The first stands for the folder of the files, the playlist and the list name another file.
    for (const char* name : {"", "none.wav", "empty.wav", "truncated.wav", "silent.mp4", "corrupt.aac",
                             "playlist.aac", "list.wav", "http://127.0.0.1:1/speech.wav"}) {
        const QString path = qstrncmp(name, "http", 4) == 0 ? QString(name) : media(name);
        CMediaDecode decode;
        QVERIFY2(decode.decodeAudio(path).isEmpty(), name);
        QVERIFY2(!CWaveWriter::transcodeToWave(path, dir.filePath("bad.wav")), name);
        QVERIFY2(!QFile::exists(dir.filePath("bad.wav")), name);
    }
    QVERIFY(CMediaDecode().decodeAudio({}).isEmpty());
}

void TestMediaHandler::decodeAudio_givesNothing_whenCancelled()
{
    CMediaDecode decode;
    decode.cancelDecode();
    QVERIFY(decode.decodeAudio(media("speech.wav")).isEmpty());
}

void TestMediaHandler::writeWaveFile_writesHeaderAndData()
{
    const QString path = dir.filePath("exact.wav");
    const QByteArray data = QByteArray::fromHex("0102030405060708");
    QVERIFY(CWaveWriter::writeWaveFile(pcmMap(data, kInfo), path));
    const QByteArray header = QByteArray::fromHex("52494646 28000000 57415645 666d7420 10000000 0100 0200"
                                                  "44ac0000 10b10200 0400 1000 64617461 08000000");
    QCOMPARE(contentOf(path), header + data);
}

void TestMediaHandler::writeWaveFile_keepsTail_ofLongerFile()
{
    const QString path = dir.filePath("tail.wav");
    QVERIFY(CWaveWriter::writeWaveFile(pcmMap(QByteArray(100, 'a'), kInfo), path));
    QVERIFY(CWaveWriter::writeWaveFile(pcmMap(QByteArray(10, 'b'), kInfo), path));
    QCOMPARE(contentOf(path).mid(44), QByteArray(10, 'b') + QByteArray(90, 'a'));
}

void TestMediaHandler::writeWaveFile_makesNoFile_whenKeyIsMissing()
{
    const QString path = dir.filePath("missing.wav");
    QVERIFY(!CWaveWriter::writeWaveFile({}, path));
    QVERIFY(!CWaveWriter::writeWaveFile({{"pcmInfo", kInfo}}, path));
    for (const QString& key : kInfo.keys()) {
        QVariantMap info = kInfo;
        info.remove(key);
        QVERIFY2(!CWaveWriter::writeWaveFile(pcmMap("data", info), path), qPrintable(key));
    }
    QVERIFY(!QFile::exists(path));
    QVERIFY(!CWaveWriter::writeWaveFile(pcmMap("data", kInfo), dir.path() + "/none/a.wav"));
}

void TestMediaHandler::transcodeToWave_isAcceptedByOthers()
{
    const QString path = dir.filePath("speech.wav");
    QVERIFY(CWaveWriter::transcodeToWave(media("speech.aac"), path));
    const QJsonObject stream = mediacheck::stream(mediacheck::probe(path), "audio");
    QCOMPARE(stream["codec_name"].toString(), "pcm_s16le");
    QCOMPARE(stream["sample_rate"].toString(), QString::number(kRate));
    QCOMPARE(stream["channels"].toInt(), 1);
    QCOMPARE(mediacheck::decodeErrors(path), QString());
    QVERIFY(!mediacheck::output("sox", {path, "-t", "raw", "-"}).isEmpty());
}

void TestMediaHandler::encoder_writesAdtsFile()
{
    const QString path = dir.filePath("tone.aac");
    CMediaOutput output;
    QCOMPARE(output.setOutput(path), 0);
    CMediaEncode encoder;
    const int frame_samples = openAac(encoder);
    QCOMPARE(frame_samples, 1024);
    int index = -1;
    QCOMPARE(output.addStream(AV_CODEC_ID_AAC, index), 0);
    QCOMPARE(index, 0);
    output.setAudioIndex(unsigned(index));
    QCOMPARE(output.setParam(unsigned(index), encoder.getEncodeContex()), 0);
    QCOMPARE(output.setParam(7, encoder.getEncodeContex()), AVERROR(EINVAL));
    QCOMPARE(output.open(), 0);
    AVRational time_base = {};
    QCOMPARE(output.getTimeBase(index, time_base), 0);
    QVERIFY(time_base.den > 0);
    QCOMPARE(output.getTimeBase(1, time_base), -1);

    encoder.setEncodeCallback(writePacket, &output);
    encodeTone(encoder, 40, frame_samples);
    encoder.close();
    encoder.close();
    QCOMPARE(encoder.encode(nullptr), AVERROR(EINVAL));
    output.close();
    QCOMPARE(output.getOutputContext(), nullptr);
    QCOMPARE(output.audioIndex(), unsigned(-1));

    QCOMPARE(mediacheck::decodeErrors(path), QString());
    QCOMPARE(contentOf(path).left(2).toHex(), QByteArray("fff1"));
    const auto samples = mediacheck::decodeAudio(path, kRate);
    QVERIFY(soundcheck::energyShare(samples, kRate, 440) > 0.97);
}

void TestMediaHandler::encoder_flushes_whenSetUpAgain()
{
    CMediaEncode encoder;
    packets = 0;
    encoder.setEncodeCallback(countPacket, nullptr);
    const int frame_samples = openAac(encoder);
    encodeTone(encoder, 3, frame_samples);
    const int before = packets;
    QCOMPARE(openAac(encoder), frame_samples);
    QVERIFY(packets > before);
}

void TestMediaHandler::encoder_refuses_whatItCannotEncode()
{
    CMediaEncode encoder;
    int frame_samples = 0;
    const auto setUp = [&](int rate, int channels) {
        return encoder.setEncodeAudioParam(128000, rate, channels, AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_FLTP,
                                           frame_samples);
    };
    QCOMPARE(encoder.setEncodeId(AV_CODEC_ID_NONE), AVERROR(EINVAL));
    QCOMPARE(setUp(kRate, 1), AVERROR(EINVAL));
    QCOMPARE(encoder.setEncodeId(AV_CODEC_ID_AAC), 0);
    QCOMPARE(setUp(kRate, 2), AVERROR(EINVAL));
    QVERIFY(setUp(12345, 1) < 0);
    QCOMPARE(frame_samples, 0);
}

void TestMediaHandler::output_fails_withoutFile()
{
    for (const QString& path : {QString(), dir.filePath("a.unknown"), dir.filePath("none/a.aac")}) {
        CMediaOutput output;
        QCOMPARE(output.setOutput(path) < 0, path.isEmpty());
        int index = -1;
        QCOMPARE(output.addStream(AV_CODEC_ID_AAC, index) == 0, path.endsWith("aac"));
        QVERIFY2(output.open() < 0, qPrintable(path));
        const multimedia::PacketHandle packet = multimedia::createPacket();
        QCOMPARE(output.write(packet.get()), AVERROR(EINVAL));
        QCOMPARE(output.write(nullptr), AVERROR(EINVAL));
        output.close(); // of what is not open, it does nothing
        QCOMPARE(output.getOutputContext() != nullptr, path.endsWith("aac"));
    }
}

void TestMediaHandler::output_keepsContainer_whenDiskIsFull()
{
    const QString path = dir.filePath("full.aac");
    QVERIFY(QFile::link("/dev/full", path));
    CMediaOutput output;
    output.setOutput(path);
    CMediaEncode encoder;
    const int frame_samples = openAac(encoder);
    int index = -1;
    QCOMPARE(output.addStream(AV_CODEC_ID_AAC, index), 0);
    output.setAudioIndex(unsigned(index));
    output.setParam(unsigned(index), encoder.getEncodeContex());
    QCOMPARE(output.open(), 0);
    encoder.setEncodeCallback(writePacket, &output);
    encodeTone(encoder, 3, frame_samples);
    encoder.close();
    output.close();
    QVERIFY(output.getOutputContext());
    output.close();
}

void TestMediaHandler::resample_fails_withoutOptions()
{
    CMediaResample resample;
    QCOMPARE(resample.convert(nullptr, 0, nullptr, 0), -1);
    QVERIFY(resample.initOpt() < 0);
    QCOMPARE(resample.convert(nullptr, 0, nullptr, 0), -1);
}

void TestMediaHandler::scale_makesScaler_onFirstUse()
{
    CMediaScale scale;
    QCOMPARE(scale.preScale(), AVERROR_BUG);
    scale.setSrcOpt(AV_PIX_FMT_GRAY8, -1, 0);
    scale.setDestOpt(AV_PIX_FMT_GRAY8, 16, 8);
    QCOMPARE(scale.preScale(), AVERROR_BUG);
    scale.setSrcOpt(AV_PIX_FMT_GRAY8, 64, 32);
    scale.setDestOpt(AV_PIX_FMT_GRAY8, 16, 8);
    const QByteArray in(64 * 32, char(100));
    QByteArray out(16 * 8, '\0');
    const std::array<const uint8_t*, 4> source = {reinterpret_cast<const uint8_t*>(in.constData())};
    const std::array<uint8_t*, 4> target = {reinterpret_cast<uint8_t*>(out.data())};
    const std::array<int, 4> source_stride = {64};
    const std::array<int, 4> target_stride = {16};
    QCOMPARE(scale.scale(source.data(), source_stride.data(), 0, 32, target.data(), target_stride.data()), 8);
    QCOMPARE(out, QByteArray(16 * 8, char(100)));
}

QTEST_GUILESS_MAIN(TestMediaHandler)
#include "test_mediahandler.moc"
