#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>

#include <cstdint>
#include <vector>

/// Hears what is played into a sink of the rig.
class Monitor
{
public:
    static constexpr int kRateHz = 44100;

    /// What was heard, from the first sound to the last.
    struct Sound
    {
        double duration_s = 0;
        double frequency_hz = 0; ///< of a tone
        double longest_gap_s = 0;
    };

    /// Listens from the time this returns.
    explicit Monitor(const QString& sink = QStringLiteral("spk"));
    ~Monitor();
    Q_DISABLE_COPY(Monitor)

    /// Ends listening a little later than whatever was played before the call is heard.
    Sound stop();

private:
    void take();

    QProcess recorder;
    std::vector<int16_t> samples;
};
