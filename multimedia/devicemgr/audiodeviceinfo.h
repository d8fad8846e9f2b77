#pragma once

#include "multimedia/devicemgr/deviceinfo.h"

namespace DeviceManager {

/// A microphone or a loudspeaker.
class MULTIMEDIA_EXPORT AudioDeviceInfo : public DeviceInfo
{
    Q_OBJECT
    Q_PROPERTY(int inputChannelCount READ inputChannelCount WRITE setInputChannelCount NOTIFY
                   inputChannelCountChanged)
    Q_PROPERTY(int outputChannelCount READ outputChannelCount WRITE setOutputChannelCount NOTIFY
                   outputChannelCountChanged)

public:
    using DeviceInfo::DeviceInfo;

    int inputChannelCount() const { return m_inputChannelCount; }
    int outputChannelCount() const { return m_outputChannelCount; }

public Q_SLOTS:
    void setInputChannelCount(int inputChannelCount);
    void setOutputChannelCount(int outputChannelCount);

Q_SIGNALS:
    void inputChannelCountChanged(int inputChannelCount);
    void outputChannelCountChanged(int outputChannelCount);

private:
    int m_inputChannelCount = 0;
    int m_outputChannelCount = 0;
};

} // namespace DeviceManager
