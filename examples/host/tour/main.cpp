#include "examples/host/tour/mediatable.h"
#include "examples/host/tour/tour.h"
#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/multimediaprovider.h"

extern "C" {
#include <libavutil/log.h>
}

#include <QtCore/QLoggingCategory>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlEngine>

#include <cstdio>

namespace {

struct Stop
{
    const char* title;
    void (*visit)(Tour& tour);
};

constexpr Stop kStops[] = {
    {"Devices", deviceStop},        {"Screen recording", screenStop}, {"Voice messages", voiceStop},
    {"Speech to text", speechStop}, {"Playback", playerStop},         {"GIFs and conversion", convertStop},
    {"Videos", videoStop},          {"Pictures", pictureStop},
};

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: tour OUTPUT_FOLDER (inside tests/rig/with-desktop)\n");
        return 2;
    }
    // How much is logged in a process is its program's choice.
    av_log_set_level(AV_LOG_ERROR);
    QLoggingCategory::setFilterRules(QStringLiteral("quillon.multimedia.debug=false"));

    QQmlEngine engine;
    MultimediaProvider::registType(engine);

    bool good = true;
    {
        Tour tour(arguments[1], engine);
        for (const Stop& stop : kStops) {
            tour.say(QStringLiteral("\n== %1").arg(QLatin1String(stop.title)));
            stop.visit(tour);
        }
        tour.say(QStringLiteral("\nWhat was made, in %1:\n")
                     .arg(QDir::cleanPath(QDir(arguments[1]).absolutePath())));
        good = printMediaTable(tour.made()) && !tour.failed();
    }
    AudioPlayer::instance()->release();
    MultimediaProvider::unregist();
    return good ? 0 : 1;
}
