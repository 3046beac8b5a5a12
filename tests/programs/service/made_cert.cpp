#include "made_cert.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <functional>

namespace zam_service::testing {
namespace {

std::string Written(const std::function<int(BIO*)>& write) {
    BIO* const bio = ::BIO_new(::BIO_s_mem());
    EXPECT_EQ(write(bio), 1);
    char* text = nullptr;
    const long size = ::BIO_get_mem_data(bio, &text);
    std::string result(text, static_cast<std::size_t>(size));
    ::BIO_free_all(bio);
    return result;
}

}  // namespace

MadeCert MakeCert(const std::string& commonName, std::int64_t serial, std::int64_t notBefore,
                  std::int64_t notAfter) {
    EVP_PKEY* const key = ::EVP_EC_gen("P-256");
    X509* const cert = ::X509_new();
    ::ASN1_INTEGER_set_int64(::X509_get_serialNumber(cert), serial);
    ::ASN1_TIME_set(::X509_getm_notBefore(cert), notBefore);
    ::ASN1_TIME_set(::X509_getm_notAfter(cert), notAfter);
    X509_NAME* const name = ::X509_get_subject_name(cert);
    const auto add = [name](const char* field, const std::string& text) {
        ::X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                     0);
    };
    add("O", "Test");
    add("CN", commonName);
    ::X509_set_issuer_name(cert, name);
    ::X509_set_pubkey(cert, key);
    EXPECT_GT(::X509_sign(cert, key, ::EVP_sha256()), 0);

    char phrase[] = "phrase";
    MadeCert made;
    made.certificate = Written([cert](BIO* bio) { return ::PEM_write_bio_X509(bio, cert); });
    made.key = Written([key](BIO* bio) {
        return ::PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
    made.lockedKey = Written([key, &phrase](BIO* bio) {
        return ::PEM_write_bio_PKCS8PrivateKey(bio, key, ::EVP_aes_128_cbc(), phrase, 6, nullptr,
                                               nullptr);
    });
    ::X509_free(cert);
    ::EVP_PKEY_free(key);
    return made;
}

}  // namespace zam_service::testing
