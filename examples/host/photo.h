#pragma once

#include "examples/host/drawing.h"
#include "quillon/editfilefilter.h"

#include <QtCore/QFutureWatcher>
#include <QtCore/QObject>
#include <QtCore/QRectF>
#include <QtCore/QString>
#include <QtGui/QImage>
#include <QtGui/QTransform>

namespace ImageEdit {
class ImageEditProvider;
}

/// The picture that the host's photo page edits.
///
/// Faces, turn and mirror are kept by the library's `ImageEditProvider`; what it does not know stands here:
/// the crop, the colours, what is drawn, and a small copy of the picture to be looked at meanwhile. `save`
/// puts all of it together through the library.
///
/// Main thread; colours of the whole picture are changed on the global thread pool.
class Photo : public QObject
{
    Q_OBJECT
    /// Path of the picture; empty for none. Not the file that was opened, if that lies on its side.
    Q_PROPERTY(QString path READ path NOTIFY opened)
    /// Pixels, as it is turned now.
    Q_PROPERTY(QSize size READ size NOTIFY changed)
    /// In fractions of the picture as it is turned now.
    Q_PROPERTY(QRectF crop READ crop WRITE setCrop NOTIFY cropChanged)
    Q_PROPERTY(double hue MEMBER hue_offset NOTIFY coloursChanged)
    Q_PROPERTY(double saturation MEMBER saturation_offset NOTIFY coloursChanged)
    Q_PROPERTY(double lightness MEMBER lightness_offset NOTIFY coloursChanged)
    Q_PROPERTY(bool drawn READ drawn NOTIFY changed)
    Q_PROPERTY(bool blurring READ blurring NOTIFY busyChanged)
    Q_PROPERTY(bool saving READ saving NOTIFY busyChanged)

public:
    explicit Photo(QObject* parent = nullptr);
    ~Photo() override;

    QString path() const { return working_file; }
    QSize size() const;
    QRectF crop() const { return crop_rect; }
    void setCrop(const QRectF& crop);
    bool drawn() const { return !drawing.isEmpty(); }
    bool blurring() const { return is_blurring; }
    bool saving() const { return !edit_id.isEmpty(); }

    /// What to show, in the file's orientation and with its colours changed.
    const QImage& preview() const { return shown; }
    const Drawing& things() const { return drawing; }
    /// From the file's pixels to those of the picture as it is turned and mirrored now.
    QTransform orientation() const;
    void draw(const DrawnThing& thing);
    void extendLast(const QPointF& point);

public Q_SLOTS:
    /// False, with the picture before left as it is, for what cannot be edited.
    bool open(const QString& file);
    /// Counter-clockwise.
    void turn(int quarters);
    void mirror();
    void undoDrawing();
    /// Hides the faces, or shows them again.
    void toggleBlur();
    /// Everything as it was opened.
    void reset();
    /// Ends in `saved`.
    void save(const QString& target);
    void cancel();

Q_SIGNALS:
    void opened();
    void changed();
    void cropChanged();
    void coloursChanged();
    void busyChanged();
    void blurFailed();
    /// @param file  empty when it was cancelled or could not be made
    void saved(QString file, bool cancelled);

private:
    QString uprightCopy(const QString& file);
    int turns() const;
    bool hasColours() const;
    void showFace();
    void showColours();
    QString saveDrawing() const;
    void edit();
    void finish(int code);
    void dropFile(QString& file);

    ImageEdit::ImageEditProvider& editor;
    QString working_file;
    QString upright_file; ///< temporary copy of a picture that lay on its side; empty for none
    QString blurred_file; ///< temporary; empty until faces were blurred
    QSize file_size;
    QImage small; ///< without changed colours
    QImage shown;
    QRectF crop_rect{0, 0, 1, 1};
    double hue_offset = 0;
    double saturation_offset = 0;
    double lightness_offset = 0;
    Drawing drawing;
    bool is_blurring = false;

    // The save under way.
    QString edit_id; ///< empty for none
    QString save_path;
    QString edit_source;
    QString coloured_file; ///< temporary; empty for none
    bool cancelled = false;
    QFutureWatcher<bool> colouring;
};
