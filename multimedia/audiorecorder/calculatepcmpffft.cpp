#include "multimedia/audiorecorder/calculatepcmpffft.h"

#include <QtCore/QtDebug>
#include <QtCore/QtMath>

#include <cmath>
#include <cstring>

namespace {

constexpr int kTopFrequency = 1200;
/// Bins are named by the default rate of a recording, whatever the present one.
constexpr double kSampleRate = 24000;
constexpr int kNyquistBin = Calculatepcmpffft::kBlockSamples / 2;
/// The first two bins hold the offset and the rumble of the room.
constexpr int kFirstBin = 2;
constexpr double kLogScale = 0.15;
/// Below it a bin never lowers a band that has a value.
constexpr double kFaint = 0.05;

float pcmToReal(qint16 sample)
{
    return float(sample) / 32768.0F;
}

} // namespace

Calculatepcmpffft::Calculatepcmpffft(QObject* parent)
    : QObject(parent)
    , m_window(kBlockSamples)
    , m_input(kBlockSamples)
    , m_output(kBlockSamples)
    , m_spectrum(kBlockSamples)
{}

void Calculatepcmpffft::init()
{
    calculateWindow();
}

void Calculatepcmpffft::calculateWindow()
{
    for (int i = 0; i < kBlockSamples; ++i)
        m_window[i] = float(0.5 * (1.0 - std::cos(2.0 * M_PI * i / (kBlockSamples - 1))));
}

void Calculatepcmpffft::calculateSpectrum(const QByteArray& buffer, int spectrumNum)
{
    if (buffer.size() < kBlockBytes || spectrumNum < 1 || spectrumNum > kTopFrequency) {
        qWarning("calculateSpectrum: %d bytes, %d bands", buffer.size(), spectrumNum);
        return;
    }
    m_spectrumNum = spectrumNum;
    m_bandWidth = kTopFrequency / spectrumNum;
    transform(buffer);

    QVariantList result;
    result.reserve(m_spectrumNum + 1);
    for (int i = 0; i <= m_spectrumNum; ++i)
        result.append(0.0);
    m_changed = false;
    mergeBins(result);
    if (m_changed || m_hadSignal)
        Q_EMIT calculationPcmFFFTComplete(result);
    m_hadSignal = m_changed;
}

void Calculatepcmpffft::transform(const QByteArray& buffer)
{
    for (int i = 0; i < kBlockSamples; ++i) {
        qint16 sample = 0;
        std::memcpy(&sample, buffer.constData() + size_t(i) * sizeof(sample), sizeof(sample));
        m_input[i] = pcmToReal(sample) * m_window[i];
    }
    m_fft.calculateFFT(m_output.data(), m_input.constData());
}

void Calculatepcmpffft::mergeBins(QVariantList& result)
{
    for (int i = kFirstBin; i <= kNyquistBin; ++i) {
        const double real = m_output[i];
        const double imaginary = i < kNyquistBin ? m_output[i + kNyquistBin] : 0.0;
        const double magnitude = std::sqrt(real * real + imaginary * imaginary);
        const double frequency = i * kSampleRate / kBlockSamples;
        const double amplitude = qBound(0.0, kLogScale * std::log(magnitude), 1.0);
        m_spectrum[i] = {frequency, amplitude};
        if (amplitude > 0 && frequency <= kTopFrequency)
            mergeFrequency(frequency, amplitude, result);
    }
}

void Calculatepcmpffft::mergeFrequency(double frequency, double amplitude, QVariantList& result)
{
    const int index = frequencyIndex(frequency);
    if (index < 0 || index >= m_spectrumNum)
        return;
    const float present = result[index].toFloat();
    if (present > 0 && amplitude > kFaint)
        result[index] = (present + amplitude) * 0.5;
    else if (!(present > 0) || amplitude > result[index].toDouble())
        result[index] = amplitude;
    m_changed = true;
}

int Calculatepcmpffft::frequencyIndex(double frequency) const
{
    return int(frequency / m_bandWidth);
}
