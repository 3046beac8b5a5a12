#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/socket_channel.h"
#include "support/descriptors.h"
#include "support/other_user.h"
#include "support/raw_socket.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "vd/runtime_directory.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/runtime_directory.h"

namespace zam_platform::testing {
namespace {

using vd::FileDiagnosis;
using vd::FileFault;
using vd::RuntimeDirectoryDiagnosis;
using zam_test::kSomebodyElse;
using zam_test::ScopedEnvironment;
using zam_test::TemporaryFolder;

/// Whether a function throws no `PlatformError`.
template <typename Function>
bool Succeeds(Function function) {
    try {
        function();
        return true;
    } catch (const PlatformError&) {
        return false;
    }
}

class RuntimeDirectoryDiagnosisTest : public ::testing::Test {
protected:
    /// What is said of a directory, which must be what the library says of it when it connects.
    static RuntimeDirectoryDiagnosis Diagnose(const std::string& path,
                                              const std::vector<std::string>& services = {}) {
        const ScopedEnvironment own("ZAM_RUNTIME_DIR", path);
        RuntimeDirectoryDiagnosis diagnosis = vd::DiagnoseRuntimeDirectory(services);
        EXPECT_EQ(diagnosis.directory.fault == FileFault::None,
                  Succeeds([&path] { const RuntimeDirectory directory(path); }))
            << path;
        return diagnosis;
    }

    static FileFault FaultOf(const std::string& path) { return Diagnose(path).directory.fault; }

    /// What is said of the socket of the service "svc", likewise.
    FileDiagnosis DiagnoseSocket() const {
        const RuntimeDirectoryDiagnosis diagnosis = Diagnose(temp_.Path(), {"svc"});
        EXPECT_EQ(diagnosis.sockets.size(), 1U);
        const FileDiagnosis socket =
            diagnosis.sockets.empty() ? FileDiagnosis{} : diagnosis.sockets.front();
        EXPECT_EQ(socket.path, temp_.Path("svc.sock"));
        EXPECT_EQ(socket.fault == FileFault::None,
                  Succeeds([this] { ConnectToService(RuntimeDirectory(temp_.Path()), "svc"); }));
        return socket;
    }

    TemporaryFolder temp_;
};

TEST_F(RuntimeDirectoryDiagnosisTest, SaysWhatChoseThePath) {
    struct Row {
        std::optional<std::string> own;
        std::optional<std::string> xdg;
        const char* path;
        const char* origin;
    };
    constexpr char kDefault[] =
        "the default, as neither ZAM_RUNTIME_DIR nor XDG_RUNTIME_DIR is set";
    const Row rows[] = {
        {"/a/b", "/x", "/a/b", "ZAM_RUNTIME_DIR"},
        {"/a/b//", "/x", "/a/b", "ZAM_RUNTIME_DIR"},
        {"", "/x", "", "ZAM_RUNTIME_DIR"},
        {{}, "/x", "/x/zam_connector", "XDG_RUNTIME_DIR, as ZAM_RUNTIME_DIR is not set"},
        {{}, "", "/run/zam_connector", kDefault},
        {{}, {}, "/run/zam_connector", kDefault},
    };
    for (const Row& row : rows) {
        const ScopedEnvironment own("ZAM_RUNTIME_DIR", row.own);
        const ScopedEnvironment xdg("XDG_RUNTIME_DIR", row.xdg);
        const RuntimeDirectoryDiagnosis diagnosis = vd::DiagnoseRuntimeDirectory({});
        EXPECT_EQ(diagnosis.directory.path, row.path);
        EXPECT_EQ(diagnosis.origin, row.origin);
    }
}

TEST_F(RuntimeDirectoryDiagnosisTest, FindsNoFaultInASoundDirectory) {
    for (const mode_t mode : {0700U, 0755U, 0500U}) {
        const FileDiagnosis directory =
            Diagnose(temp_.MakeFolder(std::to_string(mode), mode)).directory;
        EXPECT_EQ(directory.fault, FileFault::None);
        EXPECT_EQ(directory.error, "");
        EXPECT_EQ(directory.owner, ::geteuid());
        EXPECT_EQ(directory.mode, mode);
    }
}

TEST_F(RuntimeDirectoryDiagnosisTest, RefusesAPathThatIsNotAbsolute) {
    for (const char* const path : {"", "run", "./run/"}) {
        EXPECT_EQ(FaultOf(path), FileFault::NotAbsolute) << path;
    }
}

TEST_F(RuntimeDirectoryDiagnosisTest, SaysWhyADirectoryCannotBeLookedAt) {
    const FileDiagnosis missing = Diagnose(temp_.Path("missing")).directory;
    EXPECT_EQ(missing.fault, FileFault::Missing);
    EXPECT_EQ(missing.error, "No such file or directory");
    temp_.Write("file", "");
    const FileDiagnosis beneath = Diagnose(temp_.Path("file/beneath")).directory;
    EXPECT_EQ(beneath.fault, FileFault::NotReadable);
    EXPECT_EQ(beneath.error, "Not a directory");
    const FileDiagnosis tooLong = Diagnose(temp_.Path(std::string(300, 'n'))).directory;
    EXPECT_EQ(tooLong.fault, FileFault::NotReadable);
    EXPECT_EQ(tooLong.error, "File name too long");
}

TEST_F(RuntimeDirectoryDiagnosisTest, TellsALinkFromAFileWhateverSlashesAreBehindIt) {
    temp_.MakeFolder("target");
    temp_.Write("file", "");
    ASSERT_EQ(::symlink("target", temp_.Path("link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", temp_.Path("dangling").c_str()), 0);
    for (const std::string slashes : {"", "/", "///"}) {
        EXPECT_EQ(FaultOf(temp_.Path("link") + slashes), FileFault::SymbolicLink) << slashes;
        EXPECT_EQ(FaultOf(temp_.Path("dangling") + slashes), FileFault::SymbolicLink) << slashes;
        EXPECT_EQ(FaultOf(temp_.Path("file") + slashes), FileFault::WrongKind) << slashes;
        EXPECT_EQ(FaultOf(temp_.Path("target") + slashes), FileFault::None) << slashes;
    }
    EXPECT_EQ(FaultOf(temp_.Path("link/.")), FileFault::None)
        << "the link is not the last component";
}

TEST_F(RuntimeDirectoryDiagnosisTest, RefusesADirectoryThatOthersMayWrite) {
    for (const mode_t mode : {0720U, 0702U, 0777U, 01777U}) {
        const FileDiagnosis directory =
            Diagnose(temp_.MakeFolder(std::to_string(mode), mode)).directory;
        EXPECT_EQ(directory.fault, FileFault::OthersWrite) << mode;
        EXPECT_EQ(directory.mode, mode);
    }
}

TEST_F(RuntimeDirectoryDiagnosisTest, RefusesADirectoryOfSomebodyElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a directory away";
    }
    const std::string path = temp_.MakeFolder("foreign", 0777);
    ASSERT_EQ(::chown(path.c_str(), kSomebodyElse, kSomebodyElse), 0);
    const FileDiagnosis directory = Diagnose(path).directory;
    EXPECT_EQ(directory.fault, FileFault::Owner) << "which comes before the mode";
    EXPECT_EQ(directory.owner, kSomebodyElse);
}

TEST_F(RuntimeDirectoryDiagnosisTest, FindsNoFaultInASocket) {
    const RawListener listener(temp_.Path("svc.sock"));
    const FileDiagnosis socket = DiagnoseSocket();
    EXPECT_EQ(socket.fault, FileFault::None);
    EXPECT_EQ(socket.owner, ::geteuid());
}

TEST_F(RuntimeDirectoryDiagnosisTest, MissesASocket) {
    const FileDiagnosis socket = DiagnoseSocket();
    EXPECT_EQ(socket.fault, FileFault::Missing);
    EXPECT_EQ(socket.error, "No such file or directory");
}

TEST_F(RuntimeDirectoryDiagnosisTest, RefusesWhatIsNoSocketAndALinkToOne) {
    temp_.Write("svc.sock", "");
    EXPECT_EQ(DiagnoseSocket().fault, FileFault::WrongKind);
    ASSERT_EQ(::unlink(temp_.Path("svc.sock").c_str()), 0);
    const RawListener listener(temp_.Path("real.sock"));
    ASSERT_EQ(::symlink("real.sock", temp_.Path("svc.sock").c_str()), 0);
    EXPECT_EQ(DiagnoseSocket().fault, FileFault::WrongKind);
}

TEST_F(RuntimeDirectoryDiagnosisTest, RefusesASocketOfSomebodyElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a socket away";
    }
    const RawListener listener(temp_.Path("svc.sock"));
    ASSERT_EQ(::chown(temp_.Path("svc.sock").c_str(), kSomebodyElse, kSomebodyElse), 0);
    const FileDiagnosis socket = DiagnoseSocket();
    EXPECT_EQ(socket.fault, FileFault::Owner);
    EXPECT_EQ(socket.owner, kSomebodyElse);
}

TEST_F(RuntimeDirectoryDiagnosisTest, TellsOfEachSocketInTheOrderOfTheServices) {
    const RawListener listener(temp_.Path("second.sock"));
    const std::vector<FileDiagnosis> sockets =
        Diagnose(temp_.Path() + "/", {"first", "second", "third"}).sockets;
    ASSERT_EQ(sockets.size(), 3U);
    EXPECT_EQ(sockets[0].path, temp_.Path("first.sock"));
    EXPECT_EQ(sockets[0].fault, FileFault::Missing);
    EXPECT_EQ(sockets[1].path, temp_.Path("second.sock"));
    EXPECT_EQ(sockets[1].fault, FileFault::None);
    EXPECT_EQ(sockets[2].fault, FileFault::Missing);
}

TEST_F(RuntimeDirectoryDiagnosisTest, LooksForSocketsWhereverThereIsADirectory) {
    const RawListener listener(temp_.Path("svc.sock"));
    ASSERT_EQ(::chmod(temp_.Path().c_str(), 0777), 0);
    const RuntimeDirectoryDiagnosis open = Diagnose(temp_.Path(), {"svc"});
    EXPECT_EQ(open.directory.fault, FileFault::OthersWrite);
    ASSERT_EQ(open.sockets.size(), 1U);
    EXPECT_EQ(open.sockets.front().fault, FileFault::None);
    ASSERT_EQ(::symlink(".", temp_.Path("link").c_str()), 0);
    temp_.Write("file", "");
    for (const std::string& none :
         {temp_.Path("link"), temp_.Path("file"), temp_.Path("missing"), std::string("relative")}) {
        EXPECT_TRUE(Diagnose(none, {"svc"}).sockets.empty()) << none;
    }
}

TEST_F(RuntimeDirectoryDiagnosisTest, LooksAtNothingForANameThatNoServiceMayHave) {
    const std::string inner = temp_.MakeFolder("inner");
    const RawListener listener(temp_.Path("svc.sock"));
    const std::vector<FileDiagnosis> sockets = Diagnose(inner, {"../svc", ""}).sockets;
    ASSERT_EQ(sockets.size(), 2U);
    EXPECT_EQ(sockets[0].fault, FileFault::NotReadable);
    EXPECT_EQ(sockets[0].error, "service name '../svc' begins with a dot");
    EXPECT_EQ(sockets[1].fault, FileFault::NotReadable);
    EXPECT_EQ(sockets[1].error, "service name is empty");
}

TEST_F(RuntimeDirectoryDiagnosisTest, KeepsNoDescriptorOpen) {
    const RawListener listener(temp_.Path("svc.sock"));
    const std::set<int> before = OpenDescriptors();
    Diagnose(temp_.Path(), {"svc"});
    EXPECT_EQ(Describe(NewSince(before)), "");
}

}  // namespace
}  // namespace zam_platform::testing
