#include "multimedia/base/warning.h"

#include "multimedia/base/ffmpegversion.h"

extern "C" {
#include <libavutil/error.h>
}

#include <QtCore/QLoggingCategory>

#include <array>

namespace multimedia {

void registAll()
{
    registerFFmpeg();
}

void warning(std::string where, std::string what, int code)
{
    if (code == 0) {
        qWarning("[%s]:\t%s", where.c_str(), what.c_str());
        return;
    }
    std::array<char, 64> text = {};
    av_strerror(code, text.data(), text.size());
    qWarning("[%s]:\t%s\t%s", where.c_str(), what.c_str(), text.data());
}

} // namespace multimedia

std::string ffmpegErrorString(int code)
{
    std::array<char, 256> text = {};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

QLoggingCategory& MultimediaCategoryLogging()
{
    static QLoggingCategory category("quillon.multimedia");
    return category;
}
