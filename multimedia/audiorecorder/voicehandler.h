#pragma once

#include "multimedia/audiorecorder/effectengine.h"

#include <QtCore/QByteArray>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QWaitCondition>

#include <memory>

/// Changes the sound of a voice while it is recorded.
///
/// Captured PCM goes in through `putOriginalData`, the changed sound comes out of `dataHandled`, on the mixer
/// thread of an `EffectEngine`. In bytes, the result is never longer than what went in.
///
///     HandlerFinished --openHandler--> HandlerRunning --close(false)--> HandlerDraining
///     HandlerDraining --buffer empty--> HandlerDrained, `closed` follows the last of the sound
///     any state       --close(true)--> HandlerFinished
///
/// All operations from the owner's thread, never from a slot that runs on the mixer thread. `m_mutex` guards
/// every field but `m_engine`, which is the owner's.
class VoiceHandler : public QObject
{
    Q_OBJECT

public:
    enum State {
        HandlerRunning = 0,
        HandlerDraining = 1, ///< no more will come, the buffer is being emptied
        HandlerDrained = 2,  ///< the buffer is empty, the last of the sound is awaited
        HandlerFinished = 3, ///< closed or never opened
    };

    explicit VoiceHandler(QObject* parent = nullptr);
    /// As `clear`.
    ~VoiceHandler() override;

    /// Appends PCM. In any state: it waits here until the handler is open.
    void putOriginalData(const QByteArray& data);
    /// Moves up to `len` bytes to `data` for the engine; false when it has to wait for more. A handler that
    /// runs gives full blocks only. Drained or finished, it gives true and leaves `data` alone.
    bool getOriginalData(void* data, unsigned int len);
    /// Sends handled PCM on, cut to what is still owed, and tells the end.
    void putHandledData(QByteArray& data);
    bool hasOrginalData() const;
    bool finished() const;
    State handlerState() const;
    void setState(State state);
    /// Not `immediately`: lets the buffer run empty, and `closed` tells the end. Nothing on a handler that
    /// was not opened. Immediately: as `clear`.
    void close(bool immediately);
    /// Ends the engine and forgets all data.
    void clear();

Q_SIGNALS:
    void dataHandled(QByteArray data);
    void startHandler(int sampleRate, int channelNum, int pcmBitSize, int changerType);
    /// Once for each opened handler that was closed not immediately.
    void closed();

public Q_SLOTS:
    /// Starts the engine with the effect of `changerType`: 1 raises the pitch by 2.6, 2 halves it, 3 is a
    /// tremolo of 300 Hz, any other is none. Only on a finished handler, which stays finished on failure.
    void openHandler(int sampleRate, int channelNum, int pcmBitSize, int changerType);

private:
    friend int pcmreadcallback(VoiceHandler* handler, void* data, unsigned int datalen);

    int readOriginalData(void* data, unsigned int len);
    bool takeOriginalData(void* data, unsigned int len);
    void addDsp(multimedia::EffectEngine& engine, int sampleRate, int changerType);
    void releaseSystem();

    mutable QMutex m_mutex;
    QWaitCondition m_changed; ///< `m_original` has grown or `m_state` has changed
    QByteArray m_original;    ///< waiting for the engine
    qint64 m_fedBytes = 0;
    qint64 m_handledBytes = 0;
    State m_state = HandlerFinished;
    bool m_closedSent = false;
    std::unique_ptr<multimedia::EffectEngine> m_engine;
};
