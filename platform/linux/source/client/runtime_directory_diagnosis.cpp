#include <utility>

#include "vd/runtime_directory.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/runtime_directory.h"

namespace zam_platform {
namespace {

vd::FileDiagnosis DiagnosisOf(std::string path, const ExaminedFile& file) {
    return {std::move(path), file.fault,
            file.error == 0 ? std::string() : PosixErrorText(file.error), file.status.st_uid,
            file.status.st_mode & 07777U};
}

vd::FileDiagnosis DiagnoseSocket(const ExaminedFile& directory, const std::string& service) {
    const std::string name = SocketName(service);
    std::string path = directory.path + '/' + name;
    try {
        CheckServiceName(service);
    } catch (const PlatformError& refusal) {
        return {std::move(path), vd::FileFault::NotReadable, refusal.what(), 0, 0};
    }
    return DiagnosisOf(std::move(path),
                       ExamineSocket(directory.descriptor.Get(), directory.status.st_uid, name));
}

}  // namespace
}  // namespace zam_platform

vd::RuntimeDirectoryDiagnosis vd::DiagnoseRuntimeDirectory(
    const std::vector<std::string>& services) {
    zam_platform::RuntimeDirectoryChoice choice = zam_platform::ChooseRuntimeDirectory();
    const zam_platform::ExaminedFile directory =
        zam_platform::ExamineDirectory(std::move(choice.path));
    RuntimeDirectoryDiagnosis diagnosis{
        choice.origin, zam_platform::DiagnosisOf(directory.path, directory), {}};
    if (S_ISDIR(directory.status.st_mode)) {
        for (const std::string& service : services) {
            diagnosis.sockets.push_back(zam_platform::DiagnoseSocket(directory, service));
        }
    }
    return diagnosis;
}
