#include "data_rig.h"
#include "support/literal_list.h"
#include "zam_connector/zam_converter.h"

namespace zam_connector {
namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// With texts of one piece, of three, and of none.
std::vector<AppEula> SomeEulas() {
    std::vector<AppEula> eulas(5);
    for (std::size_t index = 0; index < eulas.size(); ++index) {
        eulas[index].id = test::MakeId(static_cast<unsigned char>(index));
        eulas[index].releaseTime = qor::types::Timestamp(static_cast<std::int64_t>(index) - 2);
        eulas[index].localeInfo = 1031;
    }
    eulas[0].text = "Text";
    eulas[1].text = std::string(32'768, 'a') + std::string(32'768, 'b') + "c";
    return eulas;
}

AppUpdates SomeUpdates() {
    AppUpdates updates;
    updates.updates.resize(2);
    updates.updates[0].id = test::MakeId(1);
    updates.updates[1].id = test::MakeId(2);
    updates.statuses.resize(2);
    updates.statuses[1].id = test::MakeId(2);
    return updates;
}

/// 25 records: three pieces.
zuv::TValue TwentyFourNumbers() {
    zuv::Vector numbers;
    for (int number = 0; number < 24; ++number) {
        numbers.emplace_back(number);
    }
    return numbers;
}

/// One of the three transfers.
struct HolderUpload {
    const char* function;
    unsigned open;
    const char* openName;
    int (*send)(HolderRig&, unsigned long&);
    zuv::TValue (*tree)();
};

const HolderUpload kHolderUploads[] = {
    {"SetSettings", test::kOpenSetSettingsChannel, "OpenSetSettingsChannel",
     [](HolderRig& rig, unsigned long& hash) {
         return rig.proxy.SetSettings({TwentyFourNumbers()}, hash);
     },
     &TwentyFourNumbers},
    {"SetAppEulas", test::kOpenAppEulasChannel, "OpenAppEulasChannel",
     [](HolderRig& rig, unsigned long& hash) { return rig.proxy.SetAppEulas(SomeEulas(), hash); },
     [] { return zam_converter::ConvertEulas(SomeEulas(), 32'768).value(); }},
    {"SetAppUpdates", test::kOpenAppUpdatesChannel, "OpenAppUpdatesChannel",
     [](HolderRig& rig, unsigned long& hash) {
         return rig.proxy.SetAppUpdates(SomeUpdates(), hash);
     },
     [] { return zam_converter::ConvertAppUpdates(SomeUpdates()).value(); }},
};

TEST(HolderTransfer, OpensSendsAndClosesInThisOrder) {
    for (const HolderUpload& transfer : kHolderUploads) {
        SCOPED_TRACE(transfer.function);
        HolderRig rig;
        unsigned long hash = 5;
        EXPECT_EQ(transfer.send(rig, hash), 0);
        EXPECT_EQ(hash, rig.hash);
        EXPECT_TRUE(rig.Sent() == test::Flattened(transfer.tree()));
        const auto calls = rig.transport.Calls();
        ASSERT_GE(calls.size(), 5U) << "at least three pieces";
        EXPECT_EQ(calls.front().requestHeader.operation, transfer.open);
        EXPECT_EQ(calls.front().request, testing::Bytes());
        EXPECT_EQ(calls.back().requestHeader.operation, test::kCloseHolderChannel);
        EXPECT_EQ(calls.back().request, test::kChannelBytes);
        EXPECT_EQ(rig.CallsOf(test::kSendData).size(), calls.size() - 2);
        for (const auto& call : rig.CallsOf(test::kSendData)) {
            EXPECT_EQ(testing::Bytes(call.request.begin(), call.request.begin() + 8),
                      test::kChannelBytes);
            EXPECT_EQ(call.requestArenaCapacity, 676'000U);
        }
        for (const auto& call : calls) {
            EXPECT_FALSE(call.hasResponseArena);
            EXPECT_EQ(call.hasRequestArena, call.requestHeader.operation == test::kSendData);
        }
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(HolderTransfer, CutsTheTextsOfAgreementsIntoPiecesOf32768Bytes) {
    HolderRig rig;
    unsigned long hash = 0;
    EXPECT_EQ(rig.proxy.SetAppEulas(SomeEulas(), hash), 0);
    zuv::Path root;
    zuv::TValue tree;
    ASSERT_EQ(common::Deserialize(rig.Sent(), root, tree).first, 0);
    EXPECT_EQ(zam_converter::ParseEulas(tree), SomeEulas());
    const auto& text = tree.Get<zuv::Vector>()[1].Find("updeula")->Get<zuv::Vector>();
    EXPECT_THAT(text, ElementsAre(zuv::TValue(std::string(32'768, 'a')),
                                  zuv::TValue(std::string(32'768, 'b')), zuv::TValue("c")));
}

TEST(HolderTransfer, ReturnsTheServicesCodeAndStoresTheHashUnlessItIsAFailure) {
    for (const HolderUpload& transfer : kHolderUploads) {
        for (const int code : test::kResultCodes) {
            SCOPED_TRACE(::testing::Message() << transfer.function << " " << code);
            HolderRig rig;
            rig.result = code;
            unsigned long hash = 5;
            EXPECT_EQ(transfer.send(rig, hash), code);
            EXPECT_EQ(hash, code < 0 ? 5 : rig.hash);
            EXPECT_THAT(rig.TakeLines(), IsEmpty());
        }
    }
}

TEST(HolderTransfer, TakesStatusOneForSuccessInEveryCall) {
    HolderRig rig;
    for (const unsigned operation :
         {test::kOpenSetSettingsChannel, test::kSendData, test::kCloseHolderChannel}) {
        rig.Fail(operation, {.session = 1});
    }
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({TwentyFourNumbers()}, hash), 0);
    EXPECT_EQ(hash, rig.hash);
    EXPECT_EQ(rig.PieceSizes(), (std::vector<std::size_t>{10, 10, 5}));
}

TEST(HolderTransfer, SendsNothingOfANoneTree) {
    HolderRig rig;
    rig.result = 3;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({}, hash), 3);
    EXPECT_EQ(hash, rig.hash);
    EXPECT_THAT(rig.Operations(),
                ElementsAre(test::kOpenSetSettingsChannel, test::kCloseHolderChannel));
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

TEST(HolderTransfer, SendsEmptyContainersAsOneRecord) {
    HolderRig rig;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({zuv::Map()}, hash), 0);
    EXPECT_EQ(rig.proxy.SetAppEulas({}, hash), 0);
    EXPECT_EQ(rig.PieceSizes(), (std::vector<std::size_t>{1, 1}));
    EXPECT_EQ(rig.Sent(), (test::List{{zam_test::Block(2, 0), ""}, {zam_test::Block(1, 0), ""}}));
}

TEST(HolderTransfer, SendsANoneInsideATree) {
    HolderRig rig;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({zuv::Map{{"a", zuv::None()}}}, hash), 0);
    EXPECT_EQ(rig.Sent(), (test::List{{zam_test::Block(2, 0), ""}, {zam_test::Block(0, 0), "a/"}}));
}

/// Fails the call with this number of an operation; how many pieces were sent then.
void ExpectUploadFailure(const HolderUpload& transfer, unsigned operation, std::size_t number,
                         test::Fault fault, int code, const std::string& line) {
    SCOPED_TRACE(std::string(transfer.function) + ", call " + std::to_string(number) + ": " + line);
    HolderRig rig;
    rig.Fail(operation, fault, number);
    unsigned long hash = 5;
    EXPECT_EQ(transfer.send(rig, hash), code);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(), Lines{line});
    const bool isOpen = operation != transfer.open;
    EXPECT_EQ(rig.CallsOf(test::kCloseHolderChannel).size(), isOpen ? 1U : 0U);
    if (isOpen) {
        EXPECT_EQ(rig.transport.Calls().back().request, test::kChannelBytes);
    }
    if (operation == test::kSendData) {
        EXPECT_EQ(rig.CallsOf(test::kSendData).size(), number + 1);
    }
}

void ExpectUploadFailures(const HolderUpload& transfer, unsigned operation, std::size_t number,
                          const char* name) {
    for (const auto& row : test::kSessionFailures) {
        ExpectUploadFailure(transfer, operation, number, {.session = row.status}, row.code,
                            test::SessionLine(name, row.status));
    }
    for (const int status : test::kTransportStatuses) {
        ExpectUploadFailure(transfer, operation, number, {.transport = status}, test::kUnspecified,
                            test::TransportLine(name, status));
    }
}

TEST(HolderTransferFailure, OfOpenEndsIt) {
    for (const HolderUpload& transfer : kHolderUploads) {
        ExpectUploadFailures(transfer, transfer.open, 0, transfer.openName);
    }
}

TEST(HolderTransferFailure, OfTheFirstMiddleAndLastPieceClosesTheChannel) {
    for (const HolderUpload& transfer : kHolderUploads) {
        HolderRig rig;
        unsigned long hash = 0;
        transfer.send(rig, hash);
        const std::size_t pieces = rig.PieceSizes().size();
        ASSERT_GE(pieces, 3U);
        ExpectUploadFailures(transfer, test::kSendData, 0, "SendData");
        ExpectUploadFailures(transfer, test::kSendData, 1, "SendData");
        ExpectUploadFailures(transfer, test::kSendData, pieces - 1, "SendData");
    }
}

TEST(HolderTransferFailure, OfCloseLeavesTheHash) {
    for (const HolderUpload& transfer : kHolderUploads) {
        ExpectUploadFailures(transfer, test::kCloseHolderChannel, 0, "CloseChannel");
    }
}

TEST(HolderTransferFailure, OfCloseWinsOverThatOfAPiece) {
    HolderRig rig;
    rig.Fail(test::kSendData, {.session = -2}, 1);
    rig.Fail(test::kCloseHolderChannel, {.session = -1});
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({TwentyFourNumbers()}, hash), test::kInvalidArgument);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(),
              (Lines{test::SessionLine("SendData", -2), test::SessionLine("CloseChannel", -1)}));
}

TEST(HolderTransferFailure, OfTheServiceWinsOverThatOfAPiece) {
    HolderRig rig;
    rig.Fail(test::kSendData, {.session = -2}, 1);
    rig.result = test::kServiceFailure;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({TwentyFourNumbers()}, hash), test::kServiceFailure);
    EXPECT_EQ(hash, 5U);
}

TEST(HolderTransferFailure, OfAPieceHidesTheServicesSuccess) {
    HolderRig rig;
    rig.Fail(test::kSendData, {.session = -2}, 2);
    rig.result = 1;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({TwentyFourNumbers()}, hash), test::kInvalidResult);
    EXPECT_EQ(hash, 5U);
}

TEST(TreeThatCannotBeFlattened, SendsNothingAndClosesTheChannel) {
    zuv::Map valueless;
    valueless["a"] = 1;
    valueless["b"] = zam_test::ValuelessValue();
    struct {
        zuv::TValue tree;
        const char* text;
    } const rows[] = {
        {valueless, "[RawZamParams] Invalid value state"},
        {zam_test::ValuelessValue(), "[RawZamParams] Invalid value state"},
        {zuv::Map{{"", 1}}, "[RawZamParams] Path to str fail: state = 4"},
        {zuv::Map{{"1st", 1}}, "[RawZamParams] Path to str fail: state = 6"},
        {zuv::Map{{"a/b", 1}}, "[RawZamParams] Path to str fail: state = 7"},
    };
    for (const auto& row : rows) {
        HolderRig rig;
        unsigned long hash = 5;
        EXPECT_EQ(rig.proxy.SetSettings({row.tree}, hash), test::kInvalidArgument);
        EXPECT_EQ(hash, 5U);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{HolderLine("SendZamParams", std::string("SendZamParams: data "
                                                                "serialization error - ") +
                                                        row.text + "!")});
        EXPECT_THAT(rig.Operations(),
                    ElementsAre(test::kOpenSetSettingsChannel, test::kCloseHolderChannel));
    }
}

}  // namespace
}  // namespace zam_connector
