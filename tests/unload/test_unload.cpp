// The library as a part of an application's plugin: loaded, used and unloaded while the application goes on.
// The program is linked with the leak checker, which watches every allocation, whoever makes it, and looks
// once more when the process ends.

#include "tests/support/files.h"
#include "tests/support/gifwriter.h"

#include <QtTest/QtTest>

#include <sanitizer/lsan_interface.h>

#include <array>
#include <dlfcn.h>

class TestUnload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leakCheck_seesLostMemory();
    void unload_losesNoMemory_andMayBeUndone();
};

namespace {
bool isLoaded(const char* library)
{
    void* const handle = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        dlclose(handle);
    return handle != nullptr;
}
} // namespace

void TestUnload::leakCheck_seesLostMemory()
{
    // Turned round, they are no pointers that the checker knows.
    std::array<uintptr_t, 100> lost{};
    for (uintptr_t& pointer : lost)
        pointer = ~reinterpret_cast<uintptr_t>(new char[100]);
    const int code = __lsan_do_recoverable_leak_check();
    for (const uintptr_t pointer : lost)
        delete[] reinterpret_cast<char*>(~pointer);
    QVERIFY(code != 0);
}

void TestUnload::unload_losesNoMemory_andMayBeUndone()
{
    const QTemporaryDir folder;
    const QByteArray gif = QFile::encodeName(folder.filePath(QStringLiteral("a.gif")));
    const QByteArray result = QFile::encodeName(folder.filePath(QStringLiteral("b.gif")));
    writeFile(QFile::decodeName(gif), GifWriter(64, 48).greys(5, 4).finished());

    QLibrary host(QString::fromUtf8(kUnloadHost));
    QVERIFY(!isLoaded(MULTIMEDIA_SONAME));
    QVERIFY2(host.load(), qPrintable(host.errorString()));
    QVERIFY(isLoaded(MULTIMEDIA_SONAME));
    const auto use =
        reinterpret_cast<bool (*)(const char*, const char*, const char*)>(host.resolve("useLibrary"));
    QVERIFY(use);
    QVERIFY(use(QFile::encodeName(media("base.mp4")).constData(), gif.constData(), result.constData()));
    QVERIFY(host.unload());
    QVERIFY(!isLoaded(kUnloadHost));
    QVERIFY2(isLoaded(MULTIMEDIA_SONAME), "Qt has pointers into it");
    QCOMPARE(__lsan_do_recoverable_leak_check(), 0);

    QVERIFY(host.load());
    QVERIFY(host.resolve("useLibrary"));
    QVERIFY(host.unload());
}

QTEST_MAIN(TestUnload)
#include "test_unload.moc"
