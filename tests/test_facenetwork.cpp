#include "multimedia/facedetectcnn/detectionoutput.h"
#include "multimedia/facedetectcnn/facedetectcnn.h"
#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "multimedia/facedetectcnn/network.h"
#include "tests/support/faces.h"
#include "tests/support/incase.h"
#include "tests/support/slowfacenet.h"
#include "tests/support/stderrcapture.h"

#include <QtTest/QtTest>

#include <cstring>
#include <random>
#include <tuple>

namespace {

using facedetectcnn::KernelFamily;

std::vector<FaceRect_> detect(const slowfacenet::Image& image)
{
    return objectdetect_cnn(image.bytes.data(), image.width, image.height, image.step);
}

/// The library's bank, made from the slow model's weights.
void install(const slowfacenet::Model& model)
{
    init_parameters();
    std::array<ConvInfo, 24> table = param_pConvInfo;
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i].weights = model[i].weights.data();
        table[i].biases = model[i].biases.data();
    }
    facedetectcnn::buildBank(table, &g_pFilters);
}

bool isSame(const CDataBlob<std::int32_t>& head, const slowfacenet::Head& expected)
{
    CDataBlob<std::int32_t> flat;
    return blob2vector(head, &flat) && head.scale == expected.scale &&
           std::equal(expected.values.begin(), expected.values.end(), flat.data, flat.data + flat.channels);
}

void set(CDataBlob<float>* blob, const std::vector<float>& values)
{
    blob->create(1, 1, static_cast<std::int32_t>(values.size()));
    std::copy(values.begin(), values.end(), blob->data);
}

struct Candidate
{
    float score;
    float x;     ///< centre, in fractions
    float width; ///< of a square
};

/// Runs `detection_output` on priors that need no correction, and gives the scores of what is kept.
std::vector<float> keptScores(const std::vector<Candidate>& candidates, int topK, int keepTopK)
{
    std::vector<float> priors;
    std::vector<float> confidences;
    for (const Candidate& candidate : candidates) {
        const float half = candidate.width * 0.5F;
        for (const float value : {candidate.x - half, 0.5F - half, candidate.x + half, 0.5F + half})
            priors.push_back(value);
        confidences.push_back(1.0F - candidate.score);
        confidences.push_back(candidate.score);
    }
    CDataBlob<float> prior;
    CDataBlob<float> loc;
    CDataBlob<float> conf;
    set(&prior, priors);
    set(&loc, std::vector<float>(candidates.size() * 14, 0.0F));
    set(&conf, confidences);
    CDataBlob<float> output;
    detection_output(prior, loc, conf, 0.3F, 0.5F, topK, keepTopK, &output);
    std::vector<float> scores;
    scores.reserve(static_cast<std::size_t>(output.width));
    for (int i = 0; i < output.width; ++i)
        scores.push_back(output.pixel(i, 0)[0]);
    return scores;
}

} // namespace

class TestFaceNetwork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { facedetectcnn::forceKernelFamily(nullptr); }

    void heads_areSlowModels();
    void detect_readsNothingOutside_forAnySize();
    void detect_findsNothing_below63Pixels();
    void detect_findsNothing_inBadInput();
    void detect_findsNothing_afterDeadLayer();
    void detectionOutput_keepsAndSuppresses();
    void detectionOutput_clipsBoxesButNotLandmarks();
    void facedetectCnn_fillsRecords();
};

void TestFaceNetwork::heads_areSlowModels()
{
    for (const auto& [width, height, padding] :
         {std::tuple(63, 63, 0), {157, 131, 7}, {259, 66, 1}, {65, 240, 0}}) {
        const InCase in_case(width, height, padding);
        const auto seed = static_cast<std::uint32_t>(width);
        const slowfacenet::Model model = slowfacenet::randomModel(seed);
        const slowfacenet::Image image = slowfacenet::randomImage(seed, width, height, padding);
        install(model);
        const std::vector<slowfacenet::Branch> expected = slowfacenet::run(model, image);
        const std::vector<FaceRect_> faces = slowfacenet::decode(expected, image);
        QVERIFY2(!faces.empty(), "the seed is good for nothing");

        for (const KernelFamily* family : facedetectcnn::kernelFamilies()) {
            facedetectcnn::forceKernelFamily(family);
            facedetectcnn::Branches branches;
            facedetectcnn::runNetwork(image.bytes.data(), width, height, image.step, &branches);
            for (std::size_t i = 0; i < branches.size(); ++i) {
                QVERIFY2(isSame(branches[i].locations, expected[i].location), family->name);
                QVERIFY2(isSame(branches[i].confidences, expected[i].confidence), family->name);
                CDataBlob<float> priors;
                blob2vector(branches[i].priors, &priors);
                QVERIFY(std::equal(expected[i].priors.begin(), expected[i].priors.end(), priors.data));
            }
            QVERIFY2(isSame(detect(image), faces), family->name);
        }
    }
}

void TestFaceNetwork::detect_readsNothingOutside_forAnySize()
{
    std::mt19937 generator(7);
    install(slowfacenet::randomModel(7)); // the larger images have more candidates than are looked at
    StderrCapture errors;
    for (std::uint32_t i = 0; i < 24; ++i) {
        const int limit = i % 3 == 0 ? 8 : 480;
        const auto width = static_cast<int>(1 + generator() % limit);
        const auto height = static_cast<int>(1 + generator() % limit);
        const slowfacenet::Image image =
            slowfacenet::randomImage(i, width, height, static_cast<int>(generator() % 4));
        std::vector<FaceRect_> expected;
        for (const KernelFamily* family : facedetectcnn::kernelFamilies()) {
            if (family == &facedetectcnn::kScalarKernels && width * height > 80000)
                continue;
            facedetectcnn::forceKernelFamily(family);
            const std::vector<FaceRect_> faces = detect(image);
            if (family == facedetectcnn::kernelFamilies().front())
                expected = faces;
            QVERIFY2(isSame(faces, expected), family->name);
            QVERIFY(faces.size() <= 100 && (faces.empty() || (width >= 63 && height >= 63)));
        }
    }
}

void TestFaceNetwork::detect_findsNothing_below63Pixels()
{
    StderrCapture errors;
    QVERIFY(detect(slowfacenet::randomImage(1, 62, 62, 0)).empty());
    QVERIFY(QString::fromStdString(errors.text()).endsWith("\ndetection_output: The input data is null.\n"));
}

void TestFaceNetwork::detect_findsNothing_inBadInput()
{
    const unsigned char byte = 0;
    StderrCapture errors;
    QVERIFY(objectdetect_cnn(nullptr, 100, 100, 300).empty());
    QVERIFY(
        QString::fromStdString(errors.text()).startsWith(QStringLiteral("The input image data is null.\n")));
    QVERIFY(objectdetect_cnn(&byte, 0, 0, 0).empty());
    QVERIFY(objectdetect_cnn(&byte, -5, -5, 0).empty());
}

void TestFaceNetwork::detect_findsNothing_afterDeadLayer()
{
    slowfacenet::Model model = slowfacenet::randomModel(3);
    std::fill(model[5].weights.begin(), model[5].weights.end(), static_cast<signed char>(-1));
    std::fill(model[5].biases.begin(), model[5].biases.end(), -1);
    install(model);
    StderrCapture errors;
    QVERIFY(detect(slowfacenet::randomImage(3, 100, 100, 0)).empty());
    QCOMPARE(errors.text(), std::string());
}

void TestFaceNetwork::detectionOutput_keepsAndSuppresses()
{
    struct Case
    {
        const char* name;
        std::vector<Candidate> candidates;
        int topK, keepTopK;
        std::vector<float> kept;
    };
    const std::vector<Candidate> pairAndSmall = {
        {0.9375F, 0.5F, 0.25F}, {0.875F, 0.5F, 0.25F}, {0.75F, 0.25F, 0.125F}};
    const std::vector<Case> cases = {
        {"score of 0.5 is no candidate", {{0.5F, 0.5F, 0.5F}, {0.75F, 0.5F, 0.5F}}, 1000, 100, {0.75F}},
        {"best wins", {{0.75F, 0.5F, 0.5F}, {0.875F, 0.5F, 0.5F}}, 1000, 100, {0.875F}},
        {"apart", {{0.75F, 0.25F, 0.25F}, {0.875F, 0.75F, 0.25F}}, 1000, 100, {0.875F, 0.75F}},
        {"edges touch", {{0.75F, 0.25F, 0.5F}, {0.875F, 0.75F, 0.5F}}, 1000, 100, {0.875F, 0.75F}},
        {"suppressed boxes do not suppress",
         {{0.9375F, 0.25F, 0.25F}, {0.875F, 0.375F, 0.25F}, {0.75F, 0.5F, 0.25F}},
         1000,
         100,
         {0.9375F, 0.75F}},
        {"cut before suppression", pairAndSmall, 2, 100, {0.9375F}},
        {"cut after suppression", pairAndSmall, -1, 2, {0.9375F, 0.75F}},
        {"nothing to keep", {{0.9375F, 0.5F, 0.25F}}, -1, 0, {}},
        {"no limits", {{0.9375F, 0.25F, 0.25F}, {0.875F, 0.75F, 0.25F}}, -1, -1, {0.9375F, 0.875F}}};
    for (const Case& one : cases)
        QVERIFY2(keptScores(one.candidates, one.topK, one.keepTopK) == one.kept, one.name);
}

void TestFaceNetwork::detectionOutput_clipsBoxesButNotLandmarks()
{
    // Two priors of one score on the same place: the first stays. Its corrections push it over the upper left
    // corner.
    CDataBlob<float> prior;
    CDataBlob<float> loc;
    CDataBlob<float> conf;
    set(&prior, {0.0F, 0.0F, 0.5F, 0.5F, 0.0F, 0.0F, 0.5F, 0.5F});
    std::vector<float> corrections(28, 0.0F);
    corrections[0] = -5.0F;
    corrections[3] = 5.0F;
    corrections[4] = -10.0F;
    corrections[13] = 25.0F;
    set(&loc, corrections);
    set(&conf, {0.0F, 1.0F, 0.0F, 1.0F});
    CDataBlob<float> output;
    QVERIFY(detection_output(prior, loc, conf, 0.3F, 0.5F, 1000, 100, &output));
    QCOMPARE(output.channels, 15);
    const float* face = output.data;
    QCOMPARE(face[1], 0.0F);
    QCOMPARE(face[2], 0.0F);
    QCOMPARE(face[3], 0.25F);
    QCOMPARE(face[4], std::exp(1.0F) * 0.5F * 0.5F + 0.25F);
    QCOMPARE(face[5], -0.25F);
    QCOMPARE(face[14], 1.5F);

    set(&conf, {1.0F, 0.0F, 1.0F, 0.0F});
    QVERIFY(detection_output(prior, loc, conf, 0.3F, 0.5F, 1000, 100, &output));
    QVERIFY(!output.data && output.width == 0);

    // Overlapping by exactly the threshold is not yet too much.
    set(&prior, {0.0F, 0.0F, 1.0F, 0.5F, 0.0F, 0.0F, 0.5F, 0.5F});
    set(&loc, std::vector<float>(28, 0.0F));
    set(&conf, {0.0F, 1.0F, 0.25F, 0.75F});
    QVERIFY(detection_output(prior, loc, conf, 0.5F, 0.5F, 1000, 100, &output));
    QCOMPARE(output.width, 2);
    QVERIFY(detection_output(prior, loc, conf, 0.499F, 0.5F, 1000, 100, &output));
    QCOMPARE(output.width, 1);
}

void TestFaceNetwork::facedetectCnn_fillsRecords()
{
    install(slowfacenet::randomModel(63));
    const slowfacenet::Image image = slowfacenet::randomImage(63, 300, 200, 0);
    const std::vector<FaceRect_> faces = detect(image);
    QVERIFY(!faces.empty());
    std::vector<unsigned char> buffer(72708, 0xEE);
    std::int32_t* result =
        facedetect_cnn(buffer.data(), image.bytes.data(), image.width, image.height, image.step);
    QCOMPARE(static_cast<void*>(result), static_cast<void*>(buffer.data()));
    std::int32_t count = 0;
    std::memcpy(&count, buffer.data(), sizeof(count));
    QCOMPARE(std::size_t(count), faces.size());
    for (std::size_t i = 0; i < faces.size(); ++i) {
        std::array<std::int16_t, 16> record = {};
        std::memcpy(record.data(), buffer.data() + 4 + 284 * i, sizeof(record));
        QCOMPARE(int(record[0]), static_cast<int>(faces[i].score * faces[i].score * 100.0F));
        QCOMPARE(int(record[1]), int(static_cast<std::int16_t>(faces[i].x)));
        QCOMPARE(int(record[4]), int(static_cast<std::int16_t>(faces[i].h)));
        QCOMPARE(int(record[14]), int(static_cast<std::int16_t>(faces[i].lm[9])));
        QCOMPARE(int(record[15]), int(static_cast<std::int16_t>(0xEEEE)));
    }
    StderrCapture errors;
    QVERIFY(!facedetect_cnn(nullptr, image.bytes.data(), image.width, image.height, image.step));
    QCOMPARE(errors.text(), std::string("facedetect_cnn: null buffer memory.\n"));
}

QTEST_APPLESS_MAIN(TestFaceNetwork)
#include "test_facenetwork.moc"
