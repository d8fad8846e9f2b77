#pragma once

#include <QtGui/QImage>
#include <QtMultimedia/QAbstractVideoSurface>
#include <QtQuick/QQuickPaintedItem>

/// Shows what a `MediaPlayer` plays, also where nothing is drawn with OpenGL.
///
/// The player is given `surface` as its `videoOutput`.
class FilmView : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(QAbstractVideoSurface* surface READ surface CONSTANT)

public:
    explicit FilmView(QQuickItem* parent = nullptr);

    QAbstractVideoSurface* surface() { return &film_surface; }
    void paint(QPainter* painter) override;

public Q_SLOTS:
    /// Forgets the picture that is shown.
    void clear();

private:
    /// Takes the pictures; they come on the main thread.
    class Surface : public QAbstractVideoSurface
    {
    public:
        explicit Surface(FilmView& film_view)
            : view(film_view)
        {}

        QList<QVideoFrame::PixelFormat>
        supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const override;
        bool present(const QVideoFrame& frame) override;

    private:
        FilmView& view;
    };

    Surface film_surface;
    QImage picture;
};
