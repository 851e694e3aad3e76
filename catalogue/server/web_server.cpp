#include "catalogue/server/web_server.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>
#include <fstream>
#include <thread>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/model/query_params.h"
#include "catalogue/server/api.h"
#include "catalogue/server/catalogue_pool.h"
#include "catalogue/server/page.h"

namespace catalogue {

namespace {

// A fresh catalogue connection at most this often: ingests show up within it.
constexpr std::chrono::seconds kCatalogueAge{10};
constexpr size_t kMaxBody = 4096;

const char kJson[] = "application/json; charset=utf-8";

// Equal without taking longer for a longer common start: the digests are
// compared in full, in constant time.
bool SameSecret(const std::string& a, const std::string& b) {
    unsigned char da[SHA256_DIGEST_LENGTH], db[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(a.data()), a.size(), da);
    SHA256(reinterpret_cast<const unsigned char*>(b.data()), b.size(), db);
    return CRYPTO_memcmp(da, db, sizeof da) == 0;
}

void SetJson(httplib::Response& res, int status, const std::string& body) {
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(body, kJson);
}

}  // namespace

void ParseListen(const std::string& text, TServeOptions& options) {
    const size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    int value = -1;
    const auto [ptr, ec] = std::from_chars(port.data(), port.data() + port.size(), value);
    if (host.empty() || ec != std::errc() || ptr != port.data() + port.size() || value < 0 || value > 65535)
        throw CBadParameter("--listen '" + text + "' is not HOST:PORT (127.0.0.1:8080)");
    options.host = host;
    options.port = value;
}

bool IsLoopback(const std::string& host) {
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

std::string ReadToken(const std::string& file) {
    std::ifstream in(file);
    std::string token;
    if (!in || !std::getline(in, token))
        throw CExc(util::Utf8ToUtf16("cannot read the token of " + file));
    const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!token.empty() && space(token.back())) token.pop_back();
    size_t start = 0;
    while (start < token.size() && space(token[start])) ++start;
    token = token.substr(start);
    if (token.empty()) throw CExc(util::Utf8ToUtf16(file + " holds no token on its first line"));
    return token;
}

CWebServer::CWebServer(const TServeOptions& options) : m_Options(options) {
    if (!IsLoopback(options.host) && options.token.empty())
        throw CBadParameter("will not serve every machine's file names on " + options.host +
                            " without --token-file (only a loopback address may run open)");
    if (options.tlsCert.empty() != options.tlsKey.empty())
        throw CBadParameter("--tls-cert and --tls-key go together");
    m_Pool = std::make_unique<CCataloguePool>(options.db, kCatalogueAge);
    if (!options.tlsCert.empty()) {
        auto tls = std::make_unique<httplib::SSLServer>(options.tlsCert.c_str(), options.tlsKey.c_str());
        if (!tls->is_valid())
            throw CExc(util::Utf8ToUtf16("cannot use the certificate " + options.tlsCert + " with the key " +
                                         options.tlsKey));
        m_Http = std::move(tls);
    } else {
        m_Http = std::make_unique<httplib::Server>();
    }
    m_Http->set_payload_max_length(kMaxBody);
    // An answer goes out as two writes (headers, then body). With Nagle's
    // algorithm the body waits for the client's ACK of the headers, which a
    // kept-alive client delays by up to 40 ms: every answer after a
    // connection's first would take that long.
    m_Http->set_tcp_nodelay(true);
    // cpp-httplib 0.11 listens with a backlog of 5 and closes a kept-alive
    // connection after 5 requests: eight busy clients connecting again at
    // once overflow the backlog, and a dropped connection request is sent
    // again only after a second. The socket is kept to listen again with the
    // system's backlog once bound (listen() on a listening socket sets it).
    int listening = -1;
    m_Http->set_socket_options([&listening](socket_t sock) {
        httplib::default_socket_options(sock);
        listening = sock;
    });
    m_Http->set_keep_alive_max_count(1000);
    _Routes();
    m_Port = options.port == 0 ? m_Http->bind_to_any_port(options.host)
                               : (m_Http->bind_to_port(options.host, options.port) ? options.port : -1);
    if (m_Port >= 0 && listening >= 0) ::listen(listening, SOMAXCONN);
    if (m_Port < 0)
        throw CExc(util::Utf8ToUtf16("cannot listen on " + options.host + ":" + std::to_string(options.port) + ": " +
                                     std::strerror(errno)));
}

CWebServer::~CWebServer() = default;

std::string CWebServer::Url() const {
    const std::string host = m_Options.host.find(':') != std::string::npos ? "[" + m_Options.host + "]" : m_Options.host;
    return (m_Options.tlsCert.empty() ? "http://" : "https://") + host + ":" + std::to_string(m_Port) + "/";
}

void CWebServer::Run() {
    m_Http->listen_after_bind();
    m_Ended = true;
}

void CWebServer::Stop() {
    // A stop asked for before the server runs would be lost: wait for it.
    while (!m_Http->is_running() && !m_Ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_Http->stop();
}

void CWebServer::_Routes() {
    httplib::Server& http = *m_Http;
    const std::string token = m_Options.token;
    http.set_pre_routing_handler([token](const httplib::Request& req, httplib::Response& res) {
        res.set_header("X-Content-Type-Options", "nosniff");
        if (req.method != "GET" && req.method != "HEAD") {
            res.set_header("Allow", "GET, HEAD");
            SetJson(res, 405, ErrorJson(req.method + " is not answered here; use GET"));
            return httplib::Server::HandlerResponse::Handled;
        }
        if (!token.empty() && req.path.rfind("/api/", 0) == 0 &&
            !SameSecret(req.get_header_value("Authorization"), "Bearer " + token)) {
            res.set_header("WWW-Authenticate", "Bearer");
            SetJson(res, 401, ErrorJson("this catalogue needs its token: Authorization: Bearer <token>"));
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    http.Get(R"(/api/([^/]*))", [this](const httplib::Request& req, httplib::Response& res) {
        auto lease = m_Pool->Take();
        const TApiAnswer answer = AnswerApi(*lease, req.matches[1].str(), req.params);
        if (answer.status >= 500) lease.Drop();
        SetJson(res, answer.status, answer.body);
    });
    for (const TPageFile& file : PageFiles()) {
        http.Get(file.path, [&file](const httplib::Request&, httplib::Response& res) {
            res.set_header("Content-Security-Policy", "default-src 'self'");
            res.set_content(file.content, file.type);
        });
    }
    http.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty()) return;
        SetJson(res, res.status, ErrorJson(res.status == 404 ? "nothing at " + req.path : "bad request"));
    });
}

}  // namespace catalogue
