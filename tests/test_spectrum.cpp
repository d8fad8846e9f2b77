#include "multimedia/audiorecorder/calculatepcmpffft.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/soundcheck.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>

namespace {

constexpr int kPoints = 2048;
constexpr unsigned kSeed = 20240611;

using soundcheck::bytesOf;
using soundcheck::Samples;

std::vector<std::complex<double>> slowTransform(const std::vector<double>& in)
{
    std::vector<std::complex<double>> bins(kPoints / 2 + 1);
    for (size_t k = 0; k < bins.size(); ++k) {
        for (size_t i = 0; i < in.size(); ++i)
            bins[k] += in[i] * std::polar(1.0, -2.0 * M_PI * double(k * i % kPoints) / kPoints);
    }
    return bins;
}

Samples noise(double amplitude)
{
    std::mt19937 random(kSeed);
    std::normal_distribution<double> value(0, amplitude);
    Samples samples(kPoints);
    std::generate(samples.begin(), samples.end(),
                  [&] { return int16_t(std::clamp(value(random), -32768.0, 32767.0)); });
    return samples;
}

/// The bands by the slow way.
std::vector<double> expectedBands(const Samples& samples, int bands)
{
    std::vector<double> windowed(kPoints);
    for (size_t i = 0; i < kPoints; ++i)
        windowed[i] = samples[i] / 32768.0 * 0.5 * (1 - std::cos(2 * M_PI * double(i) / 2047));
    const auto bins = slowTransform(windowed);
    std::vector<double> result(size_t(bands) + 1);
    const int band_width = 1200 / bands;
    for (size_t k = 2; k < bins.size() && double(k) * 24000 / kPoints <= 1200; ++k) {
        const double level = std::clamp(0.15 * std::log(std::abs(bins[k])), 0.0, 1.0);
        const auto band = size_t(double(k) * 24000 / kPoints / band_width);
        if (level <= 0 || band >= size_t(bands))
            continue;
        if (result[band] <= 0)
            result[band] = level;
        else
            result[band] = level > 0.05 ? (result[band] + level) / 2 : std::max(result[band], level);
    }
    return result;
}

} // namespace

class TestSpectrum : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void calculateSpectrum_agreesWithSlowTransform();
    void calculateSpectrum_tellsSilence_once();
    void calculateSpectrum_givesNothing_onBadInput();
};

void TestSpectrum::calculateSpectrum_agreesWithSlowTransform()
{
    constexpr double kSeconds = kPoints / 24000.0;
    for (const Samples& samples :
         {soundcheck::tone(24000, 440, kSeconds), soundcheck::tone(24000, 1000, kSeconds, 32767),
          soundcheck::tone(24000, 5000, kSeconds), noise(4000), noise(60)}) {
        for (const int bands : {1, 7, 58, 100, 1200}) {
            Calculatepcmpffft calculator;
            calculator.init();
            QVariantList result;
            connect(&calculator, &Calculatepcmpffft::calculationPcmFFFTComplete,
                    [&](const QVariantList& list) { result = list; });
            calculator.calculateSpectrum(bytesOf(samples), bands);
            const auto expected = expectedBands(samples, bands);
            if (result.isEmpty()) {
                QCOMPARE(*std::max_element(expected.begin(), expected.end()), 0.0);
                continue;
            }
            QCOMPARE(result.size(), bands + 1);
            for (int i = 0; i <= bands; ++i) {
                const InCase in_case("peak", *std::max_element(samples.begin(), samples.end()), i, "of",
                                     bands);
                QVERIFY(std::abs(result[i].toDouble() - expected[size_t(i)]) < 1e-3);
            }
        }
    }
}

void TestSpectrum::calculateSpectrum_tellsSilence_once()
{
    Calculatepcmpffft calculator;
    calculator.init();
    QSignalSpy lists(&calculator, &Calculatepcmpffft::calculationPcmFFFTComplete);
    const QByteArray sound = bytesOf(noise(4000));
    const QByteArray silence(sound.size(), '\0');
    calculator.calculateSpectrum(silence, 58);
    QCOMPARE(lists.count(), 0);
    for (int round = 0; round < 2; ++round) {
        lists.clear();
        calculator.calculateSpectrum(sound, 58);
        for (int i = 0; i < 3; ++i)
            calculator.calculateSpectrum(silence, 58);
        QCOMPARE(lists.count(), 2);
        const QVariantList last = lists.last().first().toList();
        QCOMPARE(last.size(), 59);
        QVERIFY(std::all_of(last.begin(), last.end(), [](const QVariant& value) { return value == 0.0; }));
    }
}

void TestSpectrum::calculateSpectrum_givesNothing_onBadInput()
{
    for (const auto& [bytes, bands] : {std::pair(0, 58), {4095, 58}, {4096, 0}, {4096, -1}, {4096, 1201}}) {
        Calculatepcmpffft calculator;
        calculator.init();
        QSignalSpy lists(&calculator, &Calculatepcmpffft::calculationPcmFFFTComplete);
        const LogCapture log;
        calculator.calculateSpectrum(bytesOf(noise(4000)).left(bytes), bands);
        QVERIFY2(lists.isEmpty(), qPrintable(QString("%1 bytes, %2 bands").arg(bytes).arg(bands)));
        QCOMPARE(log.count("calculateSpectrum"), 1);
    }
}

QTEST_GUILESS_MAIN(TestSpectrum)
#include "test_spectrum.moc"
