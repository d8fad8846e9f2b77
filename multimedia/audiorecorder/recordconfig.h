#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>
#include <QtCore/QString>

/// What a voice recording is made with. Read when a recording starts; GUI thread.
class MULTIMEDIA_EXPORT RecordConfig : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString inputDevice READ inputDevice WRITE setInputDevice NOTIFY inputDeviceChanged)
    Q_PROPERTY(QString outputDevice READ outputDevice WRITE setOutputDevice NOTIFY outputDeviceChanged)
    Q_PROPERTY(qlonglong sampleRate READ sampleRate WRITE setSampleRate NOTIFY sampleRateChanged)
    Q_PROPERTY(int channels READ channels WRITE setChannels NOTIFY channelsChanged)

public:
    explicit RecordConfig(QObject* parent = nullptr);

    /// A name as `QAudioDeviceInfo::deviceName` gives it, or "Default" for the system's choice.
    QString inputDevice() const { return m_inputDevice; }
    QString outputDevice() const { return m_outputDevice; }
    /// Hz.
    qlonglong sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    /// Bits.
    int pcmSampleSize() const { return 16; }

    void setInputDevice(const QString& inputDevice);
    void setOutputDevice(const QString& outputDevice);
    void setSampleRate(qlonglong sampleRate);
    void setChannels(int channels);

Q_SIGNALS:
    void inputDeviceChanged(QString inputDevice);
    void outputDeviceChanged(QString outputDevice);
    void sampleRateChanged(qlonglong sampleRate);
    void channelsChanged(int channels);

private:
    QString m_inputDevice = QStringLiteral("Default");
    QString m_outputDevice = QStringLiteral("Default");
    qlonglong m_sampleRate = 24000;
    int m_channels = 1;
};
