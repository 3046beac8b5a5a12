#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "failing_calls.h"
#include "made_cert.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "zam_connector/create_zam_connector.h"
#include "zam_connector_testing/service_process.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using zam_connector::ClientCertInfo;
using zam_connector::ClientCertParams;
using zam_service::testing::BrokenFolders;
using zam_service::testing::FolderCall;
using zam_service::testing::MadeCert;
using zam_service::testing::MakeCert;
using zam_test::Eventually;

/// The library's certificate downloader over a daemon.
class ClientCerts : public zam_service::testing::DaemonFixture {
protected:
    ClientCerts() { fs::create_directory(data_.Path("client_certs")); }

    void BeginCerts() {
        BeginFast();
        ASSERT_EQ(zam_connector::CreateZamConnector(connector_, {}), 0);
        ASSERT_NE(connector_, nullptr);
        ASSERT_EQ(connector_->GetClientCertsDownloader(downloader_), 0);
    }

    /// The names of the certificates that are served.
    std::vector<std::string> Names(const ClientCertParams& params = {}) {
        EXPECT_EQ(downloader_->GetClientCertificates(params, certs_), code_);
        std::vector<std::string> names;
        for (const ClientCertInfo& cert : certs_) {
            names.push_back(cert.name);
        }
        return names;
    }

    bool EventuallyServes(const std::vector<std::string>& names) {
        return Eventually([&] { return Names() == names; });
    }

    void Write(const std::string& name, const std::string& text, bool isPrivate = false) const {
        const std::string path = "client_certs/" + name;
        data_.Write(path, text);
        if (isPrivate) {
            fs::permissions(data_.Path(path), fs::perms::owner_read | fs::perms::owner_write);
        }
    }

    void WriteCert(const std::string& name, const MadeCert& made) const {
        Write(name + ".pem", made.certificate);
        Write(name + ".json", R"({"certificate_file": ")" + name + R"(.pem"})");
    }

    std::shared_ptr<zam_connector::IZamConnector> connector_;
    std::shared_ptr<zam_connector::IZamClientCertsDownloader> downloader_;
    std::vector<ClientCertInfo> certs_;
    int code_ = kNoError;
};

TEST_F(ClientCerts, AreServedInTheOrderOfTheirFiles) {
    WriteCert("b", MakeCert("second"));
    WriteCert("a", MakeCert("first"));
    Write(".c.json", "unfinished");
    Write("notes.txt", "nothing to read here");
    BeginCerts();
    EXPECT_THAT(Names(), ElementsAre("a", "b"));
    EXPECT_EQ(certs_.front().subject, "CN=first,O=Test");
    EXPECT_THAT(Names({"CN=second,O=Test", "", {}}), ElementsAre("b"));
    EXPECT_THAT(Names({"CN=third,O=Test", "", {}}), IsEmpty());
    EXPECT_THAT(Names({"", "", qor::types::Timestamp(3000)}), IsEmpty());
}

TEST_F(ClientCerts, ComeWithTheirKeys) {
    const MadeCert made = MakeCert("own");
    Write("own.pem", made.certificate);
    Write("own.key", made.key, true);
    Write("own.json", R"({"certificate_file": "own.pem", "private_key_file": "own.key"})");
    BeginCerts();
    ASSERT_THAT(Names(), ElementsAre("own"));
    EXPECT_EQ(certs_.front().privateKey, made.key);
    EXPECT_THAT(Logged(), Not(HasSubstr("chmod")));
    EXPECT_THAT(Logged(), Not(HasSubstr("PRIVATE KEY")));
}

/// Whether the memory of a process holds one of the texts.
bool Holds(pid_t process, const std::vector<std::string>& texts) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream maps(folder + "/maps");
    std::ifstream memory(folder + "/mem", std::ios::binary);
    for (std::string line; std::getline(maps, line);) {
        unsigned long begin = 0;
        unsigned long end = 0;
        char dash = 0;
        std::string rights;
        std::istringstream(line) >> std::hex >> begin >> dash >> end >> rights;
        // Sanitizers reserve more than there is.
        constexpr unsigned long kMostBytes = 1UL << 28U;
        if (rights.substr(0, 2) != "rw" || end - begin > kMostBytes) {
            continue;
        }
        std::string bytes(end - begin, '\0');
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(begin));
        memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        bytes.resize(static_cast<std::size_t>(memory.gcount()));
        const bool holdsOne = std::any_of(
            texts.begin(), texts.end(),
            [&bytes](const std::string& text) { return bytes.find(text) != std::string::npos; });
        if (holdsOne) {
            return true;
        }
    }
    return false;
}

/// A description of a certificate in `own.pem` with the key of `made`.
using Description = std::string (*)(const MadeCert& made);

std::string WithFile(const MadeCert& /*made*/) {
    return R"({"certificate_file": "own.pem", "private_key_file": "own.key"})";
}

std::string WithText(const MadeCert& made) {
    return nlohmann::json{{"certificate_file", "own.pem"}, {"private_key", made.key}}.dump();
}

/// As encoders write it that escape more than they must.
std::string WithEscapes(const MadeCert& made) {
    std::string literal;
    for (const char next : made.key) {
        literal += next == '\n' ? "\\u000a" : next == '+' ? "\\u002B" : std::string(1, next);
    }
    return R"(/* "private_key": "none" */ {"certificate_file": "own.pem", "private_key" : ")" +
           literal + "\"}";
}

/// Of each line of the key, the longest piece that every description writes as it is. A key holds
/// what is public as well, which stands in its certificate and is no secret.
std::vector<std::string> PlainPiecesOf(const MadeCert& made) {
    constexpr std::size_t kTelling = 12;  // what is shorter may stand anywhere
    std::string certificate = made.certificate;
    std::erase(certificate, '\n');
    std::vector<std::string> pieces;
    std::string longest;
    const std::size_t last = made.key.find("-----END");
    for (std::size_t at = made.key.find('\n') + 1; at < last;) {
        const std::size_t end = std::min(made.key.find_first_of("\n+-", at), last);
        const std::string piece = made.key.substr(at, end - at);
        if (piece.size() > longest.size() && certificate.find(piece) == std::string::npos) {
            longest = piece;
        }
        if (end == last || made.key[end] == '\n') {
            if (longest.size() >= kTelling) {
                pieces.push_back(longest);
            }
            longest.clear();
        }
        at = end + 1;
    }
    return pieces;
}

class ClientCertKeys : public ::testing::TestWithParam<Description> {};

INSTANTIATE_TEST_SUITE_P(InFiles, ClientCertKeys, ::testing::Values(&WithFile));
INSTANTIATE_TEST_SUITE_P(InTexts, ClientCertKeys, ::testing::Values(&WithText, &WithEscapes));

TEST_P(ClientCertKeys, AreNotInTheServicesMemoryWhenTheyAreServedNoMore) {
    const MadeCert made = MakeCert("own");
    const std::vector<std::string> fromTheKey = PlainPiecesOf(made);
    ASSERT_FALSE(fromTheKey.empty());
    zam_connector::testing::ServiceProcess service(ZAM_CONNECTORD);
    service.WriteData("client_certs/own.pem", made.certificate);
    service.WriteData("client_certs/own.key", made.key);
    // An answer with all of them is more than a socket takes at once.
    constexpr std::size_t kCerts = 150;
    for (std::size_t cert = 0; cert < kCerts; ++cert) {
        service.WriteData("client_certs/own" + std::to_string(cert) + ".json", GetParam()(made));
    }
    service.Start();
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamClientCertsDownloader> downloader;
    ASSERT_EQ(connector->GetClientCertsDownloader(downloader), 0);
    std::vector<ClientCertInfo> certs;
    ASSERT_EQ(downloader->GetClientCertificates({}, certs), 0);
    ASSERT_EQ(certs.size(), kCerts);
    EXPECT_EQ(certs.front().privateKey, made.key);
    if (!Holds(service.Pid(), fromTheKey)) {
        GTEST_SKIP() << "the service's memory cannot be read";
    }
    for (std::size_t cert = 0; cert < kCerts; ++cert) {
        fs::remove(service.DataDirectory() + "/client_certs/own" + std::to_string(cert) + ".json");
    }
    ASSERT_TRUE(Eventually(
        [&] { return downloader->GetClientCertificates({}, certs) == 0 && certs.empty(); }));
    // A worker may still be about to destroy what it has read.
    EXPECT_TRUE(Eventually([&] { return !Holds(service.Pid(), fromTheKey); }));
}

TEST_F(ClientCerts, WarnOfAKeyThatOthersMayRead) {
    const MadeCert made = MakeCert("own");
    Write("own.pem", made.certificate);
    Write("own.key", made.key, true);
    fs::permissions(data_.Path("client_certs/own.key"), fs::perms::group_read,
                    fs::perm_options::add);
    Write("own.json", R"({"certificate_file": "own.pem", "private_key_file": "own.key"})");
    BeginCerts();
    EXPECT_THAT(Names(), ElementsAre("own"));
    EXPECT_THAT(Logged(), HasSubstr("the private key in 'client_certs/own.key' can be read by "
                                    "others than its owner (chmod 600)"));
}

TEST_F(ClientCerts, FollowTheFolder) {
    BeginCerts();
    EXPECT_THAT(Names(), IsEmpty());
    WriteCert("a", MakeCert("first"));
    EXPECT_TRUE(EventuallyServes({"a"}));
    WriteCert("b", MakeCert("second"));
    EXPECT_TRUE(EventuallyServes({"a", "b"}));
    Write("a.pem", MakeCert("renewed").certificate);
    EXPECT_TRUE(Eventually([this] {
        Names();
        return !certs_.empty() && certs_.front().subject == "CN=renewed,O=Test";
    })) << "a file beside the description counts too";
    fs::remove(data_.Path("client_certs/a.json"));
    EXPECT_TRUE(EventuallyServes({"b"}));
}

TEST_F(ClientCerts, KeepTheLastGoodVersion) {
    WriteCert("a", MakeCert("first"));
    BeginCerts();
    Write("a.json", "{");
    WriteCert("b", MakeCert("second"));
    EXPECT_TRUE(EventuallyServes({"a", "b"}));
    EXPECT_THAT(Logged(), HasSubstr("'client_certs/a.json': a.json:1:"));
    EXPECT_THAT(Logged(), HasSubstr(": the last good version stays"));
}

TEST_F(ClientCerts, StayWhenTheFolderCannotBeRead) {
    WriteCert("a", MakeCert("first"));
    BeginCerts();
    for (const FolderCall call : {FolderCall::Open, FolderCall::Read}) {
        logger_.Clear();
        const BrokenFolders broken(call);
        Write("notes.txt", "reason to look");
        EXPECT_TRUE(Eventually([this] {
            return HasLogged("the last good version stays") || HasLogged("are served");
        }));
        EXPECT_THAT(Names(), ElementsAre("a"));
    }
}

TEST_F(ClientCerts, LeaveNothingOpenWhenTheFolderCannotBeRead) {
    BeginCerts();
    const BrokenFolders broken(FolderCall::Open);
    WriteCert("a", MakeCert("first"));
    ASSERT_TRUE(Eventually([] { return BrokenFolders::Descriptor() >= 0; }));
    const fs::path link = "/proc/self/fd/" + std::to_string(BrokenFolders::Descriptor());
    EXPECT_TRUE(Eventually([&] {
        std::error_code gone;
        return fs::read_symlink(link, gone) != data_.Path("client_certs");
    }));
}

TEST_F(ClientCerts, FollowAFolderThatComesAndGoes) {
    fs::remove(data_.Path("client_certs"));
    BeginCerts();
    EXPECT_THAT(Names(), IsEmpty());
    fs::create_directory(data_.Path("client_certs"));
    WriteCert("a", MakeCert("first"));
    EXPECT_TRUE(EventuallyServes({"a"}));
    fs::rename(data_.Path("client_certs"), data_.Path("elsewhere"));
    EXPECT_TRUE(EventuallyServes({}));
    fs::rename(data_.Path("elsewhere"), data_.Path("client_certs"));
    EXPECT_TRUE(EventuallyServes({"a"}));
}

TEST_F(ClientCerts, StayWhenTheDataFolderIsAwayAndFollowItBack) {
    WriteCert("a", MakeCert("first"));
    BeginCerts();
    fs::rename(data_.Path(), data_.Path() + ".away");
    EXPECT_TRUE(Eventually([this] { return HasLogged("was moved or removed"); }));
    EXPECT_THAT(Names(), ElementsAre("a"));
    fs::create_directories(data_.Path("client_certs"));
    WriteCert("b", MakeCert("second"));
    EXPECT_TRUE(EventuallyServes({"b"}));
    fs::remove_all(data_.Path() + ".away");
}

TEST_F(ClientCerts, AreCutWhereTheAnswerIsFull) {
    const MadeCert made = MakeCert("own");
    std::string chain;
    while (chain.size() < 100'000) {
        chain += made.certificate;
    }
    for (const char* const name : {"a", "b", "c", "d"}) {
        Write(std::string(name) + ".pem", chain);
        Write(std::string(name) + ".json",
              R"({"certificate_file": ")" + std::string(name) + R"(.pem"})");
    }
    BeginCerts();
    code_ = kBufferTooSmall;
    EXPECT_THAT(Names(), ElementsAre("a", "b", "c"));
}

TEST_F(ClientCerts, MeetWithFaults) {
    WriteCert("a", MakeCert("first"));
    data_.Write("faults.json", R"({"rules": [{"endpoint": "clientCertsDownloader",
        "operation": "GetClientCertificates", "result_code": -9, "calls": 1}]})");
    BeginCerts();
    code_ = -9;
    EXPECT_THAT(Names(), IsEmpty());
    code_ = kNoError;
    EXPECT_THAT(Names(), ElementsAre("a"));
}

}  // namespace
}  // namespace zam_service
