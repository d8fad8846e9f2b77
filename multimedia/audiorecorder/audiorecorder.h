#pragma once

#include "multimedia/base/currentrequest.h"
#include "multimedia/base/inputpresence.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/mediahandler/cmediaencode.h"
#include "multimedia/mediahandler/cmediaoutput.h"
#include "multimedia/mediahandler/cmediaresample.h"

#include <QtCore/QBuffer>
#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QThread>
#include <QtCore/QVariantList>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioFormat>

#include <memory>

class Calculatepcmpffft;
class QAudioInput;
class RecordConfig;
class VoiceHandler;
struct SpeexPreprocessState_;
struct sonicStreamStruct;

enum RECORDER_STATE {
    RECORDER_IDLE = 0,
    RECORDER_RECORDING = 1,
    RECORDER_CLOSING = 2, ///< the capture has stopped, the voice changer is draining
};

/// Records the microphone as AAC.
///
///     QAudioInput -> m_capture -+-- type 0: as it is ------------------------+-> m_pcm -> spectrum
///                               +-- types 5, 8: half and double speed -------+         -> AAC -> file
///                               +-- other types: VoiceHandler ---------------+
///
/// One call of `encordData` encodes half of the whole frames that wait, rounded up: the encoder trails the
/// capture, and what still waits at the end never reaches the file. All that was captured stays in memory
/// until the next start or `clearData`.
///
/// A recording goes from idle to recording and back, with a voice changer through closing. The duration is
/// told to `RecordEngine`, from where the host may end the recording or start the next one.
///
/// Everything runs on the owner's thread; only the spectrum is calculated on "calcute_pcm_ffft", and nothing
/// is shared with it.
class AudioRecorder : public QObject
{
    Q_OBJECT

public:
    explicit AudioRecorder(QObject* parent = nullptr);
    ~AudioRecorder() override;

    /// False when a recording runs, there is no such device, or it cannot be opened. A file that cannot be
    /// written is only logged.
    /// @param config       not owned; null gives false
    /// @param changerType  0 none, 5 half speed, 8 double speed, any other a type of `VoiceHandler`
    bool startRecord(RecordConfig* config, int changerType);
    /// Ends the capture. The file is complete then, except with a voice changer that is to be saved:
    /// `recordFinish` follows. Such a recording of less than half a second is empty.
    /// False when it is to be saved and, from a report of its duration, was stopped or dropped meanwhile.
    bool stopRecord(bool isSave);
    /// Where the next recording goes; the extension chooses the container. Nothing while one is under way.
    void setRecordPath(const QString& path);
    QString recordPath() const { return m_recordPath; }
    RECORDER_STATE state() const { return m_state; }
    void setState(RECORDER_STATE state) { m_state = state; }
    void setChangerType(int changerType) { m_changerType = changerType; }
    /// Bands of the spectrum.
    void setSpectrumNum(int num) { m_spectrumNum = num; }
    bool isChangeVoice() const;
    /// Whether the device, or any if `name` is empty, can be recorded from with the present configuration.
    /// False before the first `startRecord`.
    bool hasVisibleAudioInputDev(const QString& name);
    /// Finds the device that `name` means; only "Default" and an empty name may mean the system's choice.
    bool hasVisibleAudioInputDev(const QString& name, QAudioDeviceInfo& info);
    /// Up to `sampleNum` values of 0 to 1 for the bars of the recording: two bytes each, at even distances,
    /// as one number with the first byte on top.
    QVariantList getSampleData(int sampleNum) const;
    /// Ends and forgets everything.
    void clearData();
    /// Ends a recording without saving it, and lets go of the audio device, which the application must not
    /// go before.
    void end();

Q_SIGNALS:
    /// As `Calculatepcmpffft::calculationPcmFFFTComplete`.
    void calcutedFFFTComplated(QVariantList calcutedSpectrum);
    /// A recording with a voice changer is complete.
    void recordFinish();

public Q_SLOTS:
    void readOriginalVoice();
    void readHandledVoice(const QByteArray& data);
    void voiceHandlerClosed();

private:
    struct SpeexDeleter
    {
        void operator()(SpeexPreprocessState_* state) const;
    };
    struct SonicDeleter
    {
        void operator()(sonicStreamStruct* stream) const;
    };

    bool openRecordDev();
    void stopRecordDev();
    bool canGoOn();
    void openEncoder();
    void closeEncoder();
    void makeFrame(unsigned long long layout);
    void openSpeex();
    void closeSpeex();
    void openVoiceHandler();
    void closeVoiceHandler(bool immediately);
    void initSnoic(float speed);
    void clearSnoic();
    void initCalcFFFT();
    void finish();
    void readTailData();
    void notifyRecordInfo();
    void denoise(char* data, int size);
    void calcAmplitude(qint64 pos);
    bool changeSpeed();
    void encordData();
    bool encodeFrame(int size);

    QAudioInput* m_audioInput = nullptr;
    QAudioDeviceInfo m_inputDevice; ///< that was opened
    multimedia::InputPresence m_inputPresence;
    QByteArray m_capture;
    QByteArray m_pcm;
    QBuffer m_buffer;      ///< `m_capture` as the input's device
    int m_captureRead = 0; ///< bytes of `m_capture` already consumed
    int m_pcmEncoded = 0;  ///< bytes of `m_pcm` already encoded
    int m_spectrumPos = 0; ///< bytes of `m_pcm` already given to the spectrum
    QString m_recordPath;
    std::unique_ptr<SpeexPreprocessState_, SpeexDeleter> m_speex;
    RECORDER_STATE m_state = RECORDER_IDLE;
    /// What other threads tell carries its number. It is over with the next start, or when all is forgotten.
    multimedia::CurrentRequest m_recording;
    bool m_stopping = false; ///< the tail is being read; false again when the host drops the recording then
    QPointer<RecordConfig> m_config; ///< not owned
    QAudioFormat m_wanted;           ///< what `m_config` said when the recording started
    CMediaEncode m_encoder;
    CMediaOutput m_output;
    CMediaResample m_resample;
    int m_spectrumNum = 58;
    int m_frameSamples = 0;    ///< per channel, of one encoder frame; 0 without an encoder
    int m_floatFrameBytes = 0; ///< of an encoder frame
    int m_pcmFrameBytes = 0;   ///< of the same samples in `m_pcm`
    qint64 m_pts = 0;          ///< samples encoded so far
    multimedia::FrameHandle m_frame;
    std::unique_ptr<Calculatepcmpffft> m_calc; ///< lives on `m_calcThread` and outlives it
    std::unique_ptr<VoiceHandler> m_voiceHandler;
    std::unique_ptr<QThread> m_calcThread;
    std::unique_ptr<sonicStreamStruct, SonicDeleter> m_sonic;
    int m_changerType = 0;
};
