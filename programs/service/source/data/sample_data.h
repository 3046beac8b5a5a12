#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zam_service {

/// A file of the built-in sample, with comments for whoever edits it.
struct SampleFile {
    std::string_view name;
    std::string_view text;
};

/// The sample: what a management server could have delivered, and everything else as with an empty
/// folder. Static storage.
std::span<const SampleFile> SampleFiles() noexcept;

/// Writes the sample to the folder `path`, which is made when it is missing (its last component
/// only). Throws `zam_platform::PlatformError`, with nothing written, when one of its files is
/// there already. Blocks.
void WriteSample(const std::string& path);

/// A private folder with the sample, removed with everything in it when the object goes. Throws
/// `zam_platform::PlatformError`. Blocks.
class TemporarySample {
public:
    TemporarySample();
    TemporarySample(const TemporarySample&) = delete;
    TemporarySample& operator=(const TemporarySample&) = delete;
    ~TemporarySample();

    const std::string& Path() const noexcept { return path_; }

private:
    std::string path_;
};

}  // namespace zam_service
