#include "multimedia/facedetectcnn/kernelchoice.h"

#include <atomic>

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

std::vector<const KernelFamily*> findFamilies()
{
    std::vector<const KernelFamily*> families;
#ifdef __x86_64__
    if (hasAvx512Vnni() && isAmxGranted())
        families.push_back(&kAmxKernels);
    if (hasAvx512Vnni())
        families.push_back(&kAvx512VnniKernels);
    if (__builtin_cpu_supports("avx2") != 0)
        families.push_back(&kAvx2Kernels);
#endif
#ifdef __aarch64__
    if ((getauxval(AT_HWCAP) & HWCAP_ASIMDDP) != 0)
        families.push_back(&kNeonDotKernels);
#endif
    families.push_back(&kScalarKernels);
    return families;
}

/// Null while the best family is in use.
std::atomic<const KernelFamily*> forced_family = nullptr;

} // namespace

const std::vector<const KernelFamily*>& kernelFamilies()
{
    // Never destroyed: a thread may still look for faces while the process ends.
    static const auto& families = *new const std::vector<const KernelFamily*>(findFamilies());
    return families;
}

const KernelFamily& kernelFamily()
{
    const KernelFamily* forced = forced_family;
    return forced ? *forced : *kernelFamilies().front();
}

void forceKernelFamily(const KernelFamily* family)
{
    forced_family = family;
}

} // namespace facedetectcnn
