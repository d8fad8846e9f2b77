#include "multimedia/facedetectcnn/amxspan.h"
#include "multimedia/facedetectcnn/detectionoutput.h"
#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelcheck.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "tests/support/stderrcapture.h"

#include <QtTest/QtTest>

#include <cstring>
#include <limits>
#include <random>

namespace {

using facedetectcnn::ConvolutionSpan;
using facedetectcnn::KernelFamily;
using facedetectcnn::kScalarKernels;
using facedetectcnn::TileShapes;

/// The tile instructions as the processor's manual describes them, with its reasons to fault.
struct EmulatedTiles
{
    static inline TileShapes shapes;
    static inline std::array<std::array<std::array<unsigned char, 64>, 16>, 8> tiles;
    static inline int faults = 0;

    struct Largest
    {
        void take(const std::int32_t* sums, std::int32_t count, std::int32_t* target)
        {
            std::copy_n(sums, count, target);
            top = std::max(top, *std::max_element(sums, sums + 16));
        }
        std::int32_t value() const { return top; }

        std::int32_t top = 0;
    };

    static void configure(const TileShapes& wanted)
    {
        shapes = wanted;
        tiles = {};
        for (int tile = 0; tile < 8; ++tile)
            faults += wanted.rows[tile] > 16 || wanted.rowBytes[tile] > 64 ||
                      (wanted.rows[tile] == 0) != (wanted.rowBytes[tile] == 0);
    }

    template<int Tile>
    static void load(const void* first, std::ptrdiff_t rowStep)
    {
        faults += shapes.rows[Tile] == 0;
        tiles[Tile] = {};
        for (int row = 0; row < shapes.rows[Tile]; ++row)
            std::memcpy(tiles[Tile][row].data(), static_cast<const char*>(first) + row * rowStep,
                        shapes.rowBytes[Tile]);
    }

    template<int Tile>
    static void store(void* first, std::ptrdiff_t rowStep)
    {
        faults += shapes.rows[Tile] == 0;
        for (int row = 0; row < shapes.rows[Tile]; ++row)
            std::memcpy(static_cast<char*>(first) + row * rowStep, tiles[Tile][row].data(),
                        shapes.rowBytes[Tile]);
    }

    template<int Sum, int Input, int Weights>
    static void multiply()
    {
        faults += shapes.rows[Sum] == 0 || shapes.rows[Input] != shapes.rows[Sum] ||
                  shapes.rowBytes[Weights] != shapes.rowBytes[Sum] ||
                  shapes.rowBytes[Input] != 4 * shapes.rows[Weights];
        for (int m = 0; m < shapes.rows[Sum]; ++m) {
            for (int n = 0; n < shapes.rowBytes[Sum] / 4; ++n) {
                std::uint32_t sum = 0;
                std::memcpy(&sum, &tiles[Sum][m][4 * n], 4);
                for (int k = 0; k < shapes.rowBytes[Input]; ++k)
                    sum += static_cast<std::uint32_t>(
                        tiles[Input][m][k] * static_cast<signed char>(tiles[Weights][k / 4][4 * n + k % 4]));
                std::memcpy(&tiles[Sum][m][4 * n], &sum, 4);
            }
        }
    }
};

std::int32_t convolveEmulated(const ConvolutionSpan& span)
{
    return facedetectcnn::AmxSpan<EmulatedTiles>(span).convolve();
}

const KernelFamily kEmulatedAmx = {
    "emulated amx",         facedetectcnn::AmxSpan<EmulatedTiles>::kBlocksAtOnce,
    convolveEmulated,       kScalarKernels.requantise,
    kScalarKernels.poolRow, kScalarKernels.unfoldRow};

enum class Values { Random, Extreme };

/// Makes shapes and contents from one seed.
class Source
{
public:
    explicit Source(std::uint32_t seed)
        : generator(seed)
    {}

    int number(int first, int last) { return std::uniform_int_distribution<int>(first, last)(generator); }

    void fill(CDataBlob<unsigned char>* blob, int width, int height, int channels, Values values)
    {
        blob->create(width, height, channels);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                for (int c = 0; c < channels; ++c)
                    blob->pixel(x, y)[c] =
                        static_cast<unsigned char>(values == Values::Extreme ? 255 : number(0, 255));
            }
        }
        blob->scale = 0.37F;
        blob->bias =
            values == Values::Extreme ? std::numeric_limits<std::int32_t>::max() : number(-1000, 1000);
    }

    void fill(Filters* filters, int size, int channels, int count, Values values)
    {
        filters->scale = 41.5F;
        // Four products with weights of up to 32 just fit into 16 bits.
        const int limit = std::array<int, 4>{32, 33, 80, 128}[number(0, 3)];
        for (int f = 0; f < count; ++f) {
            auto filter = std::make_unique<CDataBlob<signed char>>();
            filter->create(size, size, channels);
            std::vector<signed char> planar(static_cast<std::size_t>(size) * size * channels);
            const int extreme = f % 2 == 0 ? -limit : std::min(limit, 127);
            for (signed char& weight : planar)
                weight = static_cast<signed char>(
                    values == Values::Extreme ? extreme : number(-limit, std::min(limit, 127)));
            const int bias = values == Values::Extreme ? std::numeric_limits<std::int32_t>::min() + f
                                                       : number(-100000, 100000);
            filter->setInt8FilterData(planar.data(), bias, size, size, channels);
            filters->filters.push_back(std::move(filter));
        }
        facedetectcnn::packFilters(filters);
    }

private:
    std::mt19937 generator;
};

template<class T>
bool isSame(const CDataBlob<T>& a, const CDataBlob<T>& b)
{
    return a.width == b.width && a.height == b.height && a.channels == b.channels &&
           a.channelStep == b.channelStep && a.bias == b.bias && a.scale == b.scale &&
           std::memcmp(a.data, b.data, a.pixelCount() * a.channelStep) == 0;
}

} // namespace

class TestFaceKernels : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { facedetectcnn::forceKernelFamily(nullptr); }

    void create_alignsAndPads_orComplains();
    void myFree_ignores_whatIsNotAligned();
    void families_giveBitsOfReference();
    void families_canBeSwitchedOff();
    void families_thatCalculateWrongly_arePassedOver();
    void families_unfold_asReference();
    void relu_givesZerosAndInfinity_whenNothingIsPositive();
    void convolution_complains_andLeavesOutput();
    void smallStages_complain_ofBadInput();
};

void TestFaceKernels::create_alignsAndPads_orComplains()
{
    CDataBlob<unsigned char> bytes;
    QVERIFY(bytes.create(3, 2, 27));
    QCOMPARE(bytes.channelStep, 32);
    QCOMPARE(reinterpret_cast<std::uintptr_t>(bytes.data) % 128, std::uintptr_t(0));
    for (int x = 0; x < 3; ++x)
        QVERIFY(
            std::all_of(bytes.pixel(x, 1) + 27, bytes.pixel(x, 1) + 32, [](int pad) { return pad == 0; }));
    bytes.scale = 2.0F;
    bytes.bias = 3;
    QVERIFY(bytes.create(1, 1, 16));
    QCOMPARE(bytes.channelStep, 16);
    QVERIFY(bytes.scale == 1.0F && bytes.bias == 0);

    CDataBlob<float> floats;
    QVERIFY(floats.create(0, 5, 15));
    QVERIFY(floats.data);
    StderrCapture errors;
    QVERIFY(!floats.create(std::numeric_limits<int>::max(), std::numeric_limits<int>::max(), 1 << 20));
    QVERIFY(!floats.create(-1, 4, 4));
    QCOMPARE(errors.text(),
             std::string("Failed to alloc memeory for uint8 data blob: 2147483647*2147483647*1048576\n"
                         "Failed to alloc memeory for uint8 data blob: -1*4*4\n"));
    QVERIFY(!floats.data);
}

void TestFaceKernels::myFree_ignores_whatIsNotAligned()
{
    auto* memory = static_cast<char*>(myAlloc(5000));
    QVERIFY(memory);
    QCOMPARE(reinterpret_cast<std::uintptr_t>(memory) % 128, std::uintptr_t(0));
    std::memset(memory, 1, 5000);
    myFree_(memory + 16);
    myFree_(nullptr);
    memory[4999] = 2;
    myFree_(memory);
    QVERIFY(!myAlloc(std::numeric_limits<std::size_t>::max() - 100));
}

void TestFaceKernels::families_giveBitsOfReference()
{
    std::vector<const KernelFamily*> families = facedetectcnn::kernelFamilies();
    QVERIFY(families.back() == &kScalarKernels);
    families.back() = &kEmulatedAmx;
    constexpr std::array<int, 10> kChannelCounts = {1, 3, 15, 16, 27, 32, 33, 48, 64, 100};
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        Source source(seed);
        const Values values = seed % 10 == 0 ? Values::Extreme : Values::Random;
        const int size = source.number(0, 2) == 0 ? 1 : 3;
        const int channels = kChannelCounts[source.number(0, kChannelCounts.size() - 1)];
        // Beyond 32 pixels the widest tiles get a second one; many images of up to 3 pixels are nothing but
        // border.
        const int limit = source.number(0, 2) == 0 ? 3 : 40;
        CDataBlob<unsigned char> input;
        source.fill(&input, source.number(1, limit), source.number(1, std::min(limit, 9)), channels, values);
        Filters filters;
        filters.pad = size == 1 ? 0 : 1;
        filters.stride = size == 1 ? 1 : source.number(1, 2);
        source.fill(&filters, size, channels, source.number(1, 90), values);

        CDataBlob<std::int32_t> expectedSums;
        CDataBlob<unsigned char> expectedBytes;
        facedetectcnn::forceKernelFamily(&kScalarKernels);
        QVERIFY(convolution(input, filters, &expectedSums));
        QVERIFY(convolution_relu(input, filters, &expectedBytes));
        for (const KernelFamily* family : families) {
            facedetectcnn::forceKernelFamily(family);
            CDataBlob<std::int32_t> sums;
            CDataBlob<unsigned char> bytes;
            QVERIFY(convolution(input, filters, &sums));
            QVERIFY(convolution_relu(input, filters, &bytes));
            QVERIFY2(isSame(sums, expectedSums) && isSame(bytes, expectedBytes),
                     qPrintable(QString("%1, seed %2").arg(family->name).arg(seed)));
        }
    }
    QCOMPARE(EmulatedTiles::faults, 0);
}

void TestFaceKernels::families_canBeSwitchedOff()
{
    const std::vector<const KernelFamily*> all = facedetectcnn::findKernelFamilies("");
    for (std::size_t off = 0; off + 1 < all.size(); ++off) {
        std::vector<const KernelFamily*> expected = all;
        expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(off));
        StderrCapture errors;
        QCOMPARE(facedetectcnn::findKernelFamilies(std::string("avx3, ") + all[off]->name + ",scalar"),
                 expected);
        QCOMPARE(errors.text(),
                 std::string("MULTIMEDIA_FACE_KERNELS_OFF: there are no kernels \"avx3\" to switch off\n"
                             "MULTIMEDIA_FACE_KERNELS_OFF: there are no kernels \"scalar\" to switch off\n"));
    }
}

void TestFaceKernels::families_thatCalculateWrongly_arePassedOver()
{
    Source source(1);
    Filters filters;
    filters.pad = 1;
    filters.stride = 1;
    source.fill(&filters, 3, 32, 64, Values::Random);
    // One that is wrong in its sums, one in its bytes.
    const KernelFamily badSums = {
        "bad sums",
        kEmulatedAmx.blocksAtOnce,
        [](const ConvolutionSpan& span) {
            const std::int32_t largest = convolveEmulated(span);
            span.output[0] ^= span.pixels > 32 ? 1 << 16 : 0;
            return largest;
        },
        kScalarKernels.requantise,
        kScalarKernels.poolRow,
        kScalarKernels.unfoldRow,
    };
    KernelFamily badBytes = kEmulatedAmx;
    badBytes.name = "bad bytes";
    badBytes.requantise = [](const std::int32_t* values, unsigned char* bytes, std::size_t count,
                             float ratio) {
        kScalarKernels.requantise(values, bytes, count, ratio);
        bytes[count - 1] ^= 1;
    };
    StderrCapture errors;
    QCOMPARE(&facedetectcnn::firstSoundFamily({&kEmulatedAmx, &badSums, &kScalarKernels}, filters),
             &kEmulatedAmx);
    QCOMPARE(errors.text(), std::string());
    QCOMPARE(&facedetectcnn::firstSoundFamily({&badSums, &badBytes, &kEmulatedAmx, &kScalarKernels}, filters),
             &kEmulatedAmx);
    QCOMPARE(
        errors.text(),
        std::string("face detection: the kernels \"bad sums\" calculate wrongly here and are not used\n"
                    "face detection: the kernels \"bad bytes\" calculate wrongly here and are not used\n"));
    QCOMPARE(&facedetectcnn::firstSoundFamily({&badBytes, &kScalarKernels}, filters), &kScalarKernels);
}

void TestFaceKernels::families_unfold_asReference()
{
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        Source source(seed);
        const int width = source.number(1, 40);
        const int height = source.number(1, 6);
        const int step = width * 3 + source.number(0, 5);
        // Not a byte behind the last pixel, so that a sanitizer sees every read too many.
        const std::size_t size = static_cast<std::size_t>(height - 1) * step + width * 3;
        const std::unique_ptr<unsigned char[]> image(new unsigned char[size]);
        for (std::size_t i = 0; i < size; ++i)
            image[i] = static_cast<unsigned char>(source.number(1, 255));

        for (const KernelFamily* family : facedetectcnn::kernelFamilies()) {
            facedetectcnn::forceKernelFamily(family);
            CDataBlob<unsigned char> output;
            QVERIFY(output.setDataFrom3x3S2P1to1x1S1P0FromImage(image.get(), width, height, 3, step));
            QCOMPARE(output.width, (width + 1) / 2);
            QCOMPARE(output.height, (height + 1) / 2);
            QCOMPARE(output.bias, 1);
            for (int i = 0; i < output.width * output.height * 32; ++i) {
                const int c = i % 32;
                const int x = 2 * (i / 32 % output.width) + c % 9 / 3 - 1;
                const int y = 2 * (i / 32 / output.width) + c / 9 - 1;
                const bool isInside = c < 27 && x >= 0 && x < width && y >= 0 && y < height;
                QCOMPARE(int(output.data[i]), isInside ? int(image[y * step + x * 3 + c % 3]) : 0);
            }
        }
    }
}

void TestFaceKernels::relu_givesZerosAndInfinity_whenNothingIsPositive()
{
    Source source(1);
    CDataBlob<unsigned char> input;
    source.fill(&input, 4, 4, 20, Values::Random);
    input.bias = 1;
    Filters filters;
    filters.pad = 1;
    filters.stride = 1;
    source.fill(&filters, 3, 20, 5, Values::Random);
    for (auto& filter : filters.filters)
        filter->bias = -100000000;
    facedetectcnn::packFilters(&filters);
    StderrCapture errors;
    for (const KernelFamily* family : facedetectcnn::kernelFamilies()) {
        facedetectcnn::forceKernelFamily(family);
        CDataBlob<unsigned char> output;
        QVERIFY(convolution_relu(input, filters, &output));
        QVERIFY(
            std::all_of(output.data, output.data + 4 * 4 * 16, [](unsigned char byte) { return byte == 0; }));
        QCOMPARE(output.scale, std::numeric_limits<float>::infinity());
        QCOMPARE(output.bias, std::numeric_limits<std::int32_t>::min());
    }
    QCOMPARE(errors.text(), std::string());
}

void TestFaceKernels::convolution_complains_andLeavesOutput()
{
    struct Case
    {
        int channels, size, pad, stride, filters;
        std::string text;
    };
    const std::vector<Case> cases = {
        {0, 3, 1, 1, 2, "convolution: The input data is null.\n"},
        {4, 3, 1, 1, 0, "convolution: There is not filters.\n"},
        {5, 3, 1, 1, 2,
         "convolution: The number of channels of filters must be the same with the input data. 4 vs 5\n"},
        {4, 1, 1, 2, 2, "convolution: Onle stride = 1 is supported for 1x1 filters.\n"},
        {4, 1, 1, 1, 2, "convolution: Onle pad = 0 is supported for 1x1 filters.\n"},
        {4, 5, 1, 1, 2, "convolution: Unsported filter size.\n"},
        {4, 3, 0, 2, 2,
         "convolution: Unspported filter stride=2 or pad=0\n"
         "convolution: For 3x3 filters, only pad=1 and stride={1,2} are supported.\n"}};
    for (const Case& bad : cases) {
        Source source(1);
        CDataBlob<unsigned char> input;
        if (bad.channels > 0)
            source.fill(&input, 4, 4, bad.channels, Values::Random);
        Filters bank;
        bank.pad = bad.pad;
        bank.stride = bad.stride;
        if (bad.filters > 0)
            source.fill(&bank, bad.size, 4, bad.filters, Values::Random);
        CDataBlob<std::int32_t> output;
        output.create(2, 2, 2);
        const std::int32_t* before = output.data;
        StderrCapture errors;
        QVERIFY(!convolution(input, bank, &output));
        QCOMPARE(errors.text(), bad.text);
        QCOMPARE(output.data, before);
    }
}

void TestFaceKernels::smallStages_complain_ofBadInput()
{
    Source source(1);
    CDataBlob<unsigned char> thin;
    source.fill(&thin, 1, 6, 4, Values::Random);
    CDataBlob<unsigned char> empty;
    empty.create(0, 0, 4);
    CDataBlob<unsigned char> bytes;
    CDataBlob<unsigned char> null;
    CDataBlob<std::int32_t> nullInts;
    CDataBlob<std::int32_t> ints;
    ints.create(1, 1, 4);
    CDataBlob<float> small;
    small.create(1, 1, 4);
    CDataBlob<float> large;
    large.create(2, 1, 4);
    CDataBlob<float> nullFloats;
    CDataBlob<float> output;
    Filters filters;
    filters.stride = 1;
    source.fill(&filters, 1, 4, 2, Values::Random);
    Filters uneven;
    uneven.stride = 1;
    source.fill(&uneven, 1, 4, 1, Values::Random);
    source.fill(&uneven, 3, 4, 1, Values::Random);

    CDataBlob<signed char> filter;
    filter.create(3, 3, 2);
    const std::array<signed char, 18> weights = {};
    const unsigned char pixel = 0;

    StderrCapture errors;
    QVERIFY(!filter.setInt8FilterData(nullptr, 0, 3, 3, 2));
    QVERIFY(!filter.setInt8FilterData(weights.data(), 0, 3, 2, 3));
    QVERIFY(!bytes.setDataFrom3x3S2P1to1x1S1P0FromImage(nullptr, 8, 8, 3, 24));
    QVERIFY(!bytes.setDataFrom3x3S2P1to1x1S1P0FromImage(&pixel, 8, 8, 4, 32));
    QVERIFY(!maxpooling2x2S2(null, &bytes));
    QVERIFY(!maxpooling2x2S2(thin, &bytes));
    QVERIFY(!convolution(empty, filters, &ints));
    QVERIFY(!convolution(thin, uneven, &ints));
    QVERIFY(!blob2vector(nullInts, &ints));
    QVERIFY(!blob2vector(small, static_cast<CDataBlob<float>*>(nullptr)));
    QVERIFY(!concat4(small, small, nullFloats, small, &output));
    QVERIFY(!concat4(small, small, small, large, &output));
    QVERIFY(!convertInt2Float(nullInts, &output));
    QVERIFY(!priorbox(thin, 10, 10, 8, 1, nullptr, &output));
    QVERIFY(!softmax1vector2class(nullptr));
    QVERIFY(!softmax1vector2class(&large));
    QVERIFY(!detection_output(small, small, small, 0.3F, 0.5F, 1, 1, &output));
    QCOMPARE(QString::fromStdString(errors.text()),
             QStringLiteral("The input image data is null.\n"
                            "The dimension of the data can not match that of the Blob.\n"
                            "The input image data is null.\n"
                            "The input image must be a 3-channel RGB image.\n"
                            "maxpooling2x2S2: The input data is null.\n"
                            "maxpooling2x2S2: The size of the output is not correct. (0, 3).\n"
                            "convolution: The size of the output is not correct. (0, 0).\n"
                            "convolution: The filters must be the same size.\n"
                            "blob2vector: The input or output data is null.\n"
                            "blob2vector: The input or output data is null.\n"
                            "concat4: The input data is null.\n"
                            "concat4: The three inputs must have the same size.\n"
                            "convertInt2Float: The input or output data is null.\n"
                            "priorbox: The input data is null.\n"
                            "softmax1vector2class: The input data is null.\n"
                            "softmax1vector2class: The input data must be Cx1x1.\n"
                            "detection_output: The sizes of the inputs are not match.\n"
                            "priorbox channels=4, loc channels=4, conf channels=4\n"));
}

QTEST_APPLESS_MAIN(TestFaceKernels)
#include "test_facekernels.moc"
