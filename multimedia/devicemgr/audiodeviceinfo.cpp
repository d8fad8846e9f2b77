#include "multimedia/devicemgr/audiodeviceinfo.h"

namespace DeviceManager {

void AudioDeviceInfo::setInputChannelCount(int inputChannelCount)
{
    if (m_inputChannelCount == inputChannelCount)
        return;
    m_inputChannelCount = inputChannelCount;
    Q_EMIT inputChannelCountChanged(m_inputChannelCount);
}

void AudioDeviceInfo::setOutputChannelCount(int outputChannelCount)
{
    if (m_outputChannelCount == outputChannelCount)
        return;
    m_outputChannelCount = outputChannelCount;
    Q_EMIT outputChannelCountChanged(m_outputChannelCount);
}

} // namespace DeviceManager
