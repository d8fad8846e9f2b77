// consumer QML_FILE
//
// A host in little: it switches the library on, uses a class of each installed library, and says what it
// found.

#include <multimedia/multimediaprovider.h>
#include <multimedia/screenrecord/screenrecord.h>
#include <quillon/util.h>

#include <QtCore/QTextStream>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlEngine>

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    QQmlEngine engine;
    MultimediaProvider::registType(engine);
    QQmlComponent component(&engine, QUrl::fromLocalFile(application.arguments().value(1)));
    const QScopedPointer<QObject> object(component.create());
    const multimedia::ScreenRecord recorder;
    const bool right = object && object->property("screen").toInt() == 4 &&
                       recorder.getState() == multimedia::ScreenRecord::Waiting && !Util::uuid().isEmpty();
    QTextStream(stdout) << (right ? "ready" : component.errorString()) << Qt::endl;
    MultimediaProvider::unregist();
    return right ? 0 : 1;
}
