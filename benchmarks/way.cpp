#include "way.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace zam_bench {
namespace {

constexpr char kSpin[] = "ZAM_SPIN";

}  // namespace

zam_test::ScopedEnvironment Take(Way way) {
    std::optional<std::string> value;
    if (way == Way::Socket) {
        value = "0";
    } else if (const char* const present = std::getenv(kSpin); present != nullptr) {
        value = present;
    }
    return {kSpin, value};
}

}  // namespace zam_bench
