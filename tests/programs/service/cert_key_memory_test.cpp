#include <gtest/gtest.h>
#include <malloc.h>
#include <string.h>

#include <atomic>
#include <cstddef>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "certs/cert_file.h"
#include "made_cert.h"
#include "support/allocations.h"

// What reading a description with a private key gives back to the heap.

namespace zam_service {
namespace {

using zam_service::testing::MadeCert;
using zam_service::testing::MakeCert;

/// Of a key, as every copy has it: where its kind stands.
std::string_view g_pieceOfKey;
std::atomic<int> g_freedWithPiece{0};

/// What a block held before is nothing of whoever takes it.
void Clear(const void* block, std::size_t /*size*/) {
    void* const bytes = const_cast<void*>(block);
    ::memset(bytes, 0, ::malloc_usable_size(bytes));
}

void LookForPiece(const void* block) {
    if (block != nullptr && ::memmem(block, ::malloc_usable_size(const_cast<void*>(block)),
                                     g_pieceOfKey.data(), g_pieceOfKey.size()) != nullptr) {
        ++g_freedWithPiece;
    }
}

/// Each allocation failing once, too.
void ExpectNothingOfTheKeyLeft(const std::string& description, const MadeCert& made) {
    const ReadBeside readBeside = [&made](const std::string& /*name*/, bool isKey) {
        return isKey ? made.key : made.certificate;
    };
    constexpr std::size_t kPieceBytes = 24;
    const std::string piece = made.key.substr(made.key.find('\n') + 1, kPieceBytes);
    g_pieceOfKey = piece;
    g_freedWithPiece = 0;
    zam_test::g_isMarkedThread = true;
    zam_test::g_failingThreads = zam_test::FailingThreads::Marked;
    zam_test::g_keepFailing = false;
    bool wasRead = false;
    for (int allowed = 0; !wasRead && g_freedWithPiece == 0; ++allowed) {
        std::string text = description;
        zam_test::g_failed = false;
        zam_test::g_onAllocate = &Clear;
        zam_test::g_onFree = &LookForPiece;
        zam_test::g_allocationsLeft = allowed;
        try {
            ReadCertFile("own.json", std::move(text), readBeside);
        } catch (const std::exception&) {
            // Something was lacking.
        }
        zam_test::g_allocationsLeft = -1;
        zam_test::g_onAllocate = nullptr;
        zam_test::g_onFree = nullptr;
        wasRead = !zam_test::g_failed;
        EXPECT_EQ(g_freedWithPiece, 0) << allowed << " allocations";
    }
}

TEST(CertKeyMemory, IsWipedOfAKeyInAText) {
    const MadeCert made = MakeCert("own");
    ExpectNothingOfTheKeyLeft(
        nlohmann::json{{"certificate_file", "own.pem"}, {"private_key", made.key}}.dump(), made);
}

TEST(CertKeyMemory, IsWipedOfAKeyInAFile) {
    ExpectNothingOfTheKeyLeft(R"({"certificate_file": "own.pem", "private_key_file": "own.key"})",
                              MakeCert("own"));
}

}  // namespace
}  // namespace zam_service
