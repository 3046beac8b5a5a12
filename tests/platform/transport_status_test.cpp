#include "zam_platform/transport_status.h"
#include "vd/call_bounds.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

#include "vd/call_bounds.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

TEST(TransportStatus, HasAStableNumberAndATextOfItsOwn) {
    const std::pair<std::int32_t, const char*> rows[] = {
        {0, "success"},
        {1, "the transport has no usable handle"},
        {2, "the service is not reachable"},
        {3, "the connection broke before the answer was complete"},
        {4, "the time for the answer ran out"},
        {5, "the service's directory, socket or process failed a check"},
        {6, "the service broke the frame format"},
        {7, "the answer exceeds the room for it"},
        {8, "the request exceeds what a frame can carry"},
        {9, "this process is out of descriptors or memory"},
        {16, "the service does not serve this user"},
        {17, "the service's limits for this user are reached"},
        {18, "the service speaks another version of the frame format"},
        {19, "the service found the request to break a rule"},
        {20, "the service gave the call up without an answer"},
        {10, "the call was ended by its caller"},
        {11, "transport status 11"},
        {-1, "transport status -1"},
        {1000, "transport status 1000"},
    };
    std::set<std::string> texts;
    for (const auto& [status, text] : rows) {
        EXPECT_STREQ(DescribeStatus(status), text);
        EXPECT_STREQ(VdZorTransport_DescribeStatus(status).text, text);
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST(TransportStatus, IsOfTheClassThatCallersActUpon) {
    const std::pair<std::int32_t, VdTransportFailure> rows[] = {
        {0, VD_TRANSPORT_OK},         {1, VD_TRANSPORT_UNAVAILABLE}, {2, VD_TRANSPORT_UNAVAILABLE},
        {3, VD_TRANSPORT_BROKEN},     {20, VD_TRANSPORT_BROKEN},     {4, VD_TRANSPORT_TIMED_OUT},
        {5, VD_TRANSPORT_UNTRUSTED},  {16, VD_TRANSPORT_REFUSED},    {17, VD_TRANSPORT_REFUSED},
        {7, VD_TRANSPORT_TOO_LARGE},  {8, VD_TRANSPORT_TOO_LARGE},   {6, VD_TRANSPORT_PROTOCOL},
        {18, VD_TRANSPORT_PROTOCOL},  {19, VD_TRANSPORT_PROTOCOL},   {9, VD_TRANSPORT_RESOURCES},
        {10, VD_TRANSPORT_CANCELLED}, {11, VD_TRANSPORT_OTHER},      {-77, VD_TRANSPORT_OTHER},
    };
    for (const auto& [status, failure] : rows) {
        EXPECT_EQ(VdZorTransport_DescribeStatus(status).failure, failure) << status;
    }
}

TEST(PosixError, GivesTheStatusAndTextOfAnErrorNumber) {
    struct Row {
        int number;
        TransportStatus status;
        const char* text;
    };
    const Row rows[] = {
        {ENOENT, kStatusUnavailable, "here: No such file or directory"},
        {ECONNREFUSED, kStatusUnavailable, "here: Connection refused"},
        {ENOTDIR, kStatusUnavailable, "here: Not a directory"},
        {EACCES, kStatusUntrusted, "here: Permission denied"},
        {EPERM, kStatusUntrusted, "here: Operation not permitted"},
        {ELOOP, kStatusUntrusted, "here: Too many levels of symbolic links"},
        {EMFILE, kStatusResources, "here: Too many open files"},
        {ENFILE, kStatusResources, "here: Too many open files in system"},
        {ENOMEM, kStatusResources, "here: Cannot allocate memory"},
        {ENOBUFS, kStatusResources, "here: No buffer space available"},
        {EAGAIN, kStatusTimeout, "here: Resource temporarily unavailable"},
        {ETIMEDOUT, kStatusTimeout, "here: Connection timed out"},
        {EPIPE, kStatusBroken, "here: Broken pipe"},
        {ECONNRESET, kStatusBroken, "here: Connection reset by peer"},
        {ECONNABORTED, kStatusBroken, "here: Software caused connection abort"},
        {ENOTCONN, kStatusBroken, "here: Transport endpoint is not connected"},
        {EPROTOTYPE, kStatusUntrusted, "here: Protocol wrong type for socket"},
        {EIO, kStatusResources, "here: Input/output error"},
    };
    for (const Row& row : rows) {
        const PlatformError error = PosixError("here", row.number);
        EXPECT_EQ(error.Status(), row.status) << row.text;
        EXPECT_STREQ(error.what(), row.text);
    }
}

}  // namespace
}  // namespace zam_platform::testing
