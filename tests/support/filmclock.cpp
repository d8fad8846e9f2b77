#include "tests/support/filmclock.h"

#include "tests/support/mediacheck.h"
#include "tests/support/paths.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sys/resource.h>

namespace filmclock {

namespace {

constexpr int kBits = 16;
constexpr int kCodes = 1 << kBits;
constexpr double kCode_s = 0.02;
constexpr double kFrame_s = 0.04;
constexpr int kSampleRate = 44100;
constexpr int kLoud = 3000;
/// Between two beeps nothing is heard for longer than this.
constexpr double kQuiet_s = 0.3;
/// Pictures so near to a beep tell how the picture lies to the clock.
constexpr double kNear_s = 0.6;

struct Picture
{
    double film_s = 0;
    double lag_s = 0; ///< of the film behind the clock that it shows
};

/// The pictures that show something new.
std::vector<Picture> pictures(const QString& recording)
{
    const std::vector<int> shown = codes(recording);
    std::vector<Picture> moving;
    int turns = 0; // of the clock, which starts anew after 22 minutes
    for (size_t i = 1; i < shown.size(); ++i) {
        const double film_s = double(i) * kFrame_s;
        if (shown[i] < shown[i - 1] - kCodes / 2)
            ++turns;
        if (shown[i] != shown[i - 1])
            moving.push_back({film_s, film_s - (shown[i] + double(turns) * kCodes) * kCode_s});
    }
    return moving;
}

} // namespace

void Player::operator()(QProcess* process) const
{
    process->kill();
    process->waitForFinished();
    delete process;
}

PlayerPtr play()
{
    PlayerPtr player(new QProcess);
    player->start(QLatin1String(kMovingPicture), {QStringLiteral("--beep")});
    if (!player->waitForStarted() || !player->waitForReadyRead(10'000))
        return nullptr;
    setpriority(PRIO_PROCESS, id_t(player->processId()), -10); // where it is allowed
    return player;
}

std::vector<int> codes(const QString& recording, double pixel_ratio)
{
    const int cell = qRound(32 * pixel_ratio);
    const QByteArray cells = mediacheck::output(
        QStringLiteral("ffmpeg"),
        {"-v", "error", "-i", recording, "-map", "0:v", "-vf",
         QStringLiteral("crop=%1:%2:0:0,scale=16:1:flags=area,format=gray").arg(kBits * cell).arg(cell), "-f",
         "rawvideo", "-"});
    std::vector<int> shown;
    for (int i = 0; (i + 1) * kBits <= cells.size(); ++i) {
        int code = 0;
        for (int bit = 0; bit < kBits; ++bit)
            code = 2 * code + (uchar(cells[i * kBits + bit]) > 128 ? 1 : 0);
        shown.push_back(code);
    }
    return shown;
}

std::vector<double> beeps(const QString& recording)
{
    const auto samples = mediacheck::decodeAudio(recording, kSampleRate);
    std::vector<double> onsets;
    double last_loud_s = -1;
    for (size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) < kLoud)
            continue;
        const double at_s = double(i) / kSampleRate;
        if (at_s - last_loud_s > kQuiet_s)
            onsets.push_back(at_s);
        last_loud_s = at_s;
    }
    return onsets;
}

std::vector<Offset> offsets(const QString& recording)
{
    const auto moving = pictures(recording);
    std::vector<Offset> found;
    for (const double beep_s : beeps(recording)) {
        std::vector<double> lags;
        for (const Picture& picture : moving) {
            if (std::abs(picture.film_s - beep_s) < kNear_s)
                lags.push_back(picture.lag_s);
        }
        if (lags.empty())
            continue;
        std::nth_element(lags.begin(), lags.begin() + std::ptrdiff_t(lags.size() / 2), lags.end());
        const double clock_s = beep_s - lags[lags.size() / 2];
        found.push_back({beep_s, clock_s - std::round(clock_s)});
    }
    return found;
}

double spread(const std::vector<Offset>& offsets)
{
    const auto less = [](const Offset& a, const Offset& b) { return a.offset_s < b.offset_s; };
    const auto [low, high] = std::minmax_element(offsets.begin(), offsets.end(), less);
    return offsets.empty() ? 0 : high->offset_s - low->offset_s;
}

} // namespace filmclock
