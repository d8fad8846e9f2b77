#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>

/// What is known of the streams of a video file.
///
/// Numbers are 0 until a file is looked at. Codecs, layouts and formats are FFmpeg's numbers.
struct VideoFacts
{
    bool valid = false; ///< the file could be opened and has a video that can be decoded
    bool hasVideo = false;
    qlonglong duration = 0; ///< milliseconds
    int streamCount = 0;    ///< of all kinds
    int videoWidth = 0;     ///< pixels
    int videoHeight = 0;    ///< pixels
    int videoFormat = 0;    ///< pixel format
    int videoFps = 0;       ///< pictures per second on average, truncated
    int videoBitrate = 0;   ///< bits per second
    int videoRotate = 0;    ///< clockwise degrees to turn pictures by until they stand upright
    int videoStreamCount = 0;
    int videoCodeID = 0;
    bool hasAudio = false;
    int audioSampleRate = 0; ///< hertz
    int audioChannels = 0;
    int audioCannelLayout = 0; ///< mask of channels, its low 32 bits
    int audioSampleSize = 0;   ///< samples of one channel in a frame
    int audioSampleFormat = 0;
    int audioBitRate = 0; ///< bits per second
    int audioStreamCount = 0;
    int audioCodecID = 0;
};

/// `VideoFacts` for QML.
///
/// A copy takes everything but `videoRotate`: that stays 0 in a constructed copy and as it was in an assigned
/// one. One thread at a time.
class MULTIMEDIA_EXPORT VideoInformation : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool valid READ isValid)
    Q_PROPERTY(bool hasVideo READ hasVideo)
    Q_PROPERTY(qlonglong duration READ getDuration)
    Q_PROPERTY(int streamCount READ getStreamCount)
    Q_PROPERTY(int videoWidth READ getVideoWidth)
    Q_PROPERTY(int videoHeight READ getVideoHeight)
    Q_PROPERTY(int videoFps READ getVideoFps)
    Q_PROPERTY(int videoBitrate READ getVideoBitrate)
    Q_PROPERTY(int videoRotate READ getVideoRotate)
    Q_PROPERTY(int videoStreamCount READ getVideoStreamCount)
    Q_PROPERTY(int videoCodeID READ getVideoCodeID)
    Q_PROPERTY(bool hasAudio READ hasAudio)
    Q_PROPERTY(int audioSampleRate READ getAudioSampleRate)
    Q_PROPERTY(int audioChannels READ getAudioChannels)
    Q_PROPERTY(int audioCannelLayout READ getAudioCannelLayout)
    Q_PROPERTY(int audioSampleSize READ getAudioSampleSize)
    Q_PROPERTY(int audioSampleFormat READ getAudioSampleFormat)
    Q_PROPERTY(int audioBitRate READ getAudioBitRate)
    Q_PROPERTY(int audioStreamCount READ getAudioStreamCount)
    Q_PROPERTY(int audioCodecID READ getAudioCodecID)

public:
    VideoInformation() = default;
    VideoInformation(const VideoInformation& other);
    VideoInformation& operator=(const VideoInformation& other);
    ~VideoInformation() override;

    Q_INVOKABLE bool isValid() const { return facts.valid; }
    Q_INVOKABLE bool hasVideo() const { return facts.hasVideo; }
    Q_INVOKABLE qlonglong getDuration() const { return facts.duration; }
    Q_INVOKABLE int getStreamCount() const { return facts.streamCount; }
    Q_INVOKABLE int getVideoWidth() const { return facts.videoWidth; }
    Q_INVOKABLE int getVideoHeight() const { return facts.videoHeight; }
    Q_INVOKABLE int getVideoFps() const { return facts.videoFps; }
    Q_INVOKABLE int getVideoBitrate() const { return facts.videoBitrate; }
    Q_INVOKABLE int getVideoRotate() const { return facts.videoRotate; }
    Q_INVOKABLE int getVideoStreamCount() const { return facts.videoStreamCount; }
    Q_INVOKABLE int getVideoCodeID() const { return facts.videoCodeID; }
    Q_INVOKABLE bool hasAudio() const { return facts.hasAudio; }
    Q_INVOKABLE int getAudioSampleRate() const { return facts.audioSampleRate; }
    Q_INVOKABLE int getAudioChannels() const { return facts.audioChannels; }
    Q_INVOKABLE int getAudioCannelLayout() const { return facts.audioCannelLayout; }
    Q_INVOKABLE int getAudioSampleSize() const { return facts.audioSampleSize; }
    Q_INVOKABLE int getAudioSampleFormat() const { return facts.audioSampleFormat; }
    Q_INVOKABLE int getAudioBitRate() const { return facts.audioBitRate; }
    Q_INVOKABLE int getAudioStreamCount() const { return facts.audioStreamCount; }
    Q_INVOKABLE int getAudioCodecID() const { return facts.audioCodecID; }

    VideoFacts facts;
};
