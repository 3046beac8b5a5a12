#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>

namespace zam_connector::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHasMemoryOfItsOwn = false;
#elif defined(__has_feature)
inline constexpr bool kHasMemoryOfItsOwn =
    !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
/// Whether a process's memory is its own doing: sanitizers keep what is freed, and shadow the rest.
inline constexpr bool kHasMemoryOfItsOwn = true;
#endif

/// What a process takes of the system.
struct ProcessMeasures {
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t residentKiB = 0;

    static ProcessMeasures Of(pid_t process) {
        const std::string folder = "/proc/" + std::to_string(process);
        const auto entries = [&folder](const char* name) {
            const std::filesystem::directory_iterator all(folder + name);
            return static_cast<std::size_t>(std::distance(begin(all), end(all)));
        };
        std::size_t sizePages = 0;
        std::size_t residentPages = 0;
        std::ifstream(folder + "/statm") >> sizePages >> residentPages;
        const auto pageBytes = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        return {entries("/fd"), entries("/task"), residentPages * pageBytes / 1024};
    }
};

inline std::ostream& operator<<(std::ostream& out, const ProcessMeasures& measures) {
    return out << measures.descriptors << " descriptors, " << measures.threads << " threads, "
               << measures.residentKiB << " KiB";
}

}  // namespace zam_connector::test
