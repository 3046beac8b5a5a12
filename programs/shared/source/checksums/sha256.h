#pragma once

#include <cstddef>
#include <span>
#include <string>

struct evp_md_ctx_st;

namespace zam_checksums {

/// A SHA-256 that grows with what it is given. One thread at a time.
class Sha256 {
public:
    /// Throws `std::runtime_error` when the cryptographic library is out of order.
    Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    ~Sha256();

    /// Throws as the constructor.
    void Add(std::span<const std::byte> bytes);

    /// 64 lower-case hexadecimal digits. Ends the use of the object. Throws as the constructor.
    std::string Digest();

private:
    evp_md_ctx_st* context_;
};

}  // namespace zam_checksums
