#include "multimedia/devicemgr/audiodevicechangedobserver.h"
#include "multimedia/devicemgr/audiodeviceinfo.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/devicemgr/devicetypedefine.h"
#include "multimedia/devicemgr/screeninfo.h"
#include "multimedia/multimediaprovider.h"
#include "tests/support/incase.h"
#include "tests/support/soundserver.h"

#include <QtGui/QGuiApplication>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtTest/QtTest>

using namespace DeviceManager;

namespace {
DeviceInfo* makeDevice(const QString& name)
{
    auto* device = new DeviceInfo;
    device->setUid("uid-" + name);
    device->setDeviceName(name);
    return device;
}

QList<DeviceInfo*> makeDevices(const QStringList& names)
{
    QList<DeviceInfo*> list;
    for (const QString& name : names)
        list.append(makeDevice(name));
    return list;
}

DeviceInfo* entry(const DeviceModel* model, int row)
{
    return model->data(model->index(row), DeviceModel::DeviceItemRole).value<DeviceInfo*>();
}

QStringList names(const DeviceModel* model)
{
    QStringList list;
    for (int row = 0; row < model->count(); ++row)
        list.append(entry(model, row)->deviceName());
    return list;
}

struct Observer : AudioDeviceChangedObserver
{
    void handleDeviceChanged() override
    {
        ++calls;
        on_main_thread = on_main_thread && QThread::currentThread() == qApp->thread();
    }
    int calls = 0;
    bool on_main_thread = true;
};
} // namespace

class TestDevices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deviceInfo_comparesAndCopies_byItsRules();
    void model_keepsChoice_asLongAsItsDeviceExists();
    void model_signalsAndDestroys_whatItLosesAndGains();
    void lists_fillByThemselves_whenServerComesLate();
    void lists_nameDevices_asQtDoes();
    void lists_follow_devicesThatComeAndGo();
    void defaults_follow_andOnlyOutputsAreObserved();
    void lists_emptyAndFill_whenServerDiesAndReturns();
    void screens_areListed_asQtHasThem();
    void screens_follow_outputsThatComeAndGo();

private:
    static DeviceMgr* manager() { return MultimediaProvider::instance().deviceMgr(); }
    static DeviceModel* outputs() { return manager()->audioOutputModel(); }
    static DeviceModel* inputs() { return manager()->audioInputModel(); }

    SoundServer server;
};

void TestDevices::deviceInfo_comparesAndCopies_byItsRules()
{
    const QScopedPointer<DeviceInfo> first(makeDevice("a"));
    first->setSourceName("Headphones");
    QCOMPARE(DeviceInfo(first.data()).sourceName(), QString("Headphones"));
    DeviceInfo assigned;
    assigned = *first;
    QVERIFY(assigned.sourceName().isEmpty());

    QVERIFY(assigned == first.data());
    QVERIFY(!(assigned == nullptr) && !assigned.isEqual(nullptr));
    // The comparison takes over the other's source name, and tells of it once.
    QSignalSpy source_changed(&assigned, &DeviceInfo::sourceNameChanged);
    QVERIFY(assigned.isEqual(first.data()) && assigned.isEqual(first.data()));
    QCOMPARE(assigned.sourceName(), QString("Headphones"));
    QCOMPARE(source_changed.count(), 1);
    assigned.setDeviceId(2);
    assigned.setSourceName("Speaker");
    QVERIFY(!assigned.isEqual(first.data()));
    QCOMPARE(assigned.sourceName(), QString("Speaker"));
}

void TestDevices::model_keepsChoice_asLongAsItsDeviceExists()
{
    // What was chosen, the devices and the default that come then, and what is chosen afterwards.
    for (const auto& [chosen, devices, new_default, current] :
         {std::tuple(QString("b"), QStringList{"c", "b"}, QString("c"), QString("b")),
          {"b", {"a", "c"}, "c", "c"},
          {"b", {}, "", ""},
          {"x", {"a"}, "a", "a"}}) {
        const InCase in_case(chosen, devices, new_default);
        DeviceModel model(DeviceTypeDefine::AudioOutput);
        model.update(makeDevices({"a", "b"}), "a");
        QCOMPARE(model.currentDevice(), QStringLiteral("a"));
        model.setCurrentDevice(chosen);

        QSignalSpy current_changed(&model, &DeviceModel::currentDeviceChanged);
        QSignalSpy default_changed(&model, &DeviceModel::defaultDeviceChanged);
        model.update(makeDevices(devices), new_default);
        QCOMPARE(model.currentDevice(), current);
        QCOMPARE(current_changed.count(), model.currentDevice() == chosen ? 0 : 1);
        QCOMPARE(default_changed.count(), new_default == QLatin1String("a") ? 0 : 1);
        QCOMPARE(names(&model), devices);
    }
}

void TestDevices::model_signalsAndDestroys_whatItLosesAndGains()
{
    DeviceModel model(DeviceTypeDefine::Screen);
    QCOMPARE(model.roleNames(), (QHash<int, QByteArray>{{257, "deviceItem"}}));
    QSignalSpy count_changed(&model, &DeviceModel::countChanged);
    model.append(makeDevice("a"));
    model.append(makeDevice("b"));
    model.setCurrentDevice("b");
    QVERIFY(!model.data(model.index(0), Qt::DisplayRole).isValid());
    QVERIFY(!model.data(model.index(2), DeviceModel::DeviceItemRole).isValid());

    const QPointer<DeviceInfo> removed(entry(&model, 1));
    model.remove("uid-x");
    model.remove("uid-b");
    QVERIFY(!removed);
    QVERIFY(model.currentDevice().isEmpty());

    QPointer<DeviceInfo> replaced(entry(&model, 0));
    model.update(makeDevices({"c"}), QString());
    QVERIFY(!replaced);
    const QScopedPointer<DeviceInfo> let_go(entry(&model, 0));
    model.clear();
    model.clear();
    QCOMPARE(let_go->deviceName(), QStringLiteral("c"));
    QList<int> counts;
    for (const QList<QVariant>& arguments : count_changed)
        counts.append(arguments.first().toInt());
    QCOMPARE(counts, (QList<int>{1, 2, 1, 1, 0}));
}

void TestDevices::lists_fillByThemselves_whenServerComesLate()
{
    server.kill();
    QCOMPARE(outputs()->count(), 0);
    bool is_allowed = false;
    QMetaObject::invokeMethod(manager(), "hasAudioCapturePermission", Q_RETURN_ARG(bool, is_allowed));
    QVERIFY(is_allowed && !inputs()->disabled());
    QVERIFY(manager()->cameraModel()->disabled());
    manager()->refreshModel();
    server.start();
    QTRY_COMPARE(names(outputs()), (QStringList{"spk", "micbus"}));
    QTRY_COMPARE(names(inputs()), QStringList{"mic"});
    QCOMPARE(outputs()->currentDevice(), QStringLiteral("spk"));
    QCOMPARE(inputs()->defaultDevice(), QStringLiteral("mic"));
}

void TestDevices::lists_nameDevices_asQtDoes()
{
    const auto device = qobject_cast<AudioDeviceInfo*>(entry(outputs(), 0));
    QVERIFY(device);
    QCOMPARE(device->uid(), QStringLiteral("spk"));
    QCOMPARE(device->description(), QStringLiteral("Speaker"));
    QCOMPARE(device->sourceName(), QStringLiteral("Speaker")); // a null sink has no ports
    QCOMPARE(device->outputChannelCount(), 2);
    QCOMPARE(device->inputChannelCount(), 0);
    QCOMPARE(qobject_cast<AudioDeviceInfo*>(entry(inputs(), 0))->inputChannelCount(), 2);

    for (const QAudio::Mode mode : {QAudio::AudioInput, QAudio::AudioOutput}) {
        QStringList known_to_qt;
        const auto devices = QAudioDeviceInfo::availableDevices(mode);
        for (const QAudioDeviceInfo& info : devices)
            known_to_qt.append(info.deviceName());
        for (const QString& name : names(mode == QAudio::AudioInput ? inputs() : outputs()))
            QVERIFY2(known_to_qt.contains(name), qPrintable(name + " in " + known_to_qt.join(' ')));
    }
}

void TestDevices::lists_follow_devicesThatComeAndGo()
{
    outputs()->setCurrentDevice("extra");
    QSignalSpy reset(outputs(), &DeviceModel::modelReset);
    const QString module = server.addSink("extra", "Headset");
    QTRY_COMPARE(names(outputs()), (QStringList{"spk", "micbus", "extra"}));
    QCOMPARE(outputs()->currentDevice(), QStringLiteral("extra"));
    QCOMPARE(names(inputs()), QStringList{"mic"}); // its monitor is no microphone
    const int resets = reset.count();

    // Volume is no business of the lists; the sink's end is the notice that must come after it.
    server.control({"set-sink-volume", "extra", "50%"});
    server.unload(module);
    QTRY_COMPARE(names(outputs()), (QStringList{"spk", "micbus"}));
    QCOMPARE(outputs()->currentDevice(), QStringLiteral("spk"));
    QCOMPARE(reset.count(), resets + 1);
}

void TestDevices::defaults_follow_andOnlyOutputsAreObserved()
{
    Observer observer;
    Observer removed;
    manager()->registerAudioDeviceChangedObserver(&observer);
    manager()->registerAudioDeviceChangedObserver(&removed);
    manager()->unregisterAudioDeviceChangedObserver(&removed);

    server.control({"set-default-sink", "micbus"});
    QTRY_COMPARE(outputs()->defaultDevice(), QStringLiteral("micbus"));
    QCOMPARE(outputs()->currentDevice(), QStringLiteral("spk"));
    QCOMPARE(observer.calls, 1);
    QVERIFY(observer.on_main_thread);
    outputs()->setDefaultDevice("micbus");
    QCOMPARE(observer.calls, 1);

    // A default input that is no microphone counts as none.
    server.control({"set-default-source", "spk.monitor"});
    QTRY_COMPARE(inputs()->defaultDevice(), QString());
    QCOMPARE(observer.calls, 1);
    manager()->unregisterAudioDeviceChangedObserver(&observer);
    QCOMPARE(removed.calls, 0);
}

void TestDevices::lists_emptyAndFill_whenServerDiesAndReturns()
{
    server.control({"set-default-sink", "spk"}); // some servers remember the choice beyond their death
    for (int round = 0; round < 2; ++round) {
        server.kill();
        QTRY_COMPARE(outputs()->count() + inputs()->count(), 0);
        QCOMPARE(outputs()->defaultDevice(), QString());
        server.start();
        QTRY_COMPARE(outputs()->count(), 2);
        QTRY_COMPARE(inputs()->count(), 1);
        QTRY_COMPARE(outputs()->defaultDevice(), QStringLiteral("spk")); // some servers choose it later
    }
}

void TestDevices::screens_areListed_asQtHasThem()
{
    DeviceModel* screens = manager()->screenModel();
    QCOMPARE(screens->count(), QGuiApplication::screens().size());
    QScreen* screen = QGuiApplication::primaryScreen();
    const auto info = qobject_cast<ScreenInfo*>(entry(screens, 0));
    QVERIFY(info);
    QCOMPARE(info->uid(), screen->name());
    QCOMPARE(info->geometry(), screen->geometry());
    QCOMPARE(info->size(), screen->size());
    QCOMPARE(info->dpi(), screen->devicePixelRatio());
    QCOMPARE(info->depth(), 0);
    QCOMPARE(screens->defaultDevice(), QString());
    QCOMPARE(ScreenInfo().size(), QSize(-1, -1));

    manager()->screenRemove(screen);
    QCOMPARE(screens->count(), QGuiApplication::screens().size() - 1);
    manager()->screenAdd(screen);
    QCOMPARE(names(screens).last(), screen->name());
}

void TestDevices::screens_follow_outputsThatComeAndGo()
{
    if (QGuiApplication::screens().size() < 2)
        QSKIP("wants two screens");
    DeviceModel* screens = manager()->screenModel();
    QCOMPARE(screens->count(), 2);
    const QString second = entry(screens, 1)->uid();
    QCOMPARE(QProcess::execute("xrandr", {"--output", second, "--off"}), 0);
    QTRY_COMPARE(screens->count(), 1);
    QVERIFY(!names(screens).contains(second));
    QCOMPARE(QProcess::execute("xrandr", {"--output", second, "--mode", "1280x720", "--pos", "1920x0"}), 0);
    QTRY_COMPARE(screens->count(), 2);
    QCOMPARE(qobject_cast<ScreenInfo*>(entry(screens, 1))->geometry(), QRect(1920, 0, 1280, 720));
}

QTEST_MAIN(TestDevices)
#include "test_devices.moc"
