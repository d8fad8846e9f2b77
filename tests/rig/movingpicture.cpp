// movingpicture [--beep] [SCREEN...]: fills the screens of the given indices (all, by default) with a picture
// that moves, and prints "ready" once it stands on each of them. README.md tells what is in the picture, and
// what the microphone hears of --beep.

#include <QtCore/QElapsedTimer>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>
#include <QtGui/QGuiApplication>
#include <QtGui/QPaintEvent>
#include <QtGui/QPainter>
#include <QtGui/QRasterWindow>
#include <QtGui/QScreen>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <memory>
#include <pulse/simple.h>
#include <thread>

namespace {

constexpr int frame_ms = 20;
constexpr int code_bits = 16;
constexpr int code_cell = 32;
constexpr QRect code_area(0, 0, code_bits* code_cell, code_cell);
constexpr QRect text_area(0, 48, 512, 64);
constexpr QRect field_area(0, 128, 256, 256);
constexpr int bar_top = 400;
constexpr int bar_width = 40;
constexpr int bar_step = 8;

class MovingPicture : public QRasterWindow
{
    Q_OBJECT

public:
    MovingPicture(QScreen* screen, int index);

    void showFrame(int number);

Q_SIGNALS:
    void painted();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QRect bar(int number) const;
    void paintCode(QPainter& painter) const;

    const int index;
    int frame = 0;
};

MovingPicture::MovingPicture(QScreen* screen, int index)
    : index(index)
{
    setScreen(screen);
    setFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
    setGeometry(screen->geometry());
}

/// Asks for a repaint of what differs between the frames only.
void MovingPicture::showFrame(int number)
{
    if (number == frame)
        return;
    update(bar(frame));
    frame = number;
    update(bar(frame));
    for (const QRect& area : {code_area, text_area, field_area})
        update(area);
}

QRect MovingPicture::bar(int number) const
{
    return {number * bar_step % width(), bar_top, bar_width, height() - bar_top};
}

void MovingPicture::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    for (const QRect& area : event->region())
        painter.fillRect(area, QColor(64, 64, 64));
    paintCode(painter);
    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setPixelSize(48);
    painter.setFont(font);
    painter.drawText(text_area, Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("%1: %2").arg(index).arg(frame));
    painter.fillRect(field_area, QColor::fromHsv(frame % 360, 255, 255));
    painter.fillRect(bar(frame), Qt::white);
    painter.end();
    Q_EMIT painted();
}

/// The frame number in binary, the highest bit first: a white cell is 1, a black one 0.
void MovingPicture::paintCode(QPainter& painter) const
{
    for (int bit = 0; bit < code_bits; ++bit) {
        const bool set = frame >> (code_bits - 1 - bit) & 1;
        painter.fillRect(bit * code_cell, 0, code_cell, code_cell, set ? Qt::white : Qt::black);
    }
}

/// Beeps into the microphone at each whole second of a clock.
class Beeper
{
public:
    explicit Beeper(const QElapsedTimer& clock)
        : clock(clock)
        , thread([this] { play(); })
    {}
    ~Beeper()
    {
        stopping = true;
        thread.join();
    }

private:
    static constexpr uint32_t rate = 48000;
    static constexpr int block = 480; // 10 ms
    static constexpr int beep_ms = 50;
    static constexpr double beep_hz = 2000;

    void play()
    {
        const pa_sample_spec format = {PA_SAMPLE_S16LE, rate, 1};
        // Enough for a machine that is busy: what has been missed is not made up for, since each block asks
        // anew when it will be heard.
        const pa_buffer_attr buffer = {UINT32_MAX, rate * 2 / 5, UINT32_MAX, UINT32_MAX, UINT32_MAX};
        int error = 0;
        const std::unique_ptr<pa_simple, void (*)(pa_simple*)> stream(
            pa_simple_new(nullptr, "movingpicture", PA_STREAM_PLAYBACK, "micbus", "beep", &format, nullptr,
                          &buffer, &error),
            [](pa_simple* open) {
                if (open)
                    pa_simple_free(open);
            });
        std::array<int16_t, block> samples = {};
        while (stream && !stopping) {
            const auto delay_us = int64_t(pa_simple_get_latency(stream.get(), &error));
            const int64_t heard_us = clock.nsecsElapsed() / 1000 + delay_us;
            for (int i = 0; i < block; ++i) {
                const int64_t phase_us = (heard_us + int64_t(i) * 1'000'000 / rate) % 1'000'000;
                samples[size_t(i)] =
                    phase_us < beep_ms * 1000
                        ? int16_t(20000 * std::sin(2 * M_PI * beep_hz * double(phase_us) / 1e6))
                        : int16_t(0);
            }
            if (pa_simple_write(stream.get(), samples.data(), sizeof samples, &error) < 0)
                return;
        }
    }

    const QElapsedTimer& clock;
    std::atomic<bool> stopping = false;
    std::thread thread;
};

QList<int> screenIndices(const QStringList& arguments, int count)
{
    QList<int> indices;
    for (const QString& argument : arguments) {
        bool is_number = false;
        const int index = argument.toInt(&is_number);
        if (!is_number || index < 0 || index >= count)
            return {};
        indices << index;
    }
    if (arguments.isEmpty()) {
        for (int index = 0; index < count; ++index)
            indices << index;
    }
    return indices;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    const QList<QScreen*> screens = QGuiApplication::screens();
    QStringList arguments = application.arguments().mid(1);
    const bool beeps = arguments.removeAll(QStringLiteral("--beep")) > 0;
    const QList<int> indices = screenIndices(arguments, screens.size());
    if (indices.isEmpty()) {
        QTextStream(stderr) << "movingpicture: the screens are numbered 0 to " << screens.size() - 1
                            << Qt::endl;
        return 2;
    }

    QObject owner;
    QList<MovingPicture*> pictures;
    int awaited = indices.size();
    for (const int index : indices) {
        auto* picture = new MovingPicture(screens.at(index), index);
        pictures << picture;
        QObject::connect(
            picture, &MovingPicture::painted, &owner,
            [&awaited, picture] {
                QObject::disconnect(picture, &MovingPicture::painted, nullptr, nullptr);
                if (--awaited == 0)
                    QTextStream(stdout) << "ready" << Qt::endl;
            },
            Qt::QueuedConnection);
        // Where programs may not place their windows.
        if (QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
            picture->showFullScreen();
        else
            picture->show();
    }

    QElapsedTimer clock;
    clock.start();
    const auto beeper = beeps ? std::make_unique<Beeper>(clock) : nullptr;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &owner, [&] {
        for (MovingPicture* picture : qAsConst(pictures))
            picture->showFrame(int(clock.elapsed() / frame_ms) % (1 << code_bits));
    });
    timer.start(frame_ms);
    const int status = QGuiApplication::exec();
    qDeleteAll(pictures);
    return status;
}

#include "movingpicture.moc"
