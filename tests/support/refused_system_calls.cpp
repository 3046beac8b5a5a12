#include "support/refused_system_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
#include <cstddef>

#include "support/require.h"

namespace zam_platform::testing {
namespace {

constexpr std::uint16_t kLoad = BPF_LD | BPF_W | BPF_ABS;
constexpr std::uint16_t kMask = BPF_ALU | BPF_AND | BPF_K;
constexpr std::uint16_t kCompare = BPF_JMP | BPF_JEQ | BPF_K;
constexpr std::uint16_t kGive = BPF_RET | BPF_K;

constexpr std::uint32_t OffsetOf(unsigned argument) noexcept {
    const std::size_t lower = std::endian::native == std::endian::big ? 4 : 0;
    return static_cast<std::uint32_t>(offsetof(seccomp_data, args) +
                                      argument * sizeof(std::uint64_t) + lower);
}

}  // namespace

void RefuseSystemCall(long number, int error, const std::vector<ArgumentIs>& where) {
    std::vector<sock_filter> filter;
    const auto add = [&filter](std::uint16_t code, std::uint32_t value) {
        filter.push_back({.code = code, .jt = 0, .jf = 0, .k = value});
    };
    add(kLoad, offsetof(seccomp_data, nr));
    add(kCompare, static_cast<std::uint32_t>(number));
    for (const ArgumentIs& argument : where) {
        add(kLoad, OffsetOf(argument.index));
        add(kMask, argument.mask);
        add(kCompare, argument.bits);
    }
    add(kGive, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error));
    add(kGive, SECCOMP_RET_ALLOW);
    // Whatever is not as told goes to the end.
    for (std::size_t at = 0; at < filter.size(); ++at) {
        if (filter[at].code == kCompare) {
            filter[at].jf = static_cast<std::uint8_t>(filter.size() - 1 - (at + 1));
        }
    }
    const sock_fprog program{.len = static_cast<unsigned short>(filter.size()),
                             .filter = filter.data()};
    // Whoever can't become more by another program may have one without the right to it.
    zam_test::Require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "prctl");
    zam_test::Require(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0, "seccomp");
}

}  // namespace zam_platform::testing
