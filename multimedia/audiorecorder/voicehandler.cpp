#include "multimedia/audiorecorder/voicehandler.h"

#include "multimedia/audiorecorder/pitchshifter.h"
#include "multimedia/audiorecorder/tremolo.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QtDebug>

#include <cstring>
#include <utility>

using multimedia::EffectEngine;

namespace {

constexpr float kHighPitch = 2.6F;
constexpr float kLowPitch = 0.5F;
/// The depth saturates at full depth.
constexpr multimedia::Tremolo::Settings kTremolo = {300.0F, 20.0F, 0.68F};

enum ChangerType { HighVoice = 1, LowVoice = 2, TremblingVoice = 3 };

} // namespace

/// Feeds the engine, on its stream thread; waits for data. This is what holds the engine to the capture's
/// speed.
int pcmreadcallback(VoiceHandler* handler, void* data, unsigned int datalen)
{
    return handler->readOriginalData(data, datalen);
}

/// Takes the changed sound, on the mixer thread: one sample a frame, of stereo the second channel, of mono
/// the mean of each pair.
int dspCallback(VoiceHandler* handler, const float* inbuffer, unsigned int length, int inchannels)
{
    QByteArray pcm;
    pcm.reserve(int(length * sizeof(qint16)));
    float previous = 0;
    unsigned position = 0;
    for (unsigned s = 0; s < length; ++s) {
        for (int c = 0; c < inchannels; ++c, ++position) {
            const float value = inbuffer[position];
            if (position % 2 == 0) {
                previous = value;
                continue;
            }
            int sample = int(value * 32768.0F);
            if (c == 0)
                sample = (qint16(int(previous * 32768.0F)) + qint16(sample)) / 2;
            const auto written = qint16(sample);
            pcm.append(reinterpret_cast<const char*>(&written), sizeof(written));
        }
    }
    handler->putHandledData(pcm);
    return EffectEngine::Ok;
}

VoiceHandler::VoiceHandler(QObject* parent)
    : QObject(parent)
{}

VoiceHandler::~VoiceHandler()
{
    clear();
}

void VoiceHandler::openHandler(int sampleRate, int channelNum, int pcmBitSize, int changerType)
{
    if (!finished())
        return;
    const EffectEngine::Stream stream = {sampleRate, channelNum, pcmBitSize};
    if (!EffectEngine::canPlay(stream)) {
        qWarning("openHandler: no engine for %d Hz, %d channels, %d bits", sampleRate, channelNum,
                 pcmBitSize);
        return;
    }
    m_engine = std::make_unique<EffectEngine>(
        [this](void* data, unsigned bytes) { return pcmreadcallback(this, data, bytes); },
        [this](const float* samples, unsigned frames, int channels) {
            dspCallback(this, samples, frames, channels);
        });
    addDsp(*m_engine, sampleRate, changerType);
    setState(HandlerRunning);
    if (!m_engine->start(stream)) {
        qWarning("openHandler: no thread for the engine");
        releaseSystem();
    }
}

void VoiceHandler::addDsp(EffectEngine& engine, int sampleRate, int changerType)
{
    switch (changerType) {
    case HighVoice:
        engine.addEffect(std::make_unique<multimedia::PitchShifter>(sampleRate, kHighPitch));
        return;
    case LowVoice:
        engine.addEffect(std::make_unique<multimedia::PitchShifter>(sampleRate, kLowPitch));
        return;
    case TremblingVoice:
        engine.addEffect(std::make_unique<multimedia::Tremolo>(sampleRate, kTremolo));
        return;
    default:
        return;
    }
}

void VoiceHandler::putOriginalData(const QByteArray& data)
{
    QMutexLocker lock(&m_mutex);
    m_original.append(data);
    m_changed.wakeAll();
}

/// After `closed` the engine is told to pull no more: it would play silence without end.
int VoiceHandler::readOriginalData(void* data, unsigned int len)
{
    QMutexLocker lock(&m_mutex);
    while (!takeOriginalData(data, len))
        m_changed.wait(&m_mutex);
    return m_state == HandlerFinished || m_closedSent ? EffectEngine::NotReady : EffectEngine::Ok;
}

bool VoiceHandler::getOriginalData(void* data, unsigned int len)
{
    QMutexLocker lock(&m_mutex);
    return takeOriginalData(data, len);
}

bool VoiceHandler::takeOriginalData(void* data, unsigned int len)
{
    if (m_state == HandlerDrained || m_state == HandlerFinished)
        return true;
    const auto have = unsigned(m_original.size());
    if (m_state == HandlerRunning && (have == 0 || have < len))
        return false;
    const unsigned taken = qMin(len, have);
    std::memcpy(data, m_original.constData(), taken);
    m_original.remove(0, int(taken));
    m_fedBytes += taken;
    if (m_state == HandlerDraining && m_original.isEmpty())
        m_state = HandlerDrained;
    return true;
}

void VoiceHandler::putHandledData(QByteArray& data)
{
    bool send = false;
    bool ended = false;
    {
        QMutexLocker lock(&m_mutex);
        if (m_state == HandlerFinished)
            return;
        const qint64 rest = m_fedBytes - m_handledBytes;
        send = rest > 0;
        const bool complete = data.size() >= rest;
        if (send) {
            if (data.size() > rest)
                data.truncate(int(rest));
            m_handledBytes += data.size();
        }
        ended = m_state == HandlerDrained && complete && !std::exchange(m_closedSent, true);
    }
    if (send)
        Q_EMIT dataHandled(data);
    if (ended)
        Q_EMIT closed();
}

bool VoiceHandler::hasOrginalData() const
{
    QMutexLocker lock(&m_mutex);
    return !m_original.isEmpty();
}

bool VoiceHandler::finished() const
{
    return handlerState() == HandlerFinished;
}

VoiceHandler::State VoiceHandler::handlerState() const
{
    QMutexLocker lock(&m_mutex);
    return m_state;
}

void VoiceHandler::setState(State state)
{
    QMutexLocker lock(&m_mutex);
    m_state = state;
    m_changed.wakeAll();
}

void VoiceHandler::close(bool immediately)
{
    const State state = handlerState();
    if (state == HandlerFinished)
        return;
    if (immediately)
        clear();
    else if (state == HandlerRunning)
        setState(HandlerDraining);
}

void VoiceHandler::clear()
{
    releaseSystem();
    QMutexLocker lock(&m_mutex);
    m_original.clear();
    m_fedBytes = 0;
    m_handledBytes = 0;
    m_closedSent = false;
}

void VoiceHandler::releaseSystem()
{
    setState(HandlerFinished);
    m_engine.reset();
}
