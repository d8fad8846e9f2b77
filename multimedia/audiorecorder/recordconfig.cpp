#include "multimedia/audiorecorder/recordconfig.h"

RecordConfig::RecordConfig(QObject* parent)
    : QObject(parent)
{}

void RecordConfig::setInputDevice(const QString& inputDevice)
{
    if (m_inputDevice == inputDevice)
        return;
    m_inputDevice = inputDevice;
    Q_EMIT inputDeviceChanged(m_inputDevice);
}

void RecordConfig::setOutputDevice(const QString& outputDevice)
{
    if (m_outputDevice == outputDevice)
        return;
    m_outputDevice = outputDevice;
    Q_EMIT outputDeviceChanged(m_outputDevice);
}

void RecordConfig::setSampleRate(qlonglong sampleRate)
{
    if (m_sampleRate == sampleRate)
        return;
    m_sampleRate = sampleRate;
    Q_EMIT sampleRateChanged(m_sampleRate);
}

void RecordConfig::setChannels(int channels)
{
    if (m_channels == channels)
        return;
    m_channels = channels;
    Q_EMIT channelsChanged(m_channels);
}
