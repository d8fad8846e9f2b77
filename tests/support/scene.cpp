#include "tests/support/scene.h"

#include "tests/support/paths.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtQml/QJSValue>
#include <QtQuick/QQuickItem>
#include <QtQuick/QQuickWindow>
#include <QtTest/QtTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QLineEdit>

#include <utility>

namespace {

QQuickItem* findIn(QQuickItem* parent, const QString& name)
{
    for (QQuickItem* child : parent->childItems()) {
        if (!child->isVisible())
            continue;
        if (child->objectName() == name)
            return child;
        if (QQuickItem* found = findIn(child, name))
            return found;
    }
    return nullptr;
}

void collectMisfits(const QQuickItem& item, const QRectF& limits, QStringList& found)
{
    for (const QQuickItem* child : item.childItems()) {
        if (!child->isVisible())
            continue;
        const QByteArray type = child->metaObject()->className();
        const bool is_control = child->inherits("QQuickAbstractButton") || child->inherits("QQuickLabel") ||
                                child->inherits("QQuickComboBox") || child->inherits("QQuickSlider");
        const QRectF place = child->mapRectToScene(QRectF(0, 0, child->width(), child->height()));
        const QString text = child->property("text").toString();
        if (is_control && !limits.adjusted(-1, -1, 1, 1).contains(place))
            found += QStringLiteral("%1 \"%2\" reaches out").arg(QString::fromLatin1(type), text);
        if (child->inherits("QQuickText") && child->property("truncated").toBool())
            found += QStringLiteral("\"%1\" is cut short").arg(text);
        // What is inside a view may be scrolled to.
        if (!child->inherits("QQuickFlickable"))
            collectMisfits(*child, limits, found);
    }
}

} // namespace

Scene::Scene(QQuickWindow& window)
    : shown(window)
{}

QQuickItem* Scene::find(const QString& name) const
{
    return findIn(shown.contentItem(), name);
}

QQuickItem& Scene::item(const QString& name) const
{
    QQuickItem* found = nullptr;
    if (!QTest::qWaitFor([&] { return (found = find(name)) != nullptr; }))
        qFatal("nothing is seen that is called %s", qPrintable(name));
    return *found;
}

QVariant Scene::value(const QString& name, const char* property) const
{
    const QVariant value = item(name).property(property);
    return value.userType() == qMetaTypeId<QJSValue>() ? value.value<QJSValue>().toVariant() : value;
}

bool Scene::isEnabled(const QString& name) const
{
    return item(name).isEnabled();
}

QPoint Scene::at(const QString& name, double x, double y) const
{
    const QQuickItem& found = item(name);
    return found.mapToScene({x * found.width(), y * found.height()}).toPoint();
}

void Scene::click(const QString& name)
{
    if (!QTest::qWaitFor([&] { return isEnabled(name); }))
        qFatal("%s is not enabled", qPrintable(name));
    click(at(name, 0.5, 0.5));
}

void Scene::click(const QPoint& at)
{
    QTest::mouseClick(&shown, Qt::LeftButton, {}, at);
}

void Scene::drag(const QPoint& from, const QPoint& to)
{
    constexpr int kSteps = 8;
    QTest::mouseMove(&shown, from);
    QTest::mousePress(&shown, Qt::LeftButton, {}, from);
    for (int step = 1; step <= kSteps; ++step)
        QTest::mouseMove(&shown, from + (to - from) * step / kSteps);
    QTest::mouseRelease(&shown, Qt::LeftButton, {}, to);
}

void Scene::key(Qt::Key key, Qt::KeyboardModifiers modifiers)
{
    QTest::keyClick(&shown, key, modifiers);
}

void Scene::choose(const QString& name, int index)
{
    item(name).forceActiveFocus();
    for (int step = 0; step < index; ++step)
        key(Qt::Key_Down);
}

void Scene::answerFileDialog(const QString& path)
{
    QFileDialog* dialog = nullptr;
    const auto opened = [&dialog] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* candidate = qobject_cast<QFileDialog*>(widget);
            if (candidate && candidate->isVisible())
                dialog = candidate;
        }
        return dialog != nullptr;
    };
    if (!QTest::qWaitFor(opened))
        qFatal("no file dialog opens");
    if (dialog->acceptMode() == QFileDialog::AcceptOpen && !QFileInfo::exists(path))
        qFatal("there is no %s", qPrintable(path)); // the dialog would say so, and wait
    // What is selected in the list wins over what is typed, and a file chosen before is selected again
    // whenever the folder's listing arrives.
    dialog->setDirectory(QFileInfo(path).path());
    auto* name = dialog->findChild<QLineEdit*>();
    const auto isTaken = [&] {
        for (QAbstractItemView* list : dialog->findChildren<QAbstractItemView*>())
            list->clearSelection();
        name->setText(QFileInfo(path).fileName());
        const QStringList taken = dialog->selectedFiles();
        return taken.size() == 1 && QFileInfo(taken.first()) == QFileInfo(path);
    };
    if (!QTest::qWaitFor(isTaken))
        qFatal("the file dialog does not select %s", qPrintable(path));
    QTest::keyClick(name, Qt::Key_Return);
    if (!QTest::qWaitFor([dialog] { return !dialog->isVisible(); }))
        qFatal("the file dialog does not take %s", qPrintable(path));
    // There is no window manager to give the keyboard back.
    shown.requestActivate();
    if (!QTest::qWaitForWindowActive(&shown))
        qFatal("the window does not get the keyboard back");
}

void Scene::shoot(const QString& name)
{
    const QDir folder(QString::fromUtf8(kShotsFolder));
    folder.mkpath(QStringLiteral("."));
    const QSize before = shown.size();
    const QVariant theme = shown.property("theme");
    for (const auto& [label, size] : {std::pair("large", QSize(1180, 760)), {"small", shown.minimumSize()}}) {
        shown.resize(size);
        QTRY_COMPARE(shown.size(), size);
        for (const int dark : {0, 1}) {
            shown.setProperty("theme", dark);
            settle();
            shown.grabWindow().save(folder.filePath(
                QStringLiteral("%1-%2-%3.png").arg(name, dark ? "dark" : "light").arg(QLatin1String(label))));
        }
    }
    shown.setProperty("theme", theme);
    shown.resize(before);
    QTRY_COMPARE(shown.size(), before);
    settle();
}

void Scene::settle()
{
    // What the first picture was laid out for may have changed by its own layout.
    QSignalSpy pictures(&shown, &QQuickWindow::frameSwapped);
    QTRY_VERIFY((shown.update(), pictures.size() >= 2));
}

QStringList Scene::misfits() const
{
    QStringList found;
    collectMisfits(*shown.contentItem(), QRectF(QPointF(), shown.size()), found);
    return found;
}
