// A plain program: the test frame's own threads are not clean under ThreadSanitizer.

#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "multimedia/facedetectcnn/network.h"
#include "tests/support/slowfacenet.h"

#include <cstdio>
#include <thread>

namespace {

using Heads = std::vector<std::int32_t>;

/// All that the network says, whether or not there is a face in it.
Heads heads(const slowfacenet::Image& image)
{
    facedetectcnn::Branches branches;
    facedetectcnn::runNetwork(image.bytes.data(), image.width, image.height, image.step, &branches);
    Heads values;
    for (const facedetectcnn::Branch& branch : branches) {
        for (const auto* head : {&branch.locations, &branch.confidences}) {
            CDataBlob<std::int32_t> flat;
            blob2vector(*head, &flat);
            values.insert(values.end(), flat.data, flat.data + flat.channels);
        }
    }
    return values;
}

/// Several first detections at once, while another thread changes its mind about the kernels: whoever comes
/// first builds the bank, and all get what one thread alone gets.
int parallelDetectionsGiveSerialResults()
{
    std::vector<slowfacenet::Image> images;
    images.reserve(4);
    for (int i = 0; i < 4; ++i)
        images.push_back(slowfacenet::randomImage(i, 64 + 8 * i, 72, i));
    std::vector<std::array<Heads, 3>> results(images.size());

    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < images.size(); ++i) {
        threads.emplace_back([&, i] {
            for (Heads& result : results[i])
                result = heads(images[i]);
        });
    }
    threads.emplace_back([] {
        for (int i = 0; i < 50; ++i) {
            for (const facedetectcnn::KernelFamily* family : facedetectcnn::kernelFamilies()) {
                facedetectcnn::forceKernelFamily(family);
                std::this_thread::yield();
            }
        }
        facedetectcnn::forceKernelFamily(nullptr);
    });
    for (std::thread& thread : threads)
        thread.join();

    int failures = g_pFilters[0].filters.size() == 32 ? 0 : 1;
    for (std::size_t i = 0; i < images.size(); ++i) {
        const Heads expected = heads(images[i]);
        for (const Heads& result : results[i])
            failures += result == expected && !result.empty() ? 0 : 1;
    }
    return failures;
}

} // namespace

int main()
{
    const int failures = parallelDetectionsGiveSerialResults();
    if (failures > 0)
        std::fprintf(stderr, "%d results differ from those of one thread, or are empty\n", failures);
    return failures == 0 ? 0 : 1;
}
