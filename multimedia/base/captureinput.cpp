#include "multimedia/base/captureinput.h"

#include "multimedia/base/screenlist.h"

#include <QtCore/QOperatingSystemVersion>
#include <QtGui/QGuiApplication>

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
    const QRect area = ScreenList::instance().devicePixels(video_index);
    if (area.isEmpty() || QGuiApplication::platformName() != QLatin1String("xcb"))
        return {};
    return {"x11grab",
            qgetenv("DISPLAY").toStdString(),
            {{"draw_mouse", "1"},
             {"framerate", std::to_string(frame_rate) + "/1"},
             {"grab_x", std::to_string(area.x())},
             {"grab_y", std::to_string(area.y())},
             {"video_size", std::to_string(area.width()) + "x" + std::to_string(area.height())}}};
}

} // namespace multimedia
