#pragma once

#include "multimedia/multimedia_global.h"
#include "quillon/convertfilefilter.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QProcess>
#include <QtCore/QString>

#include <memory>

namespace multimedia {
class ProcessEnd;
}

/// Converts media with the programs `ffmpeg` and `ffprobe` that lie beside the application.
///
/// A queue turns videos into MP4 one after another and tells how far it is; beside it, any number of
/// conversions between MP4 and GIF run on their own; two probes answer at once. Results lie in the system's
/// folder for temporary files, and belong to whoever asked.
///
/// All of it belongs to the thread of the first `instance()`, which needs an event loop. That thread is
/// blocked by the two probes, for at most 30 seconds, and by the first of them after every conversion of the
/// queue.
///
/// A program that is not there gives a line in the log and nothing else: the queue then stands, its head in
/// place, until `convertVideoToMp4` is called again, and a conversion between MP4 and GIF never reports.
class MULTIMEDIA_EXPORT VideoProvider : public QObject
{
    Q_OBJECT

public:
    static VideoProvider* instance();
    ~VideoProvider() override;

public Q_SLOTS:
    /// The turn in degrees that the file asks for, with its sign as `ffprobe` prints it; 0 without one, and
    /// for what cannot be read.
    int readVideoRotation(QString filePath);
    /// Writes the first picture as JPEG and gives its path; empty if the program complained of anything.
    QString fetchVideoFirstFrame(QString filePath);
    /// Starts the head of the queue; called by the queue itself. Only while no conversion runs.
    void convertVideoToMp4();
    /// Queues a conversion. Before this returns, `videoConvertComplete` tells of the source: 0 if it exists,
    /// else 2; it comes again when the conversion is over, with the result.
    ///
    /// @param filePath    path or "file:" URL
    /// @param fileFilter  comes back with every report; its `outputFile` is the source now, the result later
    void addConvertVideo(QString filePath, ConvertFileFilterPtr fileFilter);
    /// The queue's program has written to its standard error.
    void readyReadStandardError();
    /// The queue's program has ended, however that was: what counts is the result file.
    void finished(int exitCode, QProcess::ExitStatus exitStatus);
    /// Ends the conversion of the head, which then reports 1; the rest of the queue goes on.
    void cancelConvertVideo();
    /// Makes a GIF, or an MP4, of the same base name; reports by `gifConvertComplete` or
    /// `mp4ConvertComplete`.
    ///
    /// Nothing is overwritten: if there is such a file already, the conversion fails. `width`
    /// and `height` (pixels) stand behind the output, where they have no effect on it, as does the encoder
    /// that `gifToMp4` names.
    ///
    /// @param identity   comes back with the report
    /// @param frameRate  pictures a second
    void mp4ToGif(QString mp4Path, QString identity, int width = -1, int height = -1, int frameRate = 12);
    void gifToMp4(QString gifPath, QString identity, int width = -1, int height = -1, int frameRate = 30);

Q_SIGNALS:
    /// @param retCode  0 the file exists, 1 cancelled, 2 it does not exist
    void videoConvertComplete(ConvertFileFilterPtr fileFilter, int retCode);
    /// Seconds done and seconds in all. The latter is that of the first file of the queue for all of them.
    void convertProgressChanged(ConvertFileFilterPtr fileFilter, int current, int total);
    /// An empty path after a failure.
    void gifConvertComplete(QString gifPath, QString identity);
    void mp4ConvertComplete(QString mp4Path, QString identity);

private:
    using ConvertCompleteSignal = void (VideoProvider::*)(QString, QString);
    /// What sets the two conversions between MP4 and GIF apart.
    struct Conversion
    {
        QString suffix;
        const char* path_property;
        QStringList trailing_options;
        ConvertCompleteSignal complete;
    };

    VideoProvider();

    void startConversion(const Conversion& conversion, const QString& source, const QString& identity,
                         const QSize& size, int frame_rate);
    QString toolPath(const char* tool) const;
    /// Ends the programs under way, without a report, and removes what they have begun.
    void end();

    /// Source path and request; the head is under way.
    QList<QPair<QString, ConvertFileFilterPtr>> m_convertQueue;
    /// With a separator at its end.
    QString m_tempDir;
    /// The queue's only process. Its properties: "outputPath", and "Duration" in seconds once it is known.
    QProcess m_process;
    /// Local path of the head.
    QString m_currentFile;
    bool m_cancelled = false;
    /// The end of what the program has printed so far, while it may be the first half of its duration.
    QString m_unmatchedText;
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};
