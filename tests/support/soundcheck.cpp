#include "tests/support/soundcheck.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace soundcheck {

QByteArray bytesOf(const Samples& samples)
{
    return {reinterpret_cast<const char*>(samples.data()), int(samples.size() * sizeof(samples[0]))};
}

Samples samplesOf(const QByteArray& bytes)
{
    Samples samples(size_t(bytes.size()) / sizeof(int16_t));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(int16_t));
    return samples;
}

Samples vowel(int sample_rate, double pitch_hz, double seconds)
{
    Samples samples(size_t(sample_rate * seconds));
    for (size_t i = 0; i < samples.size(); ++i) {
        double value = 0;
        for (int harmonic = 1; harmonic * pitch_hz < sample_rate / 3.0; ++harmonic) {
            double gain = 0;
            for (const double formant : {700.0, 1200.0, 2600.0, 3300.0})
                gain += 1.0 / (1.0 + std::pow((harmonic * pitch_hz - formant) / 90.0, 2));
            value += gain / std::sqrt(harmonic) *
                     std::sin(2.0 * M_PI * harmonic * pitch_hz * double(i) / sample_rate);
        }
        samples[i] = int16_t(4000.0 * value);
    }
    return samples;
}

Samples tone(int sample_rate, double frequency_hz, double seconds, double amplitude)
{
    Samples samples(size_t(sample_rate * seconds));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] =
            int16_t(std::lround(amplitude * std::sin(2.0 * M_PI * frequency_hz * double(i) / sample_rate)));
    return samples;
}

double pitch(const Samples& samples, int sample_rate, double lowest_hz, double highest_hz, size_t from)
{
    const size_t length = std::min(size_t(sample_rate) / 2, samples.size() - std::min(from, samples.size()));
    const auto first = size_t(sample_rate / highest_hz);
    const auto last = size_t(sample_rate / lowest_hz);
    if (first < 2 || length < 2 * last)
        return 0;
    std::vector<double> correlation(last + 2);
    for (size_t lag = first - 1; lag <= last + 1; ++lag) {
        double product = 0;
        double energy = 1;
        double shifted_energy = 1;
        for (size_t i = from; i + lag < from + length; ++i) {
            product += double(samples[i]) * samples[i + lag];
            energy += double(samples[i]) * samples[i];
            shifted_energy += double(samples[i + lag]) * samples[i + lag];
        }
        correlation[lag] = product / std::sqrt(energy * shifted_energy);
    }
    const double best = *std::max_element(correlation.begin() + long(first), correlation.end() - 1);
    // The first peak that is nearly the highest: a later one is a multiple of the period.
    for (size_t lag = first; lag <= last; ++lag) {
        const double before = correlation[lag - 1];
        const double here = correlation[lag];
        const double after = correlation[lag + 1];
        if (here < 0.95 * best || here < before || here < after)
            continue;
        const double curvature = before - 2 * here + after;
        return sample_rate / (double(lag) + (curvature < 0 ? 0.5 * (before - after) / curvature : 0));
    }
    return 0;
}

double energyShare(const Samples& samples, int sample_rate, double frequency_hz)
{
    double energy = 1;
    double real = 0;
    double imaginary = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * M_PI * frequency_hz * double(i) / sample_rate;
        real += samples[i] * std::cos(phase);
        imaginary += samples[i] * std::sin(phase);
        energy += double(samples[i]) * samples[i];
    }
    return 2 * (real * real + imaginary * imaginary) / (energy * double(samples.size()));
}

double toneShare(const Samples& samples, int sample_rate, double frequency_hz)
{
    const long window = sample_rate / 10;
    const long windows = long(samples.size()) / window;
    int tones = 0;
    for (auto begin = samples.begin(); begin < samples.begin() + windows * window; begin += window)
        tones += energyShare({begin, begin + window}, sample_rate, frequency_hz) > 0.98;
    return windows > 0 ? double(tones) / double(windows) : 0;
}

double rms(const Samples& samples)
{
    double energy = 0;
    for (const int16_t sample : samples)
        energy += double(sample) * sample;
    return samples.empty() ? 0 : std::sqrt(energy / double(samples.size()));
}

namespace {

constexpr size_t kCoarse = 8;

/// The mean of each `kCoarse` samples.
Samples coarse(const Samples& samples)
{
    Samples means(samples.size() / kCoarse);
    for (size_t i = 0; i < means.size(); ++i) {
        int sum = 0;
        for (size_t k = 0; k < kCoarse; ++k)
            sum += samples[i * kCoarse + k];
        means[i] = int16_t(sum / int(kCoarse));
    }
    return means;
}

double correlation(const Samples& whole, size_t shift, const Samples& part)
{
    int64_t product = 0;
    int64_t energy = 0;
    int64_t part_energy = 0;
    for (size_t i = 0; i < part.size(); ++i) {
        product += int64_t(whole[shift + i]) * part[i];
        energy += int64_t(whole[shift + i]) * whole[shift + i];
        part_energy += int64_t(part[i]) * part[i];
    }
    return double(product) / std::sqrt(double(energy) * double(part_energy) + 1);
}

/// The best shift from `first` to `last` and the correlation there.
std::pair<size_t, double> best(const Samples& whole, const Samples& part, size_t first, size_t last)
{
    std::pair<size_t, double> found = {first, -1};
    for (size_t shift = first; shift <= last && shift + part.size() <= whole.size(); ++shift) {
        const double here = correlation(whole, shift, part);
        if (here > found.second)
            found = {shift, here};
    }
    return found;
}

} // namespace

double bestCorrelation(const Samples& whole, const Samples& part)
{
    const size_t near = best(coarse(whole), coarse(part), 0, whole.size()).first * kCoarse;
    return best(whole, part, near - std::min(near, 2 * kCoarse), near + 2 * kCoarse).second;
}

} // namespace soundcheck
