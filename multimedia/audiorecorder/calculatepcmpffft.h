#pragma once

#include "multimedia/audiorecorder/frequencyspectrum.h"
#include "multimedia/fftreal/fftrealwrapper.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QVariantList>
#include <QtCore/QVector>

/// Turns blocks of speech into level bars for the low voice frequencies, 0 to 1200 Hz.
///
/// A block is 2048 samples of 16-bit mono PCM, Hann-windowed (F. J. Harris, "On the use of windows for
/// harmonic analysis with the discrete Fourier transform", 1978) and transformed; the logarithm of each bin's
/// magnitude becomes an amplitude of 0 to 1, and the bins of a band are merged into one value.
///
/// The object lives on a thread of its own, reached by queued calls: all members belong to that thread.
class Calculatepcmpffft : public QObject
{
    Q_OBJECT

public:
    static constexpr int kBlockSamples = FFTRealWrapper::kPoints;
    static constexpr int kBlockBytes = kBlockSamples * int(sizeof(qint16));

    explicit Calculatepcmpffft(QObject* parent = nullptr);

Q_SIGNALS:
    /// One value of 0 to 1 per band and a last one that is always 0. A block without signal gives an all-zero
    /// list when the block before it had signal, and no list otherwise.
    void calculationPcmFFFTComplete(QVariantList spectrumRet);

public Q_SLOTS:
    /// Calculates the window. To be called before the first block.
    void init();
    /// @param buffer       `kBlockBytes` bytes, samples in host byte order; fewer give nothing
    /// @param spectrumNum  bands wanted, 1 to 1200; another number gives nothing
    void calculateSpectrum(const QByteArray& buffer, int spectrumNum);

private:
    void calculateWindow();
    void transform(const QByteArray& buffer);
    void mergeBins(QVariantList& result);
    void mergeFrequency(double frequency, double amplitude, QVariantList& result);
    int frequencyIndex(double frequency) const;

    int m_bandWidth = 0; ///< Hz
    int m_spectrumNum = 0;
    bool m_hadSignal = false; ///< the last list emitted had content
    bool m_changed = false;   ///< the present block touched a band
    QVector<float> m_window;
    QVector<float> m_input;
    QVector<float> m_output;
    FFTRealWrapper m_fft;
    FrequencySpectrum m_spectrum;
};
