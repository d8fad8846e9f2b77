#include "multimedia/base/captureinput.h"

#include <QtCore/QOperatingSystemVersion>
#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>

namespace multimedia {

CaptureInput captureInput(int frame_rate, int video_index)
{
    if (QOperatingSystemVersion::currentType() == QOperatingSystemVersion::MacOS)
        return avfoundationInput(frame_rate, video_index);
    return x11Input(frame_rate, video_index);
}

CaptureInput avfoundationInput(int frame_rate, int video_index)
{
    return {"avfoundation",
            std::to_string(video_index) + ":none",
            {{"capture_cursor", "1"},
             {"capture_mouse_clicks", "1"},
             {"framerate", std::to_string(frame_rate) + "/1"}}};
}

CaptureInput x11Input(int frame_rate, int video_index)
{
    const auto screens = QGuiApplication::screens();
    if (video_index < 0 || video_index >= screens.size())
        return {};
    // Qt scales the size of a screen by its pixel ratio, but leaves its corner where the server has it.
    const QScreen* screen = screens[video_index];
    const QPoint corner = screen->geometry().topLeft();
    const QSize size = screen->geometry().size() * screen->devicePixelRatio();
    return {"x11grab",
            qgetenv("DISPLAY").toStdString(),
            {{"draw_mouse", "1"},
             {"framerate", std::to_string(frame_rate) + "/1"},
             {"grab_x", std::to_string(corner.x())},
             {"grab_y", std::to_string(corner.y())},
             {"video_size", std::to_string(size.width()) + "x" + std::to_string(size.height())}}};
}

} // namespace multimedia
