#include "multimedia/imageedit/hslkernel.h"
#include "multimedia/imageedit/imagehsl.h"
#include "tests/support/logcapture.h"

#include <QtGui/QColor>
#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <algorithm>
#include <array>
#include <limits>
#include <random>
#include <vector>

using ImageEdit::HslOffsets;

/// The rule itself: one QColor, pixel after pixel.
static std::vector<uint32_t> adjustedByQColor(std::vector<uint32_t> pixels, const HslOffsets& offsets)
{
    const auto clamped = [](double value) { return std::clamp(value, 0.0, 1.0); };
    QColor color;
    for (uint32_t& pixel : pixels) {
        color.setRed(int(pixel >> 16 & 0xff));
        color.setGreen(int(pixel >> 8 & 0xff));
        color.setBlue(int(pixel & 0xff));
        color.setHslF(clamped(color.hueF() + offsets.hue), clamped(color.saturationF() + offsets.saturation),
                      clamped(color.lightnessF() + offsets.lightness), 1.0);
        color.setAlpha(int(pixel >> 24));
        pixel = color.rgba();
    }
    return pixels;
}

/// Every grey and random colours, each with a random alpha.
static std::vector<uint32_t> samplePixels(int random_count)
{
    const unsigned seed = std::random_device{}();
    qInfo("seed %u", seed);
    std::mt19937 random(seed);
    std::vector<uint32_t> pixels;
    for (uint32_t grey = 0; grey < 256; ++grey)
        pixels.push_back((random() & 0xff000000) | grey * 0x010101);
    for (int i = 0; i < random_count; ++i)
        pixels.push_back(uint32_t(random()));
    return pixels;
}

class TestImageHsl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyKernel_equalsQColor_forGridOfOffsets();
    void everyKernel_leavesNeighboursAlone_forAnyLength();
    void bothVariants_equalQColor_eachWithItsOwnNarrowing();
    void modifyHsl_changesNothing_whenItCannotWork();
};

void TestImageHsl::everyKernel_equalsQColor_forGridOfOffsets()
{
    constexpr std::array kSteps{-1.0, -0.37, -1.0 / 3.0, -0.002, 0.0, 0.1, 0.5, 1.0};
    const std::vector<uint32_t> pixels = samplePixels(1000);
    for (double hue : kSteps) {
        for (double saturation : kSteps) {
            for (double lightness : kSteps) {
                const HslOffsets offsets{hue, saturation, lightness};
                const std::vector<uint32_t> expected = adjustedByQColor(pixels, offsets);
                for (const ImageEdit::HslKernel& kernel : ImageEdit::hslKernels()) {
                    std::vector<uint32_t> got = pixels;
                    kernel.adjust(got.data(), got.size(), offsets);
                    const auto [wrong, right] = std::mismatch(got.begin(), got.end(), expected.begin());
                    QVERIFY2(wrong == got.end(), qPrintable(QString("%1 at %2 %3 %4, pixel %5")
                                                                .arg(kernel.name)
                                                                .arg(hue)
                                                                .arg(saturation)
                                                                .arg(lightness)
                                                                .arg(wrong - got.begin())));
                }
            }
        }
    }
}

void TestImageHsl::everyKernel_leavesNeighboursAlone_forAnyLength()
{
    const HslOffsets offsets{0.2, -0.1, 0.3};
    const std::vector<uint32_t> pixels = samplePixels(40);
    const std::vector<uint32_t> adjusted = adjustedByQColor(pixels, offsets);
    for (const ImageEdit::HslKernel& kernel : ImageEdit::hslKernels()) {
        for (size_t count = 0; count <= 33; ++count) {
            std::vector<uint32_t> expected = pixels;
            std::copy_n(adjusted.begin() + 1, count, expected.begin() + 1);
            std::vector<uint32_t> got = pixels;
            kernel.adjust(got.data() + 1, count, offsets);
            QCOMPARE(got, expected);
        }
    }
}

void TestImageHsl::bothVariants_equalQColor_eachWithItsOwnNarrowing()
{
    const std::vector<uint32_t> pixels = samplePixels(131 * 97);
    for (const bool threaded : {false, true}) {
        // 0.1 and its neighbours: their float form differs.
        for (double offset : {0.1, -0.3, 0.7, 1e-5}) {
            QImage image(131, 97, QImage::Format_ARGB32);
            memcpy(image.bits(), pixels.data(), size_t(image.sizeInBytes()));
            const QImage shared = image;
            modifyImageHslInThread(image, offset, -offset, offset, threaded);

            const double used = threaded ? double(float(offset)) : offset;
            const std::vector<uint32_t> expected = adjustedByQColor(pixels, {used, -used, used});
            QVERIFY(memcmp(image.constBits(), expected.data(), size_t(image.sizeInBytes())) == 0);
            QVERIFY(memcmp(shared.constBits(), pixels.data(), size_t(shared.sizeInBytes())) == 0);
        }
    }
}

void TestImageHsl::modifyHsl_changesNothing_whenItCannotWork()
{
    for (bool threaded : {false, true}) {
        QImage empty;
        modifyImageHslInThread(empty, 0.1, 0.1, 0.1, threaded);
        QVERIFY(empty.isNull());

        const LogCapture log;
        QImage narrow(5, 5, QImage::Format_RGB888);
        narrow.fill(Qt::red);
        const QImage before = narrow.copy();
        modifyImageHslInThread(narrow, 0.1, 0.1, 0.1, threaded);
        QCOMPARE(narrow, before);
        QCOMPARE(log.count("[modifyHsl]:\timage has not 32 bits a pixel"), 1);

        QImage image(5, 5, QImage::Format_RGB32);
        image.fill(Qt::red);
        const QImage red = image.copy();
        modifyImageHslInThread(image, std::numeric_limits<double>::quiet_NaN(), 0, 0, threaded);
        QCOMPARE(image, red);
        QCOMPARE(log.count("[modifyHsl]:\toffset is not a number"), 1);

        modifyImageHslInThread(image, 0, 0, std::numeric_limits<double>::infinity(), threaded);
        QCOMPARE(image.pixel(2, 2), 0xffffffffU);
    }
}

QTEST_GUILESS_MAIN(TestImageHsl)
#include "test_imagehsl.moc"
