#include <cstdlib>
#include <new>

#include "download_rig.h"

// The heap arenas of this executable take the place of the library's: a test can refuse them.

namespace {
bool g_refuse = false;
std::vector<std::uint32_t> g_capacities;
}  // namespace

namespace zam_connector {
namespace common {

HeapArena::HeapArena(std::uint32_t capacity) : bytes_(std::calloc(capacity, 1)) {
    g_capacities.push_back(capacity);
    if (g_refuse || bytes_ == nullptr) {
        throw std::bad_alloc();
    }
    vd_arena_init(&arena_, bytes_.get(), capacity);
}

}  // namespace common

namespace {

using test::CertsLine;
using test::CertsRig;
using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ResponseBuffer : public ::testing::Test {
protected:
    ResponseBuffer() {
        g_refuse = false;
        rig_.transport.Enqueue(test::CertsAnswer(test::SomeCertificates()));
        g_capacities.clear();
    }

    CertsRig rig_;
    std::vector<ClientCertInfo> certificates_{3};
};

TEST_F(ResponseBuffer, IsLargerThanTheArenaByEightBytes) {
    EXPECT_EQ(rig_.proxy.GetClientCertificates({}, certificates_), 0);
    EXPECT_THAT(g_capacities, ElementsAre(338'288U));
    EXPECT_EQ(rig_.OnlyCall().responseArenaCapacity, 338'280U);
}

TEST_F(ResponseBuffer, FailsTheCallWhenThereIsNoMemoryForIt) {
    g_refuse = true;
    EXPECT_EQ(rig_.proxy.GetClientCertificates({}, certificates_), test::kUnspecified);
    EXPECT_EQ(certificates_, std::vector<ClientCertInfo>(3));
    EXPECT_THAT(rig_.transport.Calls(), IsEmpty());
    EXPECT_EQ(rig_.TakeLines(), Lines{CertsLine("ZamClientCertsDownloader::GetClientCertificates: "
                                                "-2147483573:std::exception: std::bad_alloc")});
}

TEST_F(ResponseBuffer, IsNotAskedForBeforeTheRequestIsBuilt) {
    EXPECT_EQ(rig_.proxy.GetClientCertificates({std::string(2049, 's'), {}, {}}, certificates_),
              test::kUnspecified);
    EXPECT_THAT(g_capacities, IsEmpty());
}

// The small arenas of both sides stand on the call's stack, that of a chunk too.
TEST(FileBuffers, AreNoneOfTheHeap) {
    test::FileRig rig;
    rig.transport.Enqueue(test::InfoAnswer(test::SomeInfo()));
    rig.transport.Enqueue(test::ChunkAnswer(test::SomeChunk()));
    g_capacities.clear();
    FileInfo info;
    FileChunk chunk;
    EXPECT_EQ(rig.proxy.GetFileInfo({}, info), 0);
    EXPECT_EQ(rig.proxy.GetFileChunk({}, chunk), 0);
    EXPECT_THAT(g_capacities, IsEmpty());
}

}  // namespace
}  // namespace zam_connector
