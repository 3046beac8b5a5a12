#include "certs/client_cert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "certs/cert_file.h"
#include "made_cert.h"

namespace zam_service {
namespace {

using qor::types::Timestamp;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using zam_service::testing::MadeCert;
using zam_service::testing::MakeCert;

TEST(ClientCert, IsReadWithItsNamesNumberAndTimes) {
    const MadeCert made = MakeCert(
        "Gr\xC3\xBC\xC3\x9F"
        "e, me",
        0x1A2B, 1577836800, 4733510400);
    const ClientCert cert = ReadClientCert("own", made.certificate, made.key);
    EXPECT_EQ(cert.info.name, "own");
    EXPECT_EQ(cert.info.subject,
              "CN=Gr\xC3\xBC\xC3\x9F"
              "e\\, me,O=Test");
    EXPECT_EQ(cert.info.issuer, cert.info.subject);
    EXPECT_EQ(cert.info.serialNumber, "1A2B");
    EXPECT_EQ(cert.info.certificate, made.certificate);
    EXPECT_EQ(cert.info.privateKey, made.key);
    EXPECT_EQ(cert.notBefore, 1577836800);
    EXPECT_EQ(cert.notAfter, 4733510400);
}

TEST(ClientCert, TakesItsIssuersAlongAndLeavesOutWhatIsNoPem) {
    const MadeCert own = MakeCert("own");
    const MadeCert issuer = MakeCert("issuer");
    const ClientCert cert = ReadClientCert(
        "own", "a comment\n" + own.certificate + "another\n" + issuer.certificate, std::nullopt);
    EXPECT_EQ(cert.info.certificate, own.certificate + issuer.certificate);
    EXPECT_EQ(cert.info.subject, "CN=own,O=Test");
    EXPECT_FALSE(cert.info.privateKey);
}

/// What is wrong with a certificate and a key.
std::string ErrorOf(const std::string& certificate, const std::optional<std::string>& key) {
    try {
        ReadClientCert("own", certificate, key);
        return "none";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(ClientCert, IsRefusedWhenItOrItsKeyIsNone) {
    const MadeCert made = MakeCert("own");
    const std::string cut = made.certificate.substr(0, made.certificate.size() / 2);
    EXPECT_EQ(ErrorOf(made.certificate, made.key), "none");
    EXPECT_EQ(ErrorOf("", {}), "the certificate is no PEM");
    EXPECT_EQ(ErrorOf("text", {}), "the certificate is no PEM");
    EXPECT_EQ(ErrorOf(cut, {}), "the certificate has a block that is no PEM");
    EXPECT_EQ(ErrorOf(made.certificate + cut, {}), "the certificate has a block that is no PEM");
    EXPECT_EQ(ErrorOf("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n", {}),
              "the certificate has a block that is no certificate");
    EXPECT_EQ(ErrorOf(made.certificate + made.key, {}),
              "the certificate has a block that is no certificate")
        << "or the key would be served to whoever asks for the certificate";
    EXPECT_EQ(ErrorOf(made.certificate, "text"),
              "the private key is no PEM, or needs a pass phrase");
    EXPECT_EQ(ErrorOf(made.certificate, made.lockedKey),
              "the private key is no PEM, or needs a pass phrase");
    EXPECT_EQ(ErrorOf(made.certificate, MakeCert("own").key),
              "the private key is not that of the certificate");
}

TEST(ClientCert, MeetsAllThatIsAskedForAtOnce) {
    const ClientCert cert = ReadClientCert("own", MakeCert("own").certificate, std::nullopt);
    const std::string name = "CN=own,O=Test";
    const std::pair<zam_connector::ClientCertParams, bool> rows[] = {
        {{"", "", Timestamp(0)}, true},         {{name, name, Timestamp(1500)}, true},
        {{"CN=own", "", Timestamp(0)}, false},  {{"", "CN=other", Timestamp(0)}, false},
        {{name, name, Timestamp(2001)}, false}, {{"", "", Timestamp(999)}, false},
        {{"", "", Timestamp(1000)}, true},      {{"", "", Timestamp(2000)}, true},
        {{"", "", Timestamp(2001)}, false},     {{"", "", Timestamp(-1)}, false},
    };
    for (const auto& [params, isMet] : rows) {
        EXPECT_EQ(Meets(cert, params), isMet)
            << params.subject << " " << params.issuer << " " << params.validAt.Count();
    }
}

/// PEM as it stands in JSON.
std::string InJson(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
        text.replace(at, 1, "\\n");
    }
    return "\"" + text + "\"";
}

class CertFileTest : public ::testing::Test {
protected:
    CertFile Read(const std::string& text) {
        return ReadCertFile("own.json", text, [this](const std::string& name, bool isKey) {
            EXPECT_EQ(isKey, name == "k.pem");
            return beside_.at(name);
        });
    }

    std::string ErrorOf(const std::string& text) {
        try {
            Read(text);
            return "none";
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    const MadeCert made_ = MakeCert("own");
    std::map<std::string, std::string> beside_ = {
        {"c.pem", made_.certificate}, {"k.pem", made_.key}, {"bad.pem", "text"}};
};

TEST_F(CertFileTest, HoldsTextsOrNamesFiles) {
    const CertFile named = Read(R"({"certificate_file": "c.pem", "private_key_file": "k.pem"})");
    EXPECT_EQ(named.cert.info.name, "own");
    EXPECT_EQ(named.cert.info.privateKey, made_.key);
    EXPECT_FALSE(named.holdsKey);
    const CertFile held = Read(R"({"name": "mine", "certificate": )" + InJson(made_.certificate) +
                               ", \"private_key\": " + InJson(made_.key) + "}");
    EXPECT_EQ(held.cert.info.name, "mine");
    EXPECT_EQ(held.cert.info.certificate, made_.certificate);
    EXPECT_TRUE(held.holdsKey);
}

TEST_F(CertFileTest, FindsItsKeyWhateverStandsAroundIt) {
    const std::string cert = R"("certificate_file": "c.pem")";
    const std::string key = InJson(made_.key);
    for (const std::string& text : {
             R"({"name": "private_key", )" + cert + R"(, "private_key": )" + key + "}",
             R"({"private_key": )" + key + ", " + cert + R"(, "name": "private_key\""})",
             R"(/* "private_key": "x" */ {"private_key" // "private_key": "y"
                 : /**/ )" +
                 key + ", " + cert + "}",
             "\xEF\xBB\xBF{" + cert + R"(, "private_key":)" + key + "}",
         }) {
        const CertFile held = Read(text);
        EXPECT_EQ(held.cert.info.privateKey, made_.key) << text;
        EXPECT_TRUE(held.holdsKey);
    }
}

TEST_F(CertFileTest, TellsThePlaceOfWhatIsNoTextInItsKey) {
    for (const std::string& wrong : {std::string("\x01"), std::string("\xFF"), std::string("\\q"),
                                     std::string("\\ud800"), std::string("\\u00g1")}) {
        EXPECT_THAT(ErrorOf("{\n\"private_key\": \"abc" + wrong + "PRIVATE KEY\"}"),
                    HasSubstr("own.json:2:"))
            << wrong;
    }
    for (const std::string& cut :
         {std::string("{\"private_key\": \""), std::string("{\"private_key\": \"a"),
          std::string("{\"private_key\": \"a\\"), std::string("{\"")}) {
        EXPECT_THAT(ErrorOf(cut), HasSubstr("own.json:1:")) << cut;
    }
}

TEST_F(CertFileTest, IsRefusedWithThePlaceOfWhatIsWrong) {
    const std::pair<std::string, std::string> rows[] = {
        {"{}", "neither \"certificate\" nor \"certificate_file\" is there"},
        {"{", "own.json:1:"},
        {R"({"certificate": 1})", "1:17: at \"/certificate\": is no text"},
        {R"({"certificate": "", "certificate_file": "c.pem"})",
         "at \"/certificate_file\": \"certificate\" is there too"},
        {R"({"certificate_file": "../c.pem"})", "is no name of a file beside this one"},
        {R"({"certificate_file": ""})", "is no name of a file beside this one"},
        {R"({"certificate_file": "bad.pem"})", "own.json: the certificate is no PEM"},
        {R"({"certificate_file": "c.pem", "private_key": 5})", "is no text"},
        {R"({"certificate_file": "c.pem", "key": ""})", "\"/key\": the key is not known here"},
        {R"({"name": 1, "certificate_file": "c.pem"})", "\"/name\": is 1, allowed is a text"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_THAT(ErrorOf(text), HasSubstr(error)) << text;
    }
}

TEST_F(CertFileTest, ShowsNothingOfAKeyInItsErrors) {
    // The line behind the head of a PEM.
    const std::string secret = made_.key.substr(made_.key.find('\n') + 1, 12);
    const std::string key = InJson(made_.key);
    const std::string cut = key.substr(0, key.size() - 1);
    const std::string texts[] = {
        key,
        made_.key,
        "{\"private_key\": " + made_.key + "}",
        "{\"private_key\": \"" + made_.key + "\"}",
        "{\"private_key\": " + cut + "\\q\"}",
        "{\"private_key\": [" + key + "]}",
        "{\"certificate_file\": " + key + "}",
        "{\"certificate\": " + key + "}",
        "{\"private_key\": " + key + ", \"private_key_file\": \"k.pem\", \"certificate\": \"\"}",
        "{" + key + ": 1}",
    };
    for (const std::string& text : texts) {
        EXPECT_THAT(ErrorOf(text),
                    AllOf(HasSubstr("own.json"), Not(HasSubstr(secret)), Not(HasSubstr("none"))))
            << text;
    }
}

}  // namespace
}  // namespace zam_service
