#pragma once

#include "multimedia/screenrecord/screenrecord.h"
#include "tests/support/threadexecutor.h"

#include <QtGui/QGuiApplication>
#include <QtTest/QtTest>

/// Records a part of the primary screen, and keeps its files until it goes.
class Recorder : public multimedia::ScreenRecord
{
public:
    static constexpr int kPatience_ms = 30'000;

    explicit Recorder(const QRect& part, bool is_mute = false)
        : finished(this, &ScreenRecord::fileChanged)
    {
        setScreen(QGuiApplication::primaryScreen());
        setRect(part);
        setIsMute(is_mute || !kQueuedCallsAreSeen); // a microphone lives by them
    }
    ~Recorder() override
    {
        for (const QList<QVariant>& arguments : finished)
            QFile::remove(arguments[0].toString());
    }

    /// Gives the command and waits until the way has ended there.
    bool reach(void (ScreenRecord::*command)(), State end)
    {
        (this->*command)();
        return QTest::qWaitFor([this, end] { return getState() == end; }, kPatience_ms);
    }
    bool begin() { return reach(&ScreenRecord::start, Running); }
    /// Waits until the recording has ended, too, if it does so by itself. Its file; empty without one.
    QString end(bool by_itself = false)
    {
        const int before = finished.size();
        if (!by_itself)
            stop();
        const bool told = QTest::qWaitFor([&] { return finished.size() > before; }, kPatience_ms);
        return told && getState() == Waiting ? finished.back()[0].toString() : QString();
    }

    /// Records for so long, which `recorded_s` tells then as it really was. Its file; empty without one.
    QString record(int duration_ms)
    {
        if (!begin())
            return {};
        QElapsedTimer clock;
        clock.start();
        QTest::qWait(duration_ms);
        recorded_s = double(clock.elapsed()) / 1000;
        return end();
    }

    double recorded_s = 0;
    QSignalSpy finished;
};

class SilentRecorder : public Recorder
{
public:
    explicit SilentRecorder(const QRect& part = QGuiApplication::primaryScreen()->geometry())
        : Recorder(part, true)
    {}
};
