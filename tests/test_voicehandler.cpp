#include "multimedia/audiorecorder/voicehandler.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/soundcheck.h"

#include <QtTest/QtTest>

namespace {

constexpr int kRate = 24000;
constexpr int kUnchanged = 4;

using soundcheck::bytesOf;

/// A handler and what came out of it, by queued delivery as a recorder gets it.
struct Handled
{
    Handled()
    {
        QObject::connect(&handler, &VoiceHandler::dataHandled, &handler,
                         [this](const QByteArray& data) { output += data; });
        QObject::connect(&handler, &VoiceHandler::closed, &handler, [this] { ++ends; });
    }

    QByteArray output;
    int ends = 0;
    VoiceHandler handler;
};

} // namespace

class TestVoiceHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handler_passesVoice_inEveryBlockSize();
    void handler_givesAsMuchAsItGot_withEffect();
    void handler_givesSecondChannel_ofStereo();
    void close_doesNothing_whenNeverOpened();
    void openHandler_takesUpWhatWaits_andOpensAgain();
    void openHandler_staysFinished_onBadFormat();
};

void TestVoiceHandler::handler_passesVoice_inEveryBlockSize()
{
    soundcheck::Samples voice = soundcheck::vowel(kRate, 120, 0.3);
    voice[0] = -32768;
    voice[1] = 32767;
    const QByteArray input = bytesOf(voice);
    for (const int block : {2, 100, 960, 2400, 100000}) {
        Handled handled;
        handled.handler.openHandler(kRate, 1, 16, kUnchanged);
        QCOMPARE(handled.handler.handlerState(), VoiceHandler::HandlerRunning);
        for (int i = 0; i < input.size(); i += block)
            handled.handler.putOriginalData(input.mid(i, block));
        handled.handler.close(false);
        handled.handler.close(false);
        QTRY_COMPARE(handled.ends, 1);
        QVERIFY2(handled.output == input, qPrintable(QString("blocks of %1 bytes").arg(block)));
        QVERIFY(!handled.handler.hasOrginalData());
        handled.handler.close(true);
        QVERIFY(handled.handler.finished());
        QCoreApplication::processEvents();
        QCOMPARE(handled.ends, 1);
    }
}

void TestVoiceHandler::handler_givesAsMuchAsItGot_withEffect()
{
    for (const int type : {1, 2, 3}) {
        for (const int bytes : {0, 2, 960, 12346}) {
            const InCase in_case("effect", type, bytes);
            Handled handled;
            handled.handler.openHandler(kRate, 1, 16, type);
            const QByteArray input = bytesOf(soundcheck::vowel(kRate, 120, 1)).mid(100, bytes);
            handled.handler.putOriginalData(input);
            handled.handler.close(false);
            QTRY_COMPARE(handled.ends, 1);
            QCOMPARE(handled.output.size(), input.size());
            QVERIFY((handled.output != input) == (bytes > 0));
        }
    }
}

void TestVoiceHandler::handler_givesSecondChannel_ofStereo()
{
    soundcheck::Samples input;
    for (int16_t i = 0; i < 4800; ++i)
        input.insert(input.end(), {int16_t(1), i});
    Handled handled;
    handled.handler.openHandler(kRate, 2, 16, kUnchanged);
    handled.handler.putOriginalData(bytesOf(input));
    handled.handler.close(false);
    QTRY_COMPARE(handled.ends, 1);
    // One sample a frame, and silence up to the bytes that were fed.
    QCOMPARE(handled.output.size(), int(input.size() * 2));
    const soundcheck::Samples output = soundcheck::samplesOf(handled.output);
    for (size_t i = 0; i < output.size(); ++i)
        QCOMPARE(output[i], int16_t(i < 4800 ? i : 0));
}

void TestVoiceHandler::close_doesNothing_whenNeverOpened()
{
    Handled handled;
    handled.handler.putOriginalData("kept");
    handled.handler.close(false);
    handled.handler.close(true);
    QVERIFY(handled.handler.finished());
    QVERIFY(handled.handler.hasOrginalData());
    handled.handler.clear();
    QVERIFY(!handled.handler.hasOrginalData());
}

void TestVoiceHandler::openHandler_takesUpWhatWaits_andOpensAgain()
{
    Handled handled;
    for (int round = 1; round <= 3; ++round) {
        handled.output.clear();
        handled.handler.putOriginalData(QByteArray(3000, char(round)));
        handled.handler.openHandler(kRate, 1, 16, kUnchanged);
        handled.handler.close(false);
        QTRY_COMPARE(handled.ends, round);
        handled.handler.close(true);
        QCOMPARE(handled.output, QByteArray(3000, char(round)));
    }
}

void TestVoiceHandler::openHandler_staysFinished_onBadFormat()
{
    const LogCapture log;
    Handled handled;
    handled.handler.openHandler(kRate, 1, 8, 1);
    handled.handler.openHandler(0, 1, 16, 1);
    handled.handler.openHandler(kRate, 0, 16, 1);
    QVERIFY(handled.handler.finished());
    QCOMPARE(log.count("openHandler"), 3);
}

QTEST_GUILESS_MAIN(TestVoiceHandler)
#include "test_voicehandler.moc"
