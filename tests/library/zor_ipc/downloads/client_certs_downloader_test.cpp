#include "download_calls.h"

namespace zam_connector {
namespace {

using test::CertsLine;
using test::CertsRig;
using test::ClientCertificatesCall;
using test::Lines;
using test::SomeCertificates;
using ::testing::IsEmpty;

using CertificatesResponse = qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp;
using Certificates = ClientCertificatesCall::Result;

const ClientCertParams kCertParams = ClientCertificatesCall::Parameters();

TEST(GetClientCertificates, SendsTheParametersAndOffersAnEmptyZeroArena) {
    CertsRig rig;
    rig.transport.Enqueue(test::CertsAnswer(SomeCertificates()));
    Certificates certificates;
    EXPECT_EQ(rig.proxy.GetClientCertificates(kCertParams, certificates), 0);
    EXPECT_EQ(certificates, SomeCertificates());
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.riid, test::kCertsRiid);
    EXPECT_EQ(call.requestHeader.operation, 0);
    EXPECT_EQ(call.request, (testing::Bytes{0, 0, 0, 0, 4, 0, 0, 0,     // subject
                                            4, 0, 0, 0, 4, 0, 0, 0,     // issuer
                                            8, 7, 6, 5, 4, 3, 2, 1}));  // validAt
    EXPECT_EQ(call.requestArena, (testing::Bytes{'C', 'N', '=', 's', 'C', 'N', '=', 'i'}));
    EXPECT_EQ(call.requestArenaCapacity, 2048U);
    EXPECT_EQ(call.response, testing::Bytes(16));
    EXPECT_EQ(call.responseArenaCapacity, 338280U);
    EXPECT_EQ(call.responseArenaUsed, 0U);
    EXPECT_TRUE(call.responseArenaIsZero);
}

TEST(GetClientCertificates, EmptiesTheListForAnEmptyAnswer) {
    CertsRig rig;
    rig.transport.Enqueue(test::CertsAnswer({}, test::kServiceFailure));
    Certificates certificates = ClientCertificatesCall::Old();
    EXPECT_EQ(rig.proxy.GetClientCertificates({}, certificates), test::kServiceFailure);
    EXPECT_THAT(certificates, IsEmpty());
}

TEST(GetClientCertificates, TakesAnAnswerThatFillsTheArena) {
    CertsRig rig;
    Certificates full(1);
    full[0].certificate = std::string(338'280 - 56, 'c');
    rig.transport.Enqueue(test::CertsAnswer(full));
    Certificates certificates;
    EXPECT_EQ(rig.proxy.GetClientCertificates(kCertParams, certificates), 0);
    EXPECT_EQ(certificates, full);
}

TEST(GetClientCertificates, TakesParametersThatFitAndSendsNoLongerOnes) {
    CertsRig rig;
    rig.transport.Enqueue(test::CertsAnswer({}));
    Certificates certificates;
    const std::string half(1024, 'h');
    EXPECT_EQ(rig.proxy.GetClientCertificates({half, half, {}}, certificates), 0);
    EXPECT_EQ(rig.OnlyCall().requestArena, testing::Bytes(2048, 'h'));
    certificates = ClientCertificatesCall::Old();
    EXPECT_EQ(rig.proxy.GetClientCertificates({half, half + "h", {}}, certificates),
              test::kUnspecified);
    EXPECT_EQ(certificates, ClientCertificatesCall::Old());
    EXPECT_EQ(rig.transport.Calls().size(), 1U);
    // -2147483556 is 0x8000005C, the code of a wrong size.
    EXPECT_EQ(
        rig.TakeLines(),
        Lines{CertsLine("ZamClientCertsDownloader::GetClientCertificates: -2147483556:issuer: "
                        "1025 bytes do not fit, 1024 of the arena's 2048 bytes are free")});
}

TEST(GetClientCertificates, LeavesTheListWhenTheAnswerCannotBeConverted) {
    CertsRig rig;
    CertificatesResponse response{};
    response.certificates.certificates = {0, 55};
    rig.transport.Enqueue(testing::AnswerWith(response, std::string(56, '\0')));
    response.certificates.certificates = {4, 56};
    rig.transport.Enqueue(testing::AnswerWith(response, std::string(56, '\0')));
    Certificates certificates = ClientCertificatesCall::Old();
    EXPECT_EQ(rig.proxy.GetClientCertificates(kCertParams, certificates), test::kUnspecified);
    EXPECT_EQ(rig.proxy.GetClientCertificates(kCertParams, certificates), test::kUnspecified);
    EXPECT_EQ(certificates, ClientCertificatesCall::Old());
    // -2147483578 is 0x80000046, an invalid argument; -2147483554 is 0x8000005E.
    EXPECT_EQ(rig.TakeLines(),
              (Lines{CertsLine("ZamClientCertsDownloader::GetClientCertificates: -2147483578:"
                               "certificates: 55 bytes are no whole number of elements of 56 "
                               "bytes"),
                     CertsLine("ZamClientCertsDownloader::GetClientCertificates: -2147483554:"
                               "certificates: offset 4 and length 56 exceed the 56 bytes in use "
                               "of the arena")}));
}

}  // namespace
}  // namespace zam_connector
