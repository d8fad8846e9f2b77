#pragma once

#include <QtCore/QByteArray>

#include <cstddef>
#include <cstdint>
#include <vector>

/// @file
/// Measures sound, in 16-bit samples of one channel.

namespace soundcheck {

using Samples = std::vector<int16_t>;

QByteArray bytesOf(const Samples& samples);
Samples samplesOf(const QByteArray& bytes);

/// A voice that holds one vowel: harmonics of `pitch_hz` under four formants.
Samples vowel(int sample_rate, double pitch_hz, double seconds);
Samples tone(int sample_rate, double frequency_hz, double seconds, double amplitude = 10000);

/// Fundamental of a steady sound between the two bounds, by autocorrelation of up to half a second from
/// `from`.
double pitch(const Samples& samples, int sample_rate, double lowest_hz, double highest_hz, std::size_t from);
/// Share of the sound's energy that lies at `frequency_hz`, 0 to 1.
double energyShare(const Samples& samples, int sample_rate, double frequency_hz);
/// Share of the tenths of a second, 0 to 1, whose energy lies at `frequency_hz`. A gap or a jump of the phase
/// spoils the one that it falls in.
double toneShare(const Samples& samples, int sample_rate, double frequency_hz);
/// Root mean square of the samples, 0 to 32768.
double rms(const Samples& samples);
/// The highest correlation, -1 to 1, of `part` with a stretch of `whole`, at any shift.
double bestCorrelation(const Samples& whole, const Samples& part);

} // namespace soundcheck
