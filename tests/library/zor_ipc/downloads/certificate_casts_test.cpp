#include <cstring>
#include <functional>
#include <stdexcept>

#include "download_rig.h"
#include "support/conversions.h"

namespace zam_connector::common {
namespace {

using zam_test::Bytes;
using zam_test::BytesOf;
using zam_test::TextOf;
using zam_test::UsedOf;
using Certificates = std::vector<ClientCertInfo>;
using IdlCertificate = qx_zam_connector_ZamTypes_ClientCertInfo;
using IdlCertificates = qx_zam_connector_ZamTypes_ClientCertsInfo;

constexpr std::size_t kElement = sizeof(IdlCertificate);

/// The names of a certificate's stretches, in the order of the wire.
constexpr const char* kStretches[] = {"name",         "subject",     "issuer",
                                      "serialNumber", "certificate", "privateKey"};

/// An arena with one certificate and, behind it, eight bytes for texts.
class OneCertificate {
public:
    explicit OneCertificate(const IdlCertificate& certificate) {
        auto* const place = vd_arena_alloc(arena_.Get(), kElement + 8, 4);
        std::memcpy(place, &certificate, kElement);
    }

    Certificates Read() { return CastFromVd(IdlCertificates{{0, kElement}}, arena_.Get()); }

private:
    HeapArena arena_{1000};
};

IdlCertificate CertificateWith(std::size_t index, vd_bytes stretch) {
    IdlCertificate certificate{};
    std::memcpy(reinterpret_cast<unsigned char*>(&certificate) + 8 * index, &stretch,
                sizeof stretch);
    certificate.flags = 1;
    return certificate;
}

TEST(CertificateParamsCast, HasTheseBytesBothWays) {
    const ClientCertParams params{"CN=s", "i", qor::types::Timestamp(-2)};
    HeapArena arena(5);
    const auto wire = CastToVd(params, arena.Get());
    EXPECT_EQ(BytesOf(wire), (Bytes{
                                 0,    0,    0,    0,    4,    0,    0,    0,     // subject
                                 4,    0,    0,    0,    1,    0,    0,    0,     // issuer
                                 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // validAt
                             }));
    EXPECT_EQ(UsedOf(arena.Get()), (Bytes{'C', 'N', '=', 's', 'i'}));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), params);
    EXPECT_EQ(CastFromVd(qx_zam_connector_ZamTypes_ClientCertParams{}, nullptr),
              ClientCertParams());
}

TEST(CertificatesCast, HasTheseBytesBothWays) {
    Certificates certificates = test::SomeCertificates();
    certificates.pop_back();
    HeapArena arena(1000);
    const IdlCertificates wire = CastToVd(certificates, arena.Get());
    EXPECT_EQ(BytesOf(wire), (Bytes{20, 0, 0, 0, 56, 0, 0, 0}));
    EXPECT_EQ(UsedOf(arena.Get()),
              (Bytes{
                  'n', 'C', 'N', '=', 's', 'C', 'N', '=', 'i', '0',  // the texts,
                  'F', 'P', 'E', 'M', 'K', 'E', 'Y', 0,   0,   0,    // and the gap behind them
                  0,   0,   0,   0,   1,   0,   0,   0,              // name
                  1,   0,   0,   0,   4,   0,   0,   0,              // subject
                  5,   0,   0,   0,   4,   0,   0,   0,              // issuer
                  9,   0,   0,   0,   2,   0,   0,   0,              // serialNumber
                  11,  0,   0,   0,   3,   0,   0,   0,              // certificate
                  14,  0,   0,   0,   3,   0,   0,   0,              // privateKey
                  1,   0,   0,   0,   0,   0,   0,   0,              // flags, reserved
              }));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), certificates);
}

TEST(CertificatesCast, RoundTripsManyAndNone) {
    HeapArena arena(338'280);
    EXPECT_EQ(BytesOf(CastToVd(Certificates(), arena.Get())), Bytes(8));
    EXPECT_EQ(arena.Get()->used, 0U);
    EXPECT_EQ(CastFromVd(IdlCertificates{}, nullptr), Certificates());
    Certificates many;
    for (int round = 0; round < 100; ++round) {
        many.push_back(test::SomeCertificates()[0]);
        many.push_back(test::SomeCertificates()[1]);
        many.emplace_back();
    }
    EXPECT_EQ(CastFromVd(CastToVd(many, arena.Get()), arena.Get()), many);
}

TEST(CertificatesCast, TellsAnAbsentKeyFromAnEmptyOne) {
    Certificates certificates(2);
    certificates[1].privateKey = "";
    HeapArena arena(2 * kElement);
    const IdlCertificates wire = CastToVd(certificates, arena.Get());
    const Bytes used = UsedOf(arena.Get());
    EXPECT_EQ(used[48], 0);
    EXPECT_EQ(used[kElement + 48], 1);
    EXPECT_EQ(CastFromVd(wire, arena.Get()), certificates);
}

TEST(CertificatesCast, TakesTheKeyByItsFlagAndIgnoresTheOthers) {
    IdlCertificate certificate = CertificateWith(5, {56, 4});
    certificate.reserved = 0xFFFF'FFFF;
    certificate.flags = 0xFFFF'FFFE;
    EXPECT_EQ(OneCertificate(certificate).Read()[0].privateKey, std::nullopt);
    certificate.flags = 0xFFFF'FFFF;
    EXPECT_EQ(OneCertificate(certificate).Read()[0].privateKey, std::string(4, '\0'));
    certificate = CertificateWith(5, {0xFFFF'FFFF, 1});
    certificate.flags = 0;
    EXPECT_EQ(OneCertificate(certificate).Read()[0].privateKey, std::nullopt);
}

TEST(CertificatesCast, RefusesStretchesOutsideTheBytesInUse) {
    for (std::size_t index = 0; index < std::size(kStretches); ++index) {
        EXPECT_NO_THROW(OneCertificate(CertificateWith(index, {56, 8})).Read());
        for (const vd_bytes hostile :
             {vd_bytes{56, 9}, vd_bytes{65, 0}, vd_bytes{0xFFFFFFF8, 8}, vd_bytes{8, 0xFFFFFFF8}}) {
            EXPECT_EQ(TextOf<std::out_of_range>(
                          [&] { OneCertificate(CertificateWith(index, hostile)).Read(); }),
                      std::string(kStretches[index]) + ": offset " +
                          std::to_string(hostile.offset) + " and length " +
                          std::to_string(hostile.length) +
                          " exceed the 64 bytes in use of the arena");
        }
    }
}

TEST(CertificatesCast, RefusesTextsThatShareBytesBeyondTheArena) {
    IdlCertificate certificate{};
    certificate.name = {0, 60};
    certificate.issuer = {0, 4};
    EXPECT_NO_THROW(OneCertificate(certificate).Read());
    certificate.issuer = {0, 5};
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { OneCertificate(certificate).Read(); }),
              "issuer: 5 bytes, only 4 of the arena's are left");
    certificate.issuer = {0, 4};
    certificate.privateKey = {0, 1};
    certificate.flags = 1;
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { OneCertificate(certificate).Read(); }),
              "privateKey: 1 bytes, only 0 of the arena's are left");
}

TEST(CertificatesCast, RefusesASequenceThatIsNotWhole) {
    HeapArena arena(120);
    vd_arena_alloc(arena.Get(), 112, 4);
    EXPECT_EQ(CastFromVd(IdlCertificates{{0, 112}}, arena.Get()), Certificates(2));
    EXPECT_EQ(TextOf<std::invalid_argument>([&] {
                  CastFromVd(IdlCertificates{{0, 111}}, arena.Get());
              }),
              "certificates: 111 bytes are no whole number of elements of 56 bytes");
    EXPECT_EQ(TextOf<std::out_of_range>([&] {
                  CastFromVd(IdlCertificates{{1, 112}}, arena.Get());
              }),
              "certificates: offset 1 and length 112 exceed the 112 bytes in use of the arena");
}

TEST(CertificatesCast, NeedsRoomForEachText) {
    for (std::size_t index = 0; index < std::size(kStretches); ++index) {
        Certificates certificates(1);
        ClientCertInfo& certificate = certificates.front();
        std::string* const texts[] = {&certificate.name,        &certificate.subject,
                                      &certificate.issuer,      &certificate.serialNumber,
                                      &certificate.certificate, &certificate.privateKey.emplace()};
        *texts[index] = "12345";
        HeapArena arena(4);
        EXPECT_EQ(TextOf<std::length_error>([&] { CastToVd(certificates, arena.Get()); }),
                  std::string(kStretches[index]) +
                      ": 5 bytes do not fit, 4 of the arena's 4 bytes are free");
    }
    HeapArena arena(55);
    EXPECT_THROW(CastToVd(Certificates(1), arena.Get()), std::length_error);
}

// An answer with any one bit changed, or cut anywhere, gives a list or is refused.
TEST(CertificatesCast, SurvivesEveryFlippedBitAndEveryCut) {
    HeapArena arena(1000);
    const IdlCertificates wire = CastToVd(test::SomeCertificates(), arena.Get());
    const std::uint32_t used = arena.Get()->used;
    int read = 0;
    int refused = 0;
    const auto attempt = [&](const IdlCertificates& record) {
        try {
            EXPECT_LE(CastFromVd(record, arena.Get()).size(), used / kElement);
            ++read;
        } catch (const std::out_of_range&) {
            ++refused;
        } catch (const std::invalid_argument&) {
            ++refused;
        }
    };
    for (std::uint32_t bit = 0; bit < 8 * used; ++bit) {
        const auto mask = static_cast<unsigned char>(1U << bit % 8);
        arena.Get()->base[bit / 8] ^= mask;
        attempt(wire);
        arena.Get()->base[bit / 8] ^= mask;
    }
    for (unsigned bit = 0; bit < 32; ++bit) {
        attempt({{wire.certificates.offset ^ 1U << bit, wire.certificates.length}});
        attempt({{wire.certificates.offset, wire.certificates.length ^ 1U << bit}});
    }
    EXPECT_GT(read, 0);
    EXPECT_GT(refused, 0);
    read = 0;
    for (arena.Get()->used = 0; arena.Get()->used < used; ++arena.Get()->used) {
        attempt(wire);
    }
    EXPECT_EQ(read, 0);
}

TEST(CertificateRecords, CompareEveryField) {
    const std::function<void(ClientCertInfo&)> changes[] = {
        [](ClientCertInfo& info) { info.name += 'x'; },
        [](ClientCertInfo& info) { info.subject += 'x'; },
        [](ClientCertInfo& info) { info.issuer += 'x'; },
        [](ClientCertInfo& info) { info.serialNumber += 'x'; },
        [](ClientCertInfo& info) { info.certificate += 'x'; },
        [](ClientCertInfo& info) { info.privateKey.reset(); },
    };
    for (const auto& change : changes) {
        ClientCertInfo info = test::SomeCertificates()[0];
        change(info);
        EXPECT_TRUE(info != test::SomeCertificates()[0]);
    }
    const ClientCertParams params{"s", "i", qor::types::Timestamp(1)};
    EXPECT_TRUE(params != (ClientCertParams{"x", "i", qor::types::Timestamp(1)}));
    EXPECT_TRUE(params != (ClientCertParams{"s", "x", qor::types::Timestamp(1)}));
    EXPECT_TRUE(params != (ClientCertParams{"s", "i", qor::types::Timestamp(2)}));
}

}  // namespace
}  // namespace zam_connector::common
