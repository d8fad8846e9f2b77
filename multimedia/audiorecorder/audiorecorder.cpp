#include "multimedia/audiorecorder/audiorecorder.h"

#include "multimedia/audiorecorder/calculatepcmpffft.h"
#include "multimedia/audiorecorder/recordconfig.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/audiorecorder/voicehandler.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/soundend.h"
#include "multimedia/devicemgr/permission.h"

#include <QtCore/QtDebug>
#include <QtCore/QtMath>
#include <QtMultimedia/QAudioInput>

#include <array>
#include <limits>
#include <utility>

#include <sonic.h>
#include <speex/speex_preprocess.h>

namespace {

enum ChangerType { Unchanged = 0, HalfSpeed = 5, DoubleSpeed = 8 };

constexpr long long kBitRate = 384000;
constexpr int kSpeedBlockBytes = 4096;
/// Less than this at the end of a recording is not worth a frame.
constexpr int kNegligibleTailBytes = 100;
constexpr int kCalcThreadPatience_ms = 200;
/// Over three hours of any type at the default rate; `QByteArray` ends at 2 GiB.
constexpr int kMaxBytes = 1 << 30;
constexpr int kMaxSampleValues = 1000000;

void encodeAudioCallback(AVPacket* packet, CMediaOutput* output)
{
    if (!output)
        return;
    packet->stream_index = int(output->audioIndex());
    output->write(packet);
}

QAudioFormat wantedFormat(const RecordConfig& config)
{
    QAudioFormat format;
    format.setCodec(QStringLiteral("audio/pcm"));
    format.setSampleRate(int(qBound<qlonglong>(0, config.sampleRate(), std::numeric_limits<int>::max())));
    format.setChannelCount(config.channels());
    format.setSampleSize(config.pcmSampleSize());
    format.setSampleType(QAudioFormat::SignedInt);
    format.setByteOrder(QAudioFormat::LittleEndian);
    return format;
}

/// Without any device the system still lists one, of no name.
bool isDevice(const QAudioDeviceInfo& info)
{
    return !info.isNull() && !info.deviceName().isEmpty();
}

/// The device of that name, or the first one for an empty name; a null one if there is none.
QAudioDeviceInfo findInput(const QString& name)
{
    const auto devices = QAudioDeviceInfo::availableDevices(QAudio::AudioInput);
    for (const QAudioDeviceInfo& device : devices) {
        if (isDevice(device) && (name.isEmpty() || device.deviceName() == name))
            return device;
    }
    return {};
}

int bytesPerSample(const QAudioFormat& format)
{
    static const int bytes = format.sampleSize() / 8;
    return bytes;
}

} // namespace

void AudioRecorder::SpeexDeleter::operator()(SpeexPreprocessState_* state) const
{
    speex_preprocess_state_destroy(state);
}

void AudioRecorder::SonicDeleter::operator()(sonicStreamStruct* stream) const
{
    sonicDestroyStream(stream);
}

AudioRecorder::AudioRecorder(QObject* parent)
    : QObject(parent)
    , m_buffer(this)
{}

AudioRecorder::~AudioRecorder()
{
    end();
    if (!m_calcThread)
        return;
    m_calcThread->quit();
    if (!m_calcThread->wait(kCalcThreadPatience_ms)) {
        m_calcThread->terminate();
        m_calcThread->wait();
    }
}

void AudioRecorder::end()
{
    stopRecord(false);
    clearData();
    qDeleteAll(findChildren<QAudioInput*>()); // those that are to be deleted later, too
}

void AudioRecorder::setRecordPath(const QString& path)
{
    if (m_state != RECORDER_IDLE) {
        qWarning("setRecordPath: a recording is under way");
        return;
    }
    m_recordPath = path;
}

bool AudioRecorder::isChangeVoice() const
{
    return m_changerType != Unchanged && m_changerType != HalfSpeed && m_changerType != DoubleSpeed;
}

bool AudioRecorder::startRecord(RecordConfig* config, int changerType)
{
    if (!config || m_state != RECORDER_IDLE)
        return false;
    clearData();
    m_config = config;
    m_wanted = wantedFormat(*config);
    if (m_wanted.sampleRate() < 1 || m_wanted.channelCount() < 1) {
        qWarning("startRecord: %d Hz, %d channels", m_wanted.sampleRate(), m_wanted.channelCount());
        return false;
    }
    if (!openRecordDev())
        return false;
    m_changerType = changerType;
    openEncoder();
    if (m_changerType == HalfSpeed)
        initSnoic(0.5F);
    else if (m_changerType == DoubleSpeed)
        initSnoic(2.0F);
    m_output.open();
    openSpeex();
    if (isChangeVoice())
        openVoiceHandler();
    m_audioInput->start(&m_buffer);
    if (m_audioInput->error() != QAudio::NoError) {
        qWarning("startRecord: audio input error %d", m_audioInput->error());
        clearData();
        return false;
    }
    m_state = RECORDER_RECORDING;
    return true;
}

bool AudioRecorder::hasVisibleAudioInputDev(const QString& name, QAudioDeviceInfo& info)
{
    if (multimedia::checkVersion(10, 14) && !multimedia::requestAVCaptureDevicePermission(false))
        return false;
    info = findInput(name);
    if (isDevice(info))
        return true;
    // A microphone that was chosen and is gone must not let another room be recorded.
    if (!name.isEmpty() && name != QLatin1String("Default")) {
        qWarning("no audio input device %s", qUtf8Printable(name));
        return false;
    }
    info = QAudioDeviceInfo::defaultInputDevice();
    return isDevice(info);
}

bool AudioRecorder::hasVisibleAudioInputDev(const QString& name)
{
    if (!m_config) {
        qWarning("hasVisibleAudioInputDev: no configuration before the first recording");
        return false;
    }
    const QAudioDeviceInfo info = findInput(name);
    if (!isDevice(info))
        return false;
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite | QIODevice::Truncate);
    QAudioInput input(info, wantedFormat(*m_config));
    input.start(&buffer);
    const bool usable = input.error() == QAudio::NoError;
    input.stop();
    return usable;
}

bool AudioRecorder::openRecordDev()
{
    QAudioDeviceInfo info;
    if (!hasVisibleAudioInputDev(m_config->inputDevice(), info))
        return false;
    m_inputDevice = info;
    m_inputPresence = multimedia::InputPresence(info);
    const QAudioFormat format = info.isFormatSupported(m_wanted) ? m_wanted : info.nearestFormat(m_wanted);
    m_audioInput = new QAudioInput(info, format, this);
    multimedia::soundHasOpened();
    m_buffer.setBuffer(&m_capture);
    if (!m_buffer.isOpen() && !m_buffer.open(QIODevice::ReadWrite | QIODevice::Truncate))
        return false;
    connect(&m_buffer, SIGNAL(readyRead()), this, SLOT(readOriginalVoice()));
    return true;
}

void AudioRecorder::stopRecordDev()
{
    QAudioInput* input = std::exchange(m_audioInput, nullptr);
    if (!input)
        return;
    input->stop();
    multimedia::soundHasClosed();
    // Its destructor runs the event loop: the host must not get a word in amidst the end of a recording.
    input->deleteLater();
}

void AudioRecorder::openEncoder()
{
    initCalcFFFT();
    m_encoder.setEncodeId(AV_CODEC_ID_AAC);
    const QAudioFormat captured = m_audioInput->format();
    const uint64_t layout = multimedia::defaultChannelMask(captured.channelCount());
    m_encoder.setEncodeAudioParam(kBitRate, m_wanted.sampleRate(), m_wanted.channelCount(), layout,
                                  AV_SAMPLE_FMT_FLTP, m_frameSamples);
    m_encoder.setEncodeCallback(encodeAudioCallback, &m_output);

    // A file that could not be opened has left its container behind.
    m_output = CMediaOutput();
    m_output.setOutput(m_recordPath);
    int index = -1;
    m_output.addStream(AV_CODEC_ID_AAC, index);
    m_output.setAudioIndex(unsigned(index));
    m_output.setParam(unsigned(index), m_encoder.getEncodeContex());

    makeFrame(layout);
    m_resample.setSrcopt(qint64(layout), captured.sampleRate(), AV_SAMPLE_FMT_S16);
    m_resample.setDstopt(qint64(layout), captured.sampleRate(), AV_SAMPLE_FMT_FLTP);
    if (m_resample.initOpt() < 0)
        qWarning("init audio resample error");
}

/// Leaves no frame, and so nothing to encode, when the encoder did not open.
void AudioRecorder::makeFrame(unsigned long long layout)
{
    m_frame = multimedia::createFrame();
    if (!m_frame)
        return;
    m_frame->nb_samples = m_frameSamples;
    m_frame->format = AV_SAMPLE_FMT_FLTP;
    multimedia::setChannelMask(*m_frame, layout);
    if (av_frame_get_buffer(m_frame.get(), 0) < 0) {
        m_frame.reset();
        return;
    }
    const int samples = m_frameSamples * multimedia::channelCount(*m_frame);
    m_pcmFrameBytes = samples * int(sizeof(qint16));
    m_floatFrameBytes = samples * int(sizeof(float));
}

void AudioRecorder::openSpeex()
{
    if (m_frameSamples < 1)
        return;
    m_speex.reset(speex_preprocess_state_init(m_frameSamples, m_wanted.sampleRate()));
    if (!m_speex)
        return;
    const auto set = [this](int request, auto value) {
        speex_preprocess_ctl(m_speex.get(), request, &value);
    };
    set(SPEEX_PREPROCESS_SET_DENOISE, spx_int32_t(1));
    set(SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, spx_int32_t(-16));
    set(SPEEX_PREPROCESS_SET_AGC, spx_int32_t(1));
    set(SPEEX_PREPROCESS_SET_AGC_LEVEL, 8000.0F);
    set(SPEEX_PREPROCESS_SET_DEREVERB, spx_int32_t(0));
    set(SPEEX_PREPROCESS_SET_DEREVERB_DECAY, 0.0F);
    set(SPEEX_PREPROCESS_SET_DEREVERB_LEVEL, 0.0F);
}

void AudioRecorder::closeSpeex()
{
    m_speex.reset();
}

void AudioRecorder::openVoiceHandler()
{
    if (m_voiceHandler) {
        // A recording too short to open it has left its sound there.
        m_voiceHandler->clear();
        return;
    }
    m_voiceHandler = std::make_unique<VoiceHandler>(this);
    // On the mixer thread, which ends with its recording.
    connect(
        m_voiceHandler.get(), &VoiceHandler::dataHandled, this,
        [this](const QByteArray& data) {
            m_recording.post(m_recording.number(), this, [this, data] { readHandledVoice(data); });
        },
        Qt::DirectConnection);
    connect(
        m_voiceHandler.get(), &VoiceHandler::closed, this,
        [this] { m_recording.post(m_recording.number(), this, [this] { voiceHandlerClosed(); }); },
        Qt::DirectConnection);
}

void AudioRecorder::closeVoiceHandler(bool immediately)
{
    if (m_voiceHandler)
        m_voiceHandler->close(immediately);
}

void AudioRecorder::initSnoic(float speed)
{
    if (m_frameSamples > 0)
        m_sonic.reset(sonicCreateStream(m_wanted.sampleRate(), m_wanted.channelCount()));
    if (!m_sonic) {
        qWarning("initSnoic: no stream");
        return;
    }
    sonicSetSpeed(m_sonic.get(), speed);
    sonicSetPitch(m_sonic.get(), 1.0F);
    sonicSetRate(m_sonic.get(), 1.0F);
    sonicSetVolume(m_sonic.get(), 1.0F);
    sonicSetChordPitch(m_sonic.get(), 1);
    sonicSetQuality(m_sonic.get(), 1);
}

void AudioRecorder::clearSnoic()
{
    m_sonic.reset();
}

void AudioRecorder::initCalcFFFT()
{
    if (m_calcThread)
        return;
    m_calcThread = std::make_unique<QThread>();
    m_calcThread->setObjectName(QStringLiteral("calcute_pcm_ffft"));
    m_calc = std::make_unique<Calculatepcmpffft>();
    m_calc->moveToThread(m_calcThread.get());
    connect(m_calc.get(), &Calculatepcmpffft::calculationPcmFFFTComplete, this,
            &AudioRecorder::calcutedFFFTComplated, Qt::QueuedConnection);
    m_calcThread->start(QThread::InheritPriority);
    QMetaObject::invokeMethod(m_calc.get(), &Calculatepcmpffft::init, Qt::QueuedConnection);
}

bool AudioRecorder::stopRecord(bool isSave)
{
    if (m_state == RECORDER_IDLE)
        return true;
    // From the report of the tail: the stop under way sees to it, and asked again would report again.
    if (isSave && m_stopping)
        return false;
    if (m_audioInput && !canGoOn())
        m_captureRead = m_capture.size();
    stopRecordDev();
    if (!isSave) {
        m_stopping = false;
        m_state = RECORDER_IDLE;
        if (isChangeVoice())
            closeVoiceHandler(true);
        finish();
        return true;
    }
    m_stopping = true;
    readTailData();
    if (!std::exchange(m_stopping, false))
        return false;
    if (isChangeVoice() && m_voiceHandler) {
        m_state = RECORDER_CLOSING;
        if (m_voiceHandler->finished()) // too short for it to be opened: the recording is empty
            m_recording.post(m_recording.number(), this, [this] { voiceHandlerClosed(); });
        else
            closeVoiceHandler(false);
        return true;
    }
    m_state = RECORDER_IDLE;
    finish();
    notifyRecordInfo();
    return true;
}

void AudioRecorder::finish()
{
    closeEncoder();
    closeSpeex();
    clearSnoic();
}

void AudioRecorder::voiceHandlerClosed()
{
    if (m_state != RECORDER_CLOSING)
        return;
    closeVoiceHandler(true);
    m_state = RECORDER_IDLE;
    finish();
    notifyRecordInfo();
    Q_EMIT recordFinish();
}

void AudioRecorder::closeEncoder()
{
    disconnect(&m_buffer, SIGNAL(readyRead()), this, SLOT(readOriginalVoice()));
    m_buffer.close();
    m_encoder.close();
    m_output.close();
    m_resample.reset();
    m_frame.reset();
}

void AudioRecorder::clearData()
{
    stopRecordDev();
    if (isChangeVoice())
        closeVoiceHandler(true);
    finish();
    m_recording.end();
    m_captureRead = 0;
    m_pcmEncoded = 0;
    m_spectrumPos = 0;
    m_pts = 0;
    m_frameSamples = 0;
    m_floatFrameBytes = 0;
    m_pcmFrameBytes = 0;
    m_capture.clear();
    m_pcm.clear();
}

/// Whether what the input delivers still is the sound of the device that was opened. When that one vanishes
/// the sound server goes on with another.
bool AudioRecorder::canGoOn()
{
    if (m_capture.size() > kMaxBytes || m_pcm.size() > kMaxBytes) {
        qWarning("the recording is too long");
        return false;
    }
    if (m_inputPresence.isThere())
        return true;
    qWarning("audio input device %s is gone", qUtf8Printable(m_inputDevice.deviceName()));
    return false;
}

void AudioRecorder::readOriginalVoice()
{
    if (m_audioInput && !canGoOn()) {
        stopRecordDev();
        m_captureRead = m_capture.size();
        return;
    }
    // What a slot of the host may do to the recording is done during `encordData`: the bytes are taken
    // before.
    const int from = m_captureRead;
    if (m_changerType == HalfSpeed || m_changerType == DoubleSpeed) {
        if (changeSpeed())
            encordData();
    } else if (!isChangeVoice()) {
        m_captureRead = m_capture.size();
        m_pcm.append(m_capture.constData() + from, m_captureRead - from);
        encordData();
    } else if (m_voiceHandler) {
        m_captureRead = m_capture.size();
        m_voiceHandler->putOriginalData(m_capture.mid(from));
        if (m_capture.size() > m_wanted.sampleRate() && m_voiceHandler->finished())
            m_voiceHandler->openHandler(m_wanted.sampleRate(), m_wanted.channelCount(), m_wanted.sampleSize(),
                                        m_changerType);
    }
    if (m_audioInput)
        m_audioInput->resume();
}

/// What comes after the handler was closed belongs to an earlier recording.
void AudioRecorder::readHandledVoice(const QByteArray& data)
{
    if (!m_voiceHandler || m_voiceHandler->finished())
        return;
    m_pcm.append(data);
    encordData();
}

/// Right for one channel: with more, part of what the stream returns is lost.
bool AudioRecorder::changeSpeed()
{
    if (!m_sonic || m_capture.size() - m_captureRead < kSpeedBlockBytes)
        return false;
    const int samples = kSpeedBlockBytes / int(sizeof(qint16)) / m_wanted.channelCount();
    std::array<short, kSpeedBlockBytes / sizeof(short)> block = {};
    while (m_capture.size() - m_captureRead >= kSpeedBlockBytes) {
        std::copy_n(m_capture.constData() + m_captureRead, kSpeedBlockBytes,
                    reinterpret_cast<char*>(block.data()));
        sonicWriteShortToStream(m_sonic.get(), block.data(), samples);
        m_captureRead += kSpeedBlockBytes;
        int read = 0;
        while ((read = sonicReadShortFromStream(m_sonic.get(), block.data(), samples)) > 0)
            m_pcm.append(reinterpret_cast<const char*>(block.data()), read * int(sizeof(short)));
    }
    return true;
}

/// The tail that no `readyRead` has told of is appended as it is, rounded up to whole frames with silence,
/// and then read like any other sound: in a direct recording it is there twice.
void AudioRecorder::readTailData()
{
    const int left = m_capture.size() - m_captureRead;
    if (left <= kNegligibleTailBytes) {
        notifyRecordInfo();
        return;
    }
    m_pcm.append(m_capture.constData() + m_captureRead, left);
    if (m_pcmFrameBytes > 0)
        m_pcm.append(QByteArray((left / m_pcmFrameBytes + 1) * m_pcmFrameBytes - left, '\0'));
    readOriginalVoice();
}

void AudioRecorder::encordData()
{
    if (m_state == RECORDER_IDLE || !m_frame)
        return;
    const int size = m_pcm.size();
    int waiting = (size - m_pcmEncoded) / m_pcmFrameBytes;
    for (int done = 0; done < waiting; ++done, --waiting) {
        if (!encodeFrame(size))
            return;
    }
}

/// False when there is nothing to encode any more.
bool AudioRecorder::encodeFrame(int size)
{
    denoise(m_pcm.data() + m_pcmEncoded, m_pcmFrameBytes);
    if (size - m_pcmEncoded >= m_pcmFrameBytes)
        calcAmplitude(size);
    // The host has been told a duration meanwhile: it may have ended this recording and started another.
    if (!m_frame || m_pcm.size() - m_pcmEncoded < m_pcmFrameBytes)
        return false;

    auto* samples = reinterpret_cast<uint8_t*>(m_pcm.data()) + m_pcmEncoded;
    if (av_frame_make_writable(m_frame.get()) < 0)
        return false;
    if (m_resample.convert(m_frame->extended_data, m_frameSamples, &samples, m_frameSamples) < 0)
        av_samples_set_silence(m_frame->extended_data, 0, m_frameSamples, multimedia::channelCount(*m_frame),
                               AV_SAMPLE_FMT_FLTP);
    m_pts += m_frameSamples;
    m_frame->pts = m_pts;
    m_encoder.encode(m_frame.get());
    m_pcmEncoded += m_pcmFrameBytes;
    return true;
}

/// Works in steps of a float frame: of 16-bit samples one frame is half of that, and nothing is denoised.
void AudioRecorder::denoise(char* data, int size)
{
    const int count = size / m_floatFrameBytes;
    for (int i = 0; m_speex && i < count; ++i)
        speex_preprocess_run(m_speex.get(), reinterpret_cast<spx_int16_t*>(data + i * m_floatFrameBytes));
}

void AudioRecorder::calcAmplitude(qint64 pos)
{
    if (pos - m_spectrumPos < 2 * m_pcmFrameBytes)
        return;
    const QByteArray block = m_pcm.mid(m_spectrumPos, Calculatepcmpffft::kBlockBytes);
    m_spectrumPos += Calculatepcmpffft::kBlockBytes;
    QMetaObject::invokeMethod(
        m_calc.get(),
        [calc = m_calc.get(), block, bands = m_spectrumNum] { calc->calculateSpectrum(block, bands); },
        Qt::QueuedConnection);
    notifyRecordInfo();
}

/// While a recording runs it tells the time recorded, at its end the length of the result.
void AudioRecorder::notifyRecordInfo()
{
    if (m_wanted.channelCount() < 1 || m_wanted.sampleRate() < 1)
        return;
    double duration_ms = double(m_pcm.size()) / bytesPerSample(m_wanted) / m_wanted.channelCount() * 1000.0 /
                         m_wanted.sampleRate();
    const bool stopped = m_state == RECORDER_IDLE;
    if (!stopped && m_changerType == HalfSpeed)
        duration_ms *= 0.5;
    else if (!stopped && m_changerType == DoubleSpeed)
        duration_ms *= 2.0;
    Q_EMIT RecordEngine::instance()->updateRecordInfo(qlonglong(duration_ms), stopped);
}

QVariantList AudioRecorder::getSampleData(int sampleNum) const
{
    if (m_pcm.isEmpty() || sampleNum <= 0)
        return {};
    if (sampleNum > kMaxSampleValues) {
        qWarning("getSampleData: %d values are too many", sampleNum);
        return {};
    }
    constexpr double kBytes = sizeof(qint16);
    const double step = m_pcm.size() / kBytes / sampleNum;
    QVariantList values;
    for (int i = 0; i < sampleNum; ++i) {
        const int position = qFloor(i * kBytes * step);
        if (position >= m_pcm.size())
            break;
        values.append(m_pcm.mid(position, 2).toHex().toInt(nullptr, 16) / 65535.0);
    }
    return values;
}
