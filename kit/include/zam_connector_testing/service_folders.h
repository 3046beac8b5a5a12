#pragma once

#include <string>

namespace zam_connector::testing {

/// A private temporary folder with what a service of a test needs: a runtime directory and a data
/// folder, which is empty. Removed with everything in it when the object goes. `ServiceProcess` and
/// `InProcessService` have one each. One thread at a time.
class ServiceFolders {
public:
    /// Throws `std::runtime_error`.
    ServiceFolders();
    ServiceFolders(const ServiceFolders&) = delete;
    ServiceFolders& operator=(const ServiceFolders&) = delete;
    ~ServiceFolders();

    const std::string& RuntimeDirectory() const noexcept { return runtimeDirectory_; }
    const std::string& DataDirectory() const noexcept { return dataDirectory_; }

    /// Writes a file of the data folder: under a temporary name, then renamed. `name` may be in a
    /// sub-folder, which is made when it is missing. Throws `std::runtime_error`.
    void WriteData(const std::string& name, const std::string& content) const;

    /// Content of a file of the data folder; empty when there is none.
    std::string ReadData(const std::string& name) const;

    /// Path of a file beside the two folders, and its content.
    std::string Path(const std::string& name) const { return folder_ + "/" + name; }
    std::string Read(const std::string& name) const;

private:
    std::string folder_;
    std::string runtimeDirectory_;
    std::string dataDirectory_;
};

}  // namespace zam_connector::testing
