#include "certs/client_cert.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <utility>

namespace zam_service {
namespace {

/// Frees what OpenSSL made.
template <auto kFree>
struct Free {
    template <typename T>
    void operator()(T* object) const noexcept {
        kFree(object);
    }
};

using Bio = std::unique_ptr<BIO, Free<::BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Free<::X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Free<::EVP_PKEY_free>>;
using BigNumber = std::unique_ptr<BIGNUM, Free<::BN_free>>;

/// Leaves no error behind for whoever uses OpenSSL on this thread next.
struct ErrorQueue {
    ErrorQueue() { ::ERR_clear_error(); }
    ErrorQueue(const ErrorQueue&) = delete;
    ErrorQueue& operator=(const ErrorQueue&) = delete;
    ~ErrorQueue() { ::ERR_clear_error(); }
};

template <typename T>
T Required(T made) {
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

Bio ReaderOf(std::string_view text) {
    if (text.size() > INT_MAX) {
        throw std::invalid_argument("is too large for PEM");
    }
    return Required(Bio(::BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))));
}

std::string TextIn(const Bio& bio) {
    char* text = nullptr;
    const long size = ::BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

/// As RFC 4514 writes it, in UTF-8.
std::string TextOf(const X509_NAME* name) {
    const Bio text = Required(Bio(::BIO_new(::BIO_s_mem())));
    ::X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    return TextIn(text);
}

std::string SerialOf(X509& certificate) {
    const BigNumber number =
        Required(BigNumber(::ASN1_INTEGER_to_BN(::X509_get0_serialNumber(&certificate), nullptr)));
    char* const digits = ::BN_bn2hex(number.get());
    std::string text = digits != nullptr ? digits : "";
    ::OPENSSL_free(digits);
    return text;
}

std::int64_t SecondsOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (::ASN1_TIME_to_tm(time, &parts) != 1) {
        throw std::invalid_argument("the certificate has a time of validity that cannot be read");
    }
    return ::timegm(&parts);
}

/// Reads the next block, which must be a certificate; null behind the last one. A key that stands
/// among the certificates must not be served as one.
Certificate ReadNext(const Bio& reader) {
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* bytes = nullptr;
    long size = 0;
    if (::PEM_read_bio(reader.get(), &name, &header, &bytes, &size) != 1) {
        if (ERR_GET_REASON(::ERR_peek_last_error()) == PEM_R_NO_START_LINE) {
            return nullptr;
        }
        throw std::invalid_argument("the certificate has a block that is no PEM");
    }
    const bool isCertificate = std::string_view(name) == PEM_STRING_X509;
    const unsigned char* from = bytes;
    Certificate certificate(isCertificate ? ::d2i_X509(nullptr, &from, size) : nullptr);
    ::OPENSSL_free(name);
    ::OPENSSL_free(header);
    ::OPENSSL_clear_free(bytes, static_cast<std::size_t>(size));
    if (certificate == nullptr) {
        throw std::invalid_argument("the certificate has a block that is no certificate");
    }
    return certificate;
}

/// A pass phrase is asked of nobody.
int NoPassPhrase(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*context*/) {
    return -1;
}

void CheckKey(X509& certificate, const std::string& pem) {
    const Bio reader = ReaderOf(pem);
    const Key key(::PEM_read_bio_PrivateKey(reader.get(), nullptr, &NoPassPhrase, nullptr));
    if (key == nullptr) {
        throw std::invalid_argument("the private key is no PEM, or needs a pass phrase");
    }
    if (::X509_check_private_key(&certificate, key.get()) != 1) {
        throw std::invalid_argument("the private key is not that of the certificate");
    }
}

}  // namespace

ClientCert ReadClientCert(std::string name, std::string_view certificatePem,
                          const std::optional<std::string>& keyPem) {
    const ErrorQueue errors;
    const Bio reader = ReaderOf(certificatePem);
    const Bio written = Required(Bio(::BIO_new(::BIO_s_mem())));
    const Certificate own = ReadNext(reader);
    if (own == nullptr) {
        throw std::invalid_argument("the certificate is no PEM");
    }
    ::PEM_write_bio_X509(written.get(), own.get());
    while (const Certificate issuer = ReadNext(reader)) {
        ::PEM_write_bio_X509(written.get(), issuer.get());
    }
    if (keyPem) {
        CheckKey(*own, *keyPem);
    }
    return {.info = {.name = std::move(name),
                     .subject = TextOf(::X509_get_subject_name(own.get())),
                     .issuer = TextOf(::X509_get_issuer_name(own.get())),
                     .serialNumber = SerialOf(*own),
                     .certificate = TextIn(written),
                     .privateKey = keyPem},
            .notBefore = SecondsOf(::X509_get0_notBefore(own.get())),
            .notAfter = SecondsOf(::X509_get0_notAfter(own.get()))};
}

bool Meets(const ClientCert& cert, const zam_connector::ClientCertParams& params) noexcept {
    const std::int64_t time = params.validAt.Count();
    return (params.subject.empty() || params.subject == cert.info.subject) &&
           (params.issuer.empty() || params.issuer == cert.info.issuer) &&
           (time == 0 || (time >= cert.notBefore && time <= cert.notAfter));
}

}  // namespace zam_service
