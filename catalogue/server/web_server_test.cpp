// The server over real sockets: who may look (the refusal off the loopback,
// a wrong and a right token, HTTPS with a certificate made here), methods
// other than GET, and unknown paths.

#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <thread>

#include "base/exc.h"
#include "catalogue/model/query_params.h"
#include "catalogue/server/web_server.h"
#include "catalogue/testing/catalogue_test_util.h"
#include "catalogue/testing/web_fixture.h"

using namespace cattest;

namespace {

// A self-signed certificate for 127.0.0.1 and its key, as PEM files.
void MakeCertificate(const std::string& certFile, const std::string& keyFile) {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), -60);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_set_pubkey(cert, key);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    X509_EXTENSION* san = X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, const_cast<char*>("IP:127.0.0.1"));
    X509_add_ext(cert, san, -1);
    X509_EXTENSION_free(san);
    X509_sign(cert, key, EVP_sha256());
    FILE* out = std::fopen(certFile.c_str(), "w");
    PEM_write_X509(out, cert);
    std::fclose(out);
    out = std::fopen(keyFile.c_str(), "w");
    PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(out);
    X509_free(cert);
    EVP_PKEY_free(key);
}

// A server running on its own thread until the end of the scope.
class CRunning {
public:
    explicit CRunning(const catalogue::TServeOptions& options) : m_Server(options), m_Thread([this] { m_Server.Run(); }) {}
    ~CRunning() {
        m_Server.Stop();
        m_Thread.join();
    }
    int Port() const { return m_Server.Port(); }

private:
    catalogue::CWebServer m_Server;
    std::thread m_Thread;
};

class WebServer : public ::testing::Test {
protected:
    void SetUp() override {
        m_Options.db = (m_Root.Native() / "web.sqlite").string();
        m_Options.port = 0;
        MakeWebCatalogue((m_Root.Native() / "runs").string(), m_Options.db);
    }
    ngitest::CTempDir m_Root;
    catalogue::TServeOptions m_Options;
};

TEST_F(WebServer, AnswersGetOnlyAndJsonForEveryError) {
    CRunning server(m_Options);
    httplib::Client client("127.0.0.1", server.Port());
    struct {
        std::string method, path;
        int status;
        std::string says;
    } cases[] = {
        {"GET", "/", 200, "<title>Catalogue search</title>"},
        {"GET", "/app.js", 200, "/api/"},
        {"GET", "/api/machines", 200, R"({"results":[{"machine":"pc-01","points":2,)"},
        {"GET", "/api/search?q=100%25%20done", 200, R"("path":"\\Odd\\100% done_v2.txt")"},
        // A lone surrogate travels as WTF-8 in the URL and as an escape in JSON.
        {"GET", "/api/search?q=damaged%20%ED%A0%80", 200, R"("path":"\\Odd\\damaged \ud800 name.txt")"},
        {"GET", "/nothing", 404, R"({"error":"nothing at /nothing"})"},
        {"GET", "/api/search?q=" + std::string(9000, 'a'), 414, R"({"error":)"},
        {"POST", "/api/search?q=budget", 405, R"({"error":"POST is not answered here; use GET"})"},
        {"DELETE", "/api/points", 405, "DELETE is not answered"},
    };
    for (const auto& c : cases) {
        httplib::Request request;
        request.method = c.method;
        request.path = c.path;
        const auto result = client.send(request);
        ASSERT_TRUE(result) << c.path << ": " << httplib::to_string(result.error());
        EXPECT_EQ(result->status, c.status) << c.method << " " << c.path;
        EXPECT_NE(result->body.find(c.says), std::string::npos) << c.path << ": " << result->body;
        if (c.status != 200) {
            EXPECT_EQ(result->get_header_value("Content-Type"), "application/json; charset=utf-8") << c.path;
        }
    }
}

TEST_F(WebServer, OffTheLoopbackNeedsATokenAndChecksIt) {
    // The refusal, through the command as a user meets it.
    const TRun refused = RunTool({"serve", "--db", m_Options.db, "--listen", "0.0.0.0:0"});
    EXPECT_EQ(refused.code, 2);
    EXPECT_NE(refused.err.find("will not serve every machine's file names on 0.0.0.0 without --token-file"),
              std::string::npos) << refused.err;

    const std::string cert = (m_Root.Native() / "cert.pem").string(), key = (m_Root.Native() / "key.pem").string();
    MakeCertificate(cert, key);
    m_Options.token = "s3cret-token";
    for (const bool tls : {false, true}) {
        catalogue::TServeOptions options = m_Options;
        if (tls) options.tlsCert = cert, options.tlsKey = key;
        CRunning server(options);
        httplib::Client client((tls ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(server.Port()));
        if (tls) client.set_ca_cert_path(cert), client.enable_server_certificate_verification(true);
        struct {
            const char* path;
            const char* authorization;  // null: none
            int status;
        } cases[] = {
            {"/api/machines", nullptr, 401},
            {"/api/machines", "Bearer wrong", 401},
            {"/api/machines", "Bearer s3cret-token2", 401},
            {"/api/machines", "Bearer s3cret-toke", 401},
            {"/api/machines", "s3cret-token", 401},
            {"/api/machines", "Bearer s3cret-token", 200},
            {"/", nullptr, 200},  // the page holds no data; it asks for the token
        };
        for (const auto& c : cases) {
            httplib::Headers headers;
            if (c.authorization) headers.emplace("Authorization", c.authorization);
            const auto result = client.Get(c.path, headers);
            ASSERT_TRUE(result) << (tls ? "https " : "http ") << httplib::to_string(result.error());
            EXPECT_EQ(result->status, c.status) << (tls ? "https " : "http ") << c.path << " "
                                                << (c.authorization ? c.authorization : "(none)");
        }
        if (tls) {
            // Plain HTTP to the HTTPS port gets no answer.
            httplib::Client plain("127.0.0.1", server.Port());
            EXPECT_FALSE(plain.Get("/api/machines"));
        }
    }
    // A key that is not the certificate's is refused at start.
    catalogue::TServeOptions wrong = m_Options;
    wrong.tlsCert = cert;
    wrong.tlsKey = cert;
    EXPECT_THROW(catalogue::CWebServer{wrong}, CExc);
}

}  // namespace
