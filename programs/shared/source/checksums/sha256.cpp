#include "checksums/sha256.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <array>
#include <iterator>
#include <stdexcept>

namespace zam_checksums {
namespace {

void Check(int result) {
    if (result != 1) {
        throw std::runtime_error("SHA-256 cannot be computed: the cryptographic library failed");
    }
}

}  // namespace

Sha256::Sha256() : context_(::EVP_MD_CTX_new()) {
    if (context_ == nullptr || ::EVP_DigestInit_ex(context_, ::EVP_sha256(), nullptr) != 1) {
        ::EVP_MD_CTX_free(context_);
        Check(0);
    }
}

Sha256::~Sha256() {
    ::EVP_MD_CTX_free(context_);
}

void Sha256::Add(std::span<const std::byte> bytes) {
    Check(::EVP_DigestUpdate(context_, bytes.data(), bytes.size()));
}

std::string Sha256::Digest() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    Check(::EVP_DigestFinal_ex(context_, digest.data(), &size));
    std::string text;
    for (const unsigned char byte : std::span(digest).first(size)) {
        fmt::format_to(std::back_inserter(text), "{:02x}", byte);
    }
    return text;
}

}  // namespace zam_checksums
