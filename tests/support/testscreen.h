#pragma once

#include <QtCore/QTimer>
#include <QtGui/QGuiApplication>
#include <QtGui/QPainter>
#include <QtGui/QRasterWindow>
#include <QtGui/QScreen>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

/// Covers every screen of the private X server with a picture that tells where and when it was taken.
///
/// A field of cells, 64 logical pixels wide, each in a colour of its own; the lowest cells flicker, so that
/// every frame differs from the one before.
class TestScreen
{
public:
    static constexpr int kCell = 64;

    TestScreen()
    {
        const auto screens = QGuiApplication::screens();
        for (int i = 0; i < screens.size(); ++i) {
            windows.push_back(std::make_unique<Window>(i));
            windows.back()->setScreen(screens[i]);
            windows.back()->setFlag(Qt::BypassWindowManagerHint);
            windows.back()->setGeometry(screens[i]->geometry());
            windows.back()->show();
        }
        for (const auto& window : windows)
            shown = QTest::qWaitForWindowExposed(window.get()) && shown;
        timer.start(20);
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] {
            for (const auto& window : windows)
                window->advance();
        });
    }

    bool isShown() const { return shown; }

    /// Colour at a logical position of a screen, outside of its moving rows.
    static QColor colourAt(int screen, int x, int y)
    {
        return {40 * (x / kCell % 6) + 20, 40 * (y / kCell % 6) + 20, 200 * screen + 20};
    }

private:
    class Window : public QRasterWindow
    {
    public:
        explicit Window(int screen_index)
            : screen_index(screen_index)
        {}
        void advance()
        {
            ++tick;
            update(movingRows());
        }

    protected:
        void paintEvent(QPaintEvent* event) override
        {
            QPainter painter(this);
            for (int y = 0; y < height(); y += kCell)
                for (int x = 0; x < width(); x += kCell) {
                    if (event->rect().intersects({x, y, kCell, kCell}))
                        painter.fillRect(x, y, kCell, kCell, colourAt(screen_index, x, y));
                }
            painter.fillRect(movingRows(), Qt::black);
            painter.fillRect((tick * 16) % width(), movingRows().top(), kCell, kCell, Qt::white);
        }

    private:
        QRect movingRows() const { return {0, height() - kCell, width(), kCell}; }

        const int screen_index;
        int tick = 0;
    };

    std::vector<std::unique_ptr<Window>> windows;
    QTimer timer;
    bool shown = true;
};
