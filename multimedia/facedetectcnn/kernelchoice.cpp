#include "multimedia/facedetectcnn/kernelchoice.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>

#ifdef __x86_64__
#    include <cpuid.h>
#    include <sys/syscall.h>
#    include <unistd.h>
#endif
#ifdef __aarch64__
#    include <asm/hwcap.h>
#    include <sys/auxv.h>
#endif

namespace facedetectcnn {
namespace {

#ifdef __x86_64__
bool hasAvx512Vnni()
{
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("avx512f") != 0 &&
           __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
           __builtin_cpu_supports("avx512vnni") != 0;
}

/// Linux keeps the tile registers from a process until it has asked for them.
bool isAmxGranted()
{
    constexpr unsigned kAmxTile = 1U << 24U;
    constexpr unsigned kAmxInt8 = 1U << 25U;
    constexpr long kRequestPermission = 0x1023; // ARCH_REQ_XCOMP_PERM
    constexpr long kTileData = 18;
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0 || (edx & kAmxTile) == 0 ||
        (edx & kAmxInt8) == 0)
        return false;
    return syscall(SYS_arch_prctl, kRequestPermission, kTileData) == 0;
}
#endif

struct Candidate
{
    const KernelFamily* family;
    bool (*canRun)();
};

/// What was built, best first, but for the reference.
std::vector<Candidate> candidates()
{
    return {
#ifdef __x86_64__
        {&kAmxKernels, [] { return hasAvx512Vnni() && isAmxGranted(); }},
        {&kAvx512VnniKernels, hasAvx512Vnni},
        {&kAvx2Kernels, [] { return __builtin_cpu_supports("avx2") != 0; }},
#endif
#ifdef __aarch64__
        {&kNeonDotKernels, [] { return (getauxval(AT_HWCAP) & HWCAP_ASIMDDP) != 0; }},
#endif
    };
}

constexpr char kSwitch[] = "MULTIMEDIA_FACE_KERNELS_OFF";

/// Null while the best family is in use.
std::atomic<const KernelFamily*> forced_family = nullptr;
/// Null until one has been told.
std::atomic<const KernelFamily*> settled_family = nullptr;

} // namespace

std::vector<const KernelFamily*> findKernelFamilies(std::string switchedOff)
{
    std::replace(switchedOff.begin(), switchedOff.end(), ',', ' ');
    std::istringstream words(switchedOff);
    std::vector<std::string> names{std::istream_iterator<std::string>(words), {}};

    std::vector<const KernelFamily*> families;
    for (const Candidate& candidate : candidates()) {
        const auto name = std::find(names.begin(), names.end(), candidate.family->name);
        if (name != names.end())
            names.erase(name);
        else if (candidate.canRun())
            families.push_back(candidate.family);
    }
    families.push_back(&kScalarKernels);
    for (const std::string& name : names)
        std::fprintf(stderr, "%s: there are no kernels \"%s\" to switch off\n", kSwitch, name.c_str());
    return families;
}

const std::vector<const KernelFamily*>& kernelFamilies()
{
    // Never destroyed: a thread may still look for faces while the process ends.
    static const auto& families = *new const std::vector<const KernelFamily*>([] {
        const char* const off = std::getenv(kSwitch);
        return findKernelFamilies(off ? off : "");
    }());
    return families;
}

const KernelFamily& kernelFamily()
{
    if (const KernelFamily* const forced = forced_family)
        return *forced;
    const KernelFamily* const settled = settled_family;
    return settled ? *settled : *kernelFamilies().front();
}

void settleKernelFamily(const KernelFamily& family)
{
    settled_family = &family;
}

void forceKernelFamily(const KernelFamily* family)
{
    forced_family = family;
}

} // namespace facedetectcnn
