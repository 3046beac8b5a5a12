#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "qel/result_code.h"
#include "qel/utf.h"
#include "qor/qelx/result_code_text.h"
#include "zam_connector/result_code.h"

namespace {

struct CodeRow {
    std::uint32_t code;
    const char* text;
};

constexpr CodeRow kGeneralCodes[] = {
    {0x00000000, "No error"},
    {0x00000001, "False"},
    {0x80000001, "Interface not supported"},
    {0x80000040, "Unexpected"},
    {0x80000041, "Out of memory"},
    {0x80000042, "Not supported"},
    {0x80000043, "Not implemented"},
    {0x80000044, "Buffer too small"},
    {0x80000045, "Access denied"},
    {0x80000046, "Invalid argument"},
    {0x8000004A, "Not matched"},
    {0x8000004B, "Unspecified error"},
    {0x8000004C, "Not found"},
    {0x8000004D, "Found"},
    {0x8000004F, "Locked"},
    {0x80000050, "Not locked"},
    {0x80000051, "Operation cancelled"},
    {0x80000057, "Method not found"},
    {0x80000058, "Stack is empty"},
    {0x80000059, "Media error"},
    {0x8000005A, "Invalid signature"},
    {0x8000005B, "Invalid version"},
    {0x8000005C, "Invalid size"},
    {0x8000005D, "Invalid type"},
    {0x8000005E, "Invalid index"},
    {0x80000062, "Out of space"},
    {0x80000063, "Not ready"},
    {0x80000064, "Less than"},
    {0x80000065, "More than"},
    {0x80000066, "Prohibited"},
    {0x80000067, "Already done"},
    {0x80000068, "Need reboot"},
    {0x80000069, "Bases corrupted"},
    {0x8000006A, "Invalid state"},
    {0x8000006B, "Not initialized"},
    {0x8000006C, "Insufficient resources"},
    {0x80000071, "Invalid result"},
    {0x80000072, "Unknown exception"},
    {0x80000076, "Meta information not found"},
    {0x80000077, "Numerical type overflow"},
    {0x80000078, "File is too big"},
    {0x80000079, "Trace level ok"},
    {0x8000007A, "Trace level prohibited"},
    {0x80000100, "Class not found"},
    {0x80000101, "Settings are required"},
    {0x80000102, "Unexpected settings"},
    {0x80000103, "Wrong settings type"},
    {0x80000104, "Wrong settings revision"},
    {0x80000105, "Settings not found"},
    {0x80000106, "Object is untrusted"},
    {0x80000180, "Property not found"},
    {0x80000221, "Operation timeout"},
    {0x80000300, "Invalid symbol"},
    {0x80000301, "Non dec symbol"},
    {0x80000302, "Non hex symbol"},
    {0x80000303, "Non base64 symbol"},
    {0x80000310, "Syntax error"},
    {0x80000311, "GUID syntax error"},
    {0x80000312, "OID syntax error"},
    {0x80000313, "DateTime syntax error"},
};

constexpr CodeRow kPlatformCodes[] = {
    {0x80010100, "Unspecified platform error"},
    {0x80010101, "Invalid handle"},
    {0x80010102, "File not found"},
    {0x80010103, "Path not found"},
    {0x80010104, "Sharing violation"},
    {0x80010105, "Already exists"},
    {0x80010106, "Wait abandoned"},
    {0x80010107, "Symbol not found"},
    {0x80010108, "Sxs is incorrect"},
    {0x80010109, "Invalid path name"},
    {0x80010110, "Cannot open an anonymous level security token"},
    {0x80010111, "Password is invalid"},
    {0x80010112, "Module not found"},
    {0x80010113, "System image bad signature"},
    {0x80010114, "Cloud file request aborted"},
    {0x80010115, "Memory mapping failed"},
    {0x80010116, "Network error"},
};

constexpr char kUnknown[] = "Unknown result code";

/// The text that a table gives a code, by walking it.
template <std::size_t kRows>
std::string Expected(const CodeRow (&table)[kRows], std::uint32_t code) {
    for (const CodeRow& row : table) {
        if (row.code == code) {
            return row.text;
        }
    }
    return kUnknown;
}

std::string MessageOf(std::uint32_t code) {
    return std::string(qel::rtl_result_code_message(qel::FromBits(code)));
}

std::string TextOf(std::uint32_t code) {
    return qel::ToUtf8(qor::qelx::ResultCodeText(qel::FromBits(code)));
}

std::string Hex(std::uint32_t code) {
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08X", code);
    return digits;
}

TEST(ResultCodes, HaveTheTextsOfTheGeneralTable) {
    EXPECT_EQ(std::size(kGeneralCodes), 60U);
    for (const CodeRow& row : kGeneralCodes) {
        EXPECT_EQ(MessageOf(row.code), row.text) << Hex(row.code);
        EXPECT_EQ(TextOf(row.code), row.text + (" = 0x" + Hex(row.code)));
        EXPECT_EQ(zam_connector::ResultCodeMessage(qel::FromBits(row.code)), row.text);
    }
}

TEST(ResultCodes, HaveTheTextsOfThePlatformTable) {
    EXPECT_EQ(std::size(kPlatformCodes), 17U);
    for (const CodeRow& row : kPlatformCodes) {
        EXPECT_EQ(TextOf(row.code), row.text + (" = 0x" + Hex(row.code)));
        EXPECT_EQ(zam_connector::ResultCodeMessage(qel::FromBits(row.code)), row.text);
    }
}

TEST(ResultCodes, OfThePlatformAreUnknownToTheGeneralTable) {
    for (const CodeRow& row : kPlatformCodes) {
        EXPECT_EQ(MessageOf(row.code), kUnknown) << Hex(row.code);
    }
}

TEST(ResultCodes, BetweenTheRowsOfTheGeneralTableAreUnknown) {
    for (std::uint32_t low = 0; low <= 0xFFFF; ++low) {
        for (const std::uint32_t code : {low, low | 0x80000000U}) {
            const std::string text = Expected(kGeneralCodes, code);
            ASSERT_EQ(MessageOf(code), text) << Hex(code);
            ASSERT_EQ(TextOf(code), text + " = 0x" + Hex(code));
        }
    }
}

TEST(ResultCodes, BetweenTheRowsOfThePlatformTableAreUnknown) {
    for (std::uint32_t low = 0; low <= 0xFFFF; ++low) {
        // Without its top bit a code of facility 1 is no failure, and none of those has a text.
        ASSERT_EQ(TextOf(low | 0x00010000U), kUnknown + (" = 0x" + Hex(low | 0x00010000U)));
        const std::uint32_t code = low | 0x80010000U;
        ASSERT_EQ(TextOf(code), Expected(kPlatformCodes, code) + " = 0x" + Hex(code));
    }
}

TEST(ResultCodes, OfOtherFacilitiesAreUnknown) {
    for (std::uint32_t facility = 2; facility <= 0x7FFF; ++facility) {
        for (const std::uint32_t low : {0x0000U, 0x0001U, 0x004BU, 0x0100U, 0xFFFFU}) {
            const std::uint32_t code = 0x80000000U | (facility << 16U) | low;
            ASSERT_EQ(TextOf(code), kUnknown + (" = 0x" + Hex(code)));
            ASSERT_EQ(MessageOf(code), kUnknown) << Hex(code);
        }
    }
}

TEST(ResultCodes, WithoutATextAtTheEdgesAreUnknown) {
    constexpr std::uint32_t kCodes[] = {0x80000000, 0x80000047, 0x8000004E, 0x00000002, 0x7FFFFFFF,
                                        0xFFFFFFFF, 0x80010000, 0x800100FF, 0x8001010A, 0x80010117,
                                        0x00010100, 0x80020100, 0x0000004B, 0x80000314};
    for (const std::uint32_t code : kCodes) {
        EXPECT_EQ(TextOf(code), kUnknown + (" = 0x" + Hex(code)));
        EXPECT_EQ(zam_connector::ResultCodeMessage(qel::FromBits(code)), kUnknown) << Hex(code);
    }
}

TEST(ResultCodeText, IsTheMessageAndEightUpperCaseHexadecimalDigits) {
    EXPECT_EQ(qor::qelx::ResultCodeText(0), u"No error = 0x00000000");
    EXPECT_EQ(qor::qelx::ResultCodeText(1), u"False = 0x00000001");
    EXPECT_EQ(qor::qelx::ResultCodeText(qel::FromBits(0x8000004B)),
              u"Unspecified error = 0x8000004B");
    EXPECT_EQ(qor::qelx::ResultCodeText(qel::FromBits(0x80010116)), u"Network error = 0x80010116");
    EXPECT_EQ(qor::qelx::ResultCodeText(qel::FromBits(0xABCDEF09)),
              u"Unknown result code = 0xABCDEF09");
    EXPECT_EQ(qel::ResultCodeText(qel::FromBits(0x8000004B)), u"Unspecified error = 0x8000004B");
}

TEST(ResultCodeConstants, HaveTheirNumbers) {
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kNoError), 0x00000000U);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kFalse), 0x00000001U);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kInvalidArgument), 0x80000046U);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kUnspecifiedError), 0x8000004BU);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kInvalidSize), 0x8000005CU);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kInvalidIndex), 0x8000005EU);
    EXPECT_EQ(static_cast<std::uint32_t>(qel::kInvalidResult), 0x80000071U);
    EXPECT_EQ(zam_connector::kNoError, qel::kNoError);
    EXPECT_EQ(zam_connector::kFalse, qel::kFalse);
    EXPECT_EQ(zam_connector::kUnspecifiedError, qel::kUnspecifiedError);
}

TEST(IsFailure, IsTrueForNegativeCodesOnly) {
    EXPECT_FALSE(zam_connector::IsFailure(0));
    EXPECT_FALSE(zam_connector::IsFailure(1));
    EXPECT_FALSE(zam_connector::IsFailure(0x7FFFFFFF));
    EXPECT_TRUE(zam_connector::IsFailure(-1));
    EXPECT_TRUE(zam_connector::IsFailure(qel::FromBits(0x80000000)));
    EXPECT_TRUE(zam_connector::IsFailure(zam_connector::kUnspecifiedError));
}

}  // namespace
