#include "system_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;

class HostSystem : public ::testing::Test {
protected:
    HostSystemView system_;
};

TEST_F(HostSystem, LooksAtTheRuntimeDirectoryAsTheLibraryDoes) {
    const zam_test::TemporaryFolder folder;
    const std::string link = folder.Path("link");
    std::filesystem::create_directory_symlink(".", link);
    for (const std::string& path : {folder.Path(), link, link + '/'}) {
        ASSERT_EQ(::setenv("ZAM_RUNTIME_DIR", path.c_str(), 1), 0);
        const vd::RuntimeDirectoryDiagnosis found = system_.RuntimeDirectory({"nobody"});
        EXPECT_EQ(found.origin, "ZAM_RUNTIME_DIR");
        EXPECT_EQ(found.directory.fault,
                  path == folder.Path() ? vd::FileFault::None : vd::FileFault::SymbolicLink);
        EXPECT_EQ(found.sockets.size(), path == folder.Path() ? 1U : 0U);
    }
    ASSERT_EQ(::unsetenv("ZAM_RUNTIME_DIR"), 0);
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
