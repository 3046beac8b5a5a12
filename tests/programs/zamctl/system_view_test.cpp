#include "system_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;

class HostSystem : public ::testing::Test {
protected:
    zam_test::TemporaryFolder scratch_;
    std::filesystem::path directory_ = scratch_.Path();
    HostSystemView system_;
};

TEST_F(HostSystem, TellsKindOwnerAndModeOfFiles) {
    ASSERT_EQ(::chmod(directory_.c_str(), 0750), 0);
    const FileLook directory = system_.Look(directory_);
    ASSERT_TRUE(directory.status.has_value());
    EXPECT_EQ(directory.status->kind, FileKind::Directory);
    EXPECT_EQ(directory.status->owner, ::geteuid());
    EXPECT_EQ(directory.status->mode, 0750U);

    std::filesystem::create_directory_symlink(directory_, directory_ / "link");
    EXPECT_EQ(system_.Look(directory_ / "link").status->kind, FileKind::SymbolicLink);
    std::ofstream(directory_ / "file") << "text";
    EXPECT_EQ(system_.Look(directory_ / "file").status->kind, FileKind::Other);
}

TEST_F(HostSystem, TellsASocket) {
    const std::string path = directory_ / "s";
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ::close(socket);
    EXPECT_EQ(system_.Look(path).status->kind, FileKind::Socket);
}

TEST_F(HostSystem, SaysWhyAFileCannotBeLookedAt) {
    const FileLook missing = system_.Look(directory_ / "missing");
    EXPECT_FALSE(missing.status.has_value());
    EXPECT_TRUE(missing.missing);
    EXPECT_EQ(missing.error, "No such file or directory");
    std::ofstream(directory_ / "file") << "text";
    const FileLook beneath = system_.Look(directory_ / "file" / "beneath");
    EXPECT_FALSE(beneath.status.has_value());
    EXPECT_FALSE(beneath.missing);
    EXPECT_EQ(beneath.error, "Not a directory");
}

TEST_F(HostSystem, ReadsTheEnvironment) {
    ASSERT_EQ(::setenv("ZAMCTL_TEST_VARIABLE", "value", 1), 0);
    EXPECT_EQ(system_.Variable("ZAMCTL_TEST_VARIABLE"), "value");
    ASSERT_EQ(::unsetenv("ZAMCTL_TEST_VARIABLE"), 0);
    EXPECT_EQ(system_.Variable("ZAMCTL_TEST_VARIABLE"), std::nullopt);
}

TEST_F(HostSystem, NamesUsers) {
    EXPECT_EQ(system_.User(), ::geteuid());
    EXPECT_EQ(system_.UserName(0), "root");
    EXPECT_EQ(system_.UserName(4000000000U), "");
}

TEST_F(HostSystem, FindsTheLibrariesOfThePackage) {
    const std::vector<LoadedLibrary> libraries = system_.Libraries();
    ASSERT_FALSE(libraries.empty());
    for (const LoadedLibrary& library : libraries) {
        EXPECT_THAT(library.path, HasSubstr("/libzam_"));
        EXPECT_FALSE(std::filesystem::is_symlink(library.path));
        EXPECT_TRUE(std::filesystem::exists(library.path));
    }
}

}  // namespace
}  // namespace zamctl::test
