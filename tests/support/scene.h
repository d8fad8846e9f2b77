#pragma once

#include <QtCore/QPoint>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/Qt>

class QQuickItem;
class QQuickWindow;

/// A window of QML as a person has it: looked at, clicked, dragged, typed into.
///
/// Items are named by their `objectName`; only those count that are seen. A name that nothing has fails the
/// test.
class Scene
{
public:
    explicit Scene(QQuickWindow& window);

    QQuickWindow& window() const { return shown; }
    /// Null, without a failure, if it is not seen.
    QQuickItem* find(const QString& name) const;
    QQuickItem& item(const QString& name) const;
    QVariant value(const QString& name, const char* property) const;
    bool isSeen(const QString& name) const { return find(name) != nullptr; }
    bool isEnabled(const QString& name) const;
    /// A point of an item, in fractions of it, in the window.
    QPoint at(const QString& name, double x, double y) const;

    void click(const QString& name);
    void click(const QPoint& at);
    void drag(const QPoint& from, const QPoint& to);
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    /// Moves a combo box from its first choice on by the arrow keys.
    void choose(const QString& name, int index);
    /// Answers the file dialog that is about to open.
    void answerFileDialog(const QString& path);

    /// Waits until what has changed is shown.
    void settle();
    /// Writes what is seen to out/host/NAME-{light,dark}-{large,small}.png.
    void shoot(const QString& name);
    /// Buttons, labels and the like that reach beyond the window or are cut short, in words.
    QStringList misfits() const;

private:
    QQuickWindow& shown;
};
