#pragma once

#include "examples/host/files.h"
#include "examples/host/gifpage.h"
#include "examples/host/photo.h"
#include "examples/host/player.h"
#include "examples/host/screenpage.h"
#include "examples/host/videopage.h"

#include <memory>

class QQmlApplicationEngine;
class QQuickWindow;

/// The window, and the native objects that its QML drives the library through beside the library's own.
///
/// Main thread, inside a `QApplication`. One in a process, for its end lets go of the library.
class Host
{
public:
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Null if the QML cannot be loaded.
    QQuickWindow* window() const;

private:
    Files files;
    Player player;
    ScreenPage screen_page;
    Photo photo;
    VideoPage video_page;
    GifPage gif_page;
    std::unique_ptr<QQmlApplicationEngine> engine;
};
