#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "service_fixture.h"
#include "support/program.h"
#include "zam_connector/create_zam_connector.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr int kNotFound = static_cast<int>(0x8000004CU);

/// Downloads through the library, with the service in another process.
class ServiceDownloads : public ServiceTest {
protected:
    /// Serves the sample.
    void StartSample() {
        const ProgramResult written =
            RunProgram(ZAM_CONNECTORD, {"--init", service_.DataDirectory()});
        ASSERT_EQ(written.status, 0) << written.err;
        service_.Start();
    }

    static std::shared_ptr<IZamFileDownloader> Downloader() {
        std::shared_ptr<IZamFileDownloader> downloader;
        EXPECT_EQ(CreateZamFileDownloader("", downloader), 0);
        return downloader;
    }

    static std::string Fetched(IZamFileDownloader& downloader, const std::string& path,
                               std::uint32_t chunkBytes = 0) {
        std::string content;
        FileChunk chunk;
        do {
            if (downloader.GetFileChunk({path, content.size(), chunkBytes}, chunk) != 0) {
                return "a chunk did not come";
            }
            content.append(reinterpret_cast<const char*>(chunk.data.data()), chunk.data.size());
        } while (content.size() < chunk.totalSizeBytes);
        return content;
    }
};

TEST_F(ServiceDownloads, MakeAConnectorWhole) {
    StartSample();
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    ASSERT_NE(connector, nullptr);
    EXPECT_THAT(logger_.Records(), IsEmpty());

    std::shared_ptr<IZamConnController> controller;
    ASSERT_EQ(connector->GetZamController(controller), 0);
    ZamConnectorState state{};
    EXPECT_EQ(controller->GetState(state), 0);

    std::shared_ptr<IZamFileDownloader> downloader;
    ASSERT_EQ(connector->GetFileDownloader(downloader), 0);
    EXPECT_EQ(Fetched(*downloader, "readme.txt"), service_.ReadData("files/readme.txt"));

    std::shared_ptr<IZamClientCertsDownloader> certsDownloader;
    ASSERT_EQ(connector->GetClientCertsDownloader(certsDownloader), 0);
    std::vector<ClientCertInfo> certs;
    ASSERT_EQ(certsDownloader->GetClientCertificates({}, certs), 0);
    ASSERT_THAT(certs, SizeIs(1));
    EXPECT_EQ(certs.front().name, "sample");
    EXPECT_EQ(certs.front().subject, "CN=device.example,O=Sample");
    EXPECT_EQ(certs.front().certificate, service_.ReadData("client_certs/sample.pem"));
    EXPECT_FALSE(certs.front().privateKey);
}

TEST_F(ServiceDownloads, HaveASocketOfTheirOwnInTheSameDirectory) {
    StartSample();
    const std::string socket = service_.RuntimeDirectory() + "/zam_file_downloader_id.sock";
    EXPECT_TRUE(std::filesystem::exists(socket));
    EXPECT_EQ(service_.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(socket));
    std::shared_ptr<IZamFileDownloader> downloader;
    EXPECT_NE(CreateZamFileDownloader("", downloader), 0);
    EXPECT_EQ(downloader, nullptr);
}

TEST_F(ServiceDownloads, GoOnAfterACrashOfTheService) {
    StartSample();
    const auto downloader = Downloader();
    FileChunk before;
    ASSERT_EQ(downloader->GetFileChunk({"readme.txt", 0, 10}, before), 0);
    service_.Kill();
    service_.Start();
    FileChunk after;
    EXPECT_TRUE(Eventually([&] {
        return downloader->GetFileChunk({"readme.txt", 0, 10}, after) == 0;
    }));
    EXPECT_EQ(after, before) << "the version is that of the content, not of the service";
}

TEST_F(ServiceDownloads, GiveManyThreadsTheSameContent) {
    constexpr int kThreads = 8;
    std::string content;
    while (content.size() < 1'000'000) {
        content += std::to_string(content.size()) + ",";
    }
    std::filesystem::create_directory(service_.DataDirectory() + "/files");
    service_.WriteData("files/large", content);
    service_.Start();
    const auto downloader = Downloader();
    std::vector<std::string> fetched(kThreads);
    std::vector<std::string> hashes(kThreads);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            const auto index = static_cast<std::size_t>(number);
            FileInfo info;
            EXPECT_EQ(downloader->GetFileInfo({"large"}, info), 0);
            hashes[index] = info.sha256;
            fetched[index] =
                Fetched(*downloader, "large", 60'000U + static_cast<std::uint32_t>(number));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& one : fetched) {
        EXPECT_TRUE(one == content);
    }
    EXPECT_THAT(hashes, ::testing::Each(hashes.front()));
}

TEST_F(ServiceDownloads, TellOfAFileThatIsNotThere) {
    StartSample();
    const auto downloader = Downloader();
    FileInfo info;
    EXPECT_EQ(downloader->GetFileInfo({"nothing"}, info), kNotFound);
    FileChunk chunk;
    EXPECT_EQ(downloader->GetFileChunk({"nothing", 0, 0}, chunk), kNotFound);
}

}  // namespace
}  // namespace zam_connector::test
