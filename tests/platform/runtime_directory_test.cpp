#include "zam_platform/runtime_directory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "support/other_user.h"
#include "support/raw_socket.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using zam_test::kSomebodyElse;
using zam_test::ScopedEnvironment;
using zam_test::TemporaryFolder;

/// Status and text of the error that a function ends with.
struct Outcome {
    std::int32_t status = kStatusOk;
    std::string text;
};

template <typename Function>
Outcome OutcomeOf(Function function) {
    try {
        function();
        return {};
    } catch (const PlatformError& error) {
        return {error.Status(), error.what()};
    }
}

Outcome Opening(const std::string& path) {
    return OutcomeOf([&path] { const RuntimeDirectory directory(path); });
}

TEST(RuntimeDirectoryPath, ComesFromTheFirstVariableThatIsSet) {
    struct Row {
        std::optional<std::string> own;
        std::optional<std::string> xdg;
        const char* path;
    };
    const Row rows[] = {
        {"/a/b", "/x", "/a/b"},
        {"/a/b", {}, "/a/b"},
        {{}, "/x", "/x/zam_connector"},
        {{}, "", "/run/zam_connector"},
        {{}, {}, "/run/zam_connector"},
        // Set to nothing is a mistake that is told, not passed over.
        {"", "/x", ""},
    };
    for (const Row& row : rows) {
        const ScopedEnvironment own("ZAM_RUNTIME_DIR", row.own);
        const ScopedEnvironment xdg("XDG_RUNTIME_DIR", row.xdg);
        EXPECT_EQ(RuntimeDirectoryPath(), row.path);
    }
}

TEST(RuntimeDirectory, OpensADirectoryThatKeepsTheRules) {
    const TemporaryFolder temp;
    for (const mode_t mode : {0700U, 0755U, 0711U, 0500U}) {
        const std::string path = temp.MakeFolder(std::to_string(mode), mode);
        const RuntimeDirectory directory(path);
        EXPECT_EQ(directory.Path(), path);
        EXPECT_EQ(directory.Owner(), ::geteuid());
        EXPECT_NE(::fcntl(directory.Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    }
}

TEST(RuntimeDirectory, RefusesARelativePath) {
    for (const char* const path : {"", "run", "./run", "../run"}) {
        const Outcome outcome = Opening(path);
        EXPECT_EQ(outcome.status, kStatusUntrusted) << path;
        EXPECT_EQ(outcome.text,
                  std::string("runtime directory '") + path + "': the path must be absolute");
    }
}

TEST(RuntimeDirectory, IsUnavailableWhenItIsMissing) {
    const TemporaryFolder temp;
    const Outcome outcome = Opening(temp.Path("missing"));
    EXPECT_EQ(outcome.status, kStatusUnavailable);
    EXPECT_EQ(outcome.text,
              "runtime directory '" + temp.Path("missing") + "': No such file or directory");
}

TEST(RuntimeDirectory, RefusesAFileAndASymbolicLink) {
    const TemporaryFolder temp;
    temp.MakeFolder("target");
    temp.Write("file", "");
    ASSERT_EQ(::symlink("target", temp.Path("link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", temp.Path("dangling").c_str()), 0);
    for (const char* const name : {"file", "link", "dangling"}) {
        const Outcome outcome = Opening(temp.Path(name));
        EXPECT_EQ(outcome.status, kStatusUntrusted) << name;
        EXPECT_EQ(outcome.text, "runtime directory '" + temp.Path(name) +
                                    "': must be a directory and no symbolic link");
    }
}

TEST(RuntimeDirectory, RefusesASymbolicLinkWithASlashBehindIt) {
    const TemporaryFolder temp;
    temp.MakeFolder("target");
    ASSERT_EQ(::symlink("target", temp.Path("link").c_str()), 0);
    EXPECT_EQ(Opening(temp.Path("link/")).status, kStatusUntrusted);
    EXPECT_EQ(Opening(temp.Path("link///")).status, kStatusUntrusted);
    EXPECT_EQ(Opening(temp.Path("target/")).status, kStatusOk);
}

TEST(RuntimeDirectory, AcceptsASymbolicLinkHigherUp) {
    const TemporaryFolder temp;
    temp.MakeFolder("target");
    temp.MakeFolder("target/inner");
    ASSERT_EQ(::symlink("target", temp.Path("link").c_str()), 0);
    EXPECT_EQ(Opening(temp.Path("link/inner")).status, kStatusOk);
}

TEST(RuntimeDirectory, RefusesOneThatOthersMayWrite) {
    const TemporaryFolder temp;
    const std::pair<mode_t, const char*> rows[] = {
        {0720, "0720"}, {0702, "0702"}, {0777, "0777"}, {01777, "1777"}, {0770, "0770"},
    };
    for (const auto& [mode, shown] : rows) {
        const std::string path = temp.MakeFolder(shown, mode);
        const Outcome outcome = Opening(path);
        EXPECT_EQ(outcome.status, kStatusUntrusted) << shown;
        EXPECT_EQ(outcome.text, "runtime directory '" + path + "': mode " + shown +
                                    " lets others write; only its owner may");
    }
}

TEST(RuntimeDirectory, RefusesAForeignOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a directory away";
    }
    const TemporaryFolder temp;
    const std::string path = temp.MakeFolder("foreign");
    ASSERT_EQ(::chown(path.c_str(), kSomebodyElse, kSomebodyElse), 0);
    const Outcome outcome = Opening(path);
    EXPECT_EQ(outcome.status, kStatusUntrusted);
    EXPECT_EQ(outcome.text.find("runtime directory '" + path +
                                "': belongs to user 4242, not to user 0, root or the user '"),
              0U)
        << outcome.text;
}

TEST(RuntimeDirectory, StaysTheSameDirectoryWhenItsPathIsReplaced) {
    const TemporaryFolder temp;
    const std::string path = temp.MakeFolder("run");
    const RuntimeDirectory directory(path);
    ASSERT_EQ(::rename(path.c_str(), temp.Path("moved").c_str()), 0);
    temp.MakeFolder("run");
    temp.Write("moved/here", "");
    EXPECT_EQ(::access(directory.PathThroughDescriptor("here").c_str(), F_OK), 0);
    EXPECT_LT(directory.PathThroughDescriptor(std::string(64, 'n') + ".sock").size(), 108U);
}

TEST(IsTrustedOwner, AcceptsRootTheCallerAndTheServiceUser) {
    struct Row {
        uid_t owner;
        uid_t caller;
        uid_t service;
        bool trusted;
    };
    constexpr Row kRows[] = {
        {0, 1000, 900, true},
        {1000, 1000, 900, true},
        {900, 1000, 900, true},
        {1001, 1000, 900, false},
        {0, 1000, kNoServiceUser, true},
        {1000, 1000, kNoServiceUser, true},
        {900, 1000, kNoServiceUser, false},
        {1000, 0, kNoServiceUser, false},
        // "No such user" is no user, not even for an owner of that number.
        {kNoServiceUser, 1000, kNoServiceUser, false},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(IsTrustedOwner(row.owner, row.caller, row.service), row.trusted)
            << row.owner << ' ' << row.caller << ' ' << row.service;
    }
}

TEST(ServiceName, TakesLettersDigitsAndThreeSigns) {
    for (int value = 0; value < 256; ++value) {
        const std::string name{'a', static_cast<char>(value), 'b'};
        const bool allowed = (value >= 'a' && value <= 'z') || (value >= 'A' && value <= 'Z') ||
                             (value >= '0' && value <= '9') || value == '_' || value == '-' ||
                             value == '.';
        const Outcome outcome = OutcomeOf([&name] { CheckServiceName(name); });
        EXPECT_EQ(outcome.status, allowed ? kStatusOk : kStatusUnavailable) << value;
        if (!allowed) {
            EXPECT_EQ(outcome.text,
                      fmt::format("service name has byte {:#04x} at 1; letters, digits, '_', "
                                  "'-' and '.' are allowed",
                                  value));
        }
    }
}

TEST(ServiceName, HasOneToSixtyFourBytesAndNoLeadingDot) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "service name is empty"},
        {"a", ""},
        {std::string(63, 'a'), ""},
        {std::string(64, 'a'), ""},
        {std::string(65, 'a'), "service name of 65 bytes exceeds 64"},
        {std::string(1000, '/'), "service name of 1000 bytes exceeds 64"},
        {".", "service name '.' begins with a dot"},
        {"..", "service name '..' begins with a dot"},
        {".hidden", "service name '.hidden' begins with a dot"},
        {"a.", ""},
        {"-", ""},
        {"../up", "service name '../up' begins with a dot"},
        {"a/b", "service name has byte 0x2f at 1; letters, digits, '_', '-' and '.' are allowed"},
    };
    for (const auto& row : rows) {
        const auto& [name, text] = row;
        const Outcome outcome = OutcomeOf([&row] { CheckServiceName(row.first); });
        EXPECT_EQ(outcome.text, text) << name;
        EXPECT_EQ(outcome.status, *text == '\0' ? kStatusOk : kStatusUnavailable) << name;
    }
}

TEST(ServiceName, BecomesTheNameOfASocket) {
    EXPECT_EQ(SocketName("zam_connector"), "zam_connector.sock");
}

}  // namespace
}  // namespace zam_platform::testing
