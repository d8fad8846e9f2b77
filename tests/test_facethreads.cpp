// A plain program: the test frame's own threads are not clean under ThreadSanitizer.

#include "multimedia/facedetectcnn/facedetectcnn.h"
#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "tests/support/slowfacenet.h"

#include <cstdio>
#include <cstring>
#include <thread>

namespace {

using Faces = std::vector<FaceRect_>;

bool isSame(const Faces& a, const Faces& b)
{
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

Faces detect(const slowfacenet::Image& image)
{
    return objectdetect_cnn(image.bytes.data(), image.width, image.height, image.step);
}

/// Several first detections at once, while another thread changes its mind about the kernels: whoever comes
/// first builds the bank, and all get what one thread alone gets.
int parallelDetectionsGiveSerialResults()
{
    std::vector<slowfacenet::Image> images;
    images.reserve(4);
    for (int i = 0; i < 4; ++i)
        images.push_back(slowfacenet::randomImage(i, 64 + 8 * i, 72, i));
    std::vector<std::array<Faces, 3>> results(images.size());

    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < images.size(); ++i) {
        threads.emplace_back([&, i] {
            for (Faces& faces : results[i])
                faces = detect(images[i]);
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
        const Faces expected = detect(images[i]);
        for (const Faces& faces : results[i])
            failures += isSame(faces, expected) && !faces.empty() ? 0 : 1;
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
