#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/mediacheck.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <algorithm>
#include <random>

namespace {

constexpr int kPatience_ms = 60'000;
constexpr int kLongestDelay_ms = 700;
const QStringList kWorks{"clip", "compress", "convert",   "devices", "edit",  "faces", "gif",
                         "mask", "play",     "recognize", "screen",  "strip", "voice", "changed-voice"};
const QStringList kEnds{"return", "noloop", "exit", "release", "after"};

} // namespace

/// Processes that end in the midst of their work.
class TestProcessEnd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void end_isClean_whateverIsAtWork();

private:
    static void verifyResults(const QDir& folder);
};

/// Every file is whole, and nothing is left of the making of others.
void TestProcessEnd::verifyResults(const QDir& folder)
{
    for (const QFileInfo& file : folder.entryInfoList(QDir::Files | QDir::Hidden)) {
        const InCase in_case(file.fileName());
        static const QStringList suffixes{"mp4", "gif", "png", "jpg", "jpeg", "aac"};
        QVERIFY(suffixes.contains(file.suffix()) && !file.isHidden());
        if (file.suffix() != "aac" || file.size() > 0) // a recording may have ended before it heard anything
            QCOMPARE(mediacheck::decodeErrors(file.filePath()), QString());
    }
}

/// Pairs of works; each end and each work comes about as often as the others.
void TestProcessEnd::end_isClean_whateverIsAtWork()
{
    bool is_set = false;
    int count = qEnvironmentVariableIntValue("MULTIMEDIA_ENDS", &is_set);
    if (!is_set)
        count = 35;
    bool is_seeded = false;
    unsigned seed = unsigned(qEnvironmentVariableIntValue("MULTIMEDIA_SEED", &is_seeded));
    if (!is_seeded)
        seed = std::random_device()();
    qInfo("seed %u", seed);
    std::mt19937 random(seed);

    QStringList bag;
    const auto next_work = [&] {
        if (bag.isEmpty()) {
            bag = kWorks;
            std::shuffle(bag.begin(), bag.end(), random);
        }
        return bag.takeLast();
    };
    for (int i = 0; i < count; ++i) {
        const QString delay = QString::number(random() % kLongestDelay_ms);
        const QStringList arguments{
            media(""),  dataFile("photos/astronaut.jpg"), kEnds[i % kEnds.size()], delay, next_work(),
            next_work()};
        const InCase in_case(i, arguments);
        const QTemporaryDir folder;
        QProcess host;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TMPDIR", folder.path());
        host.setProcessEnvironment(environment);
        host.setProcessChannelMode(QProcess::MergedChannels);
        host.start(kWorkHost, arguments);
        const bool has_ended = host.waitForFinished(kPatience_ms);
        const QByteArray output = host.readAll();
        QVERIFY2(has_ended, output.constData());
        QVERIFY2(host.exitStatus() == QProcess::NormalExit && host.exitCode() == 0, output.constData());
        verifyResults(QDir(folder.path()));
        if (QTest::currentTestFailed())
            return;
    }
}

QTEST_GUILESS_MAIN(TestProcessEnd)
#include "test_processend.moc"
