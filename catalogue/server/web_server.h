#pragma once
// catalogue::CWebServer: the catalogue's web page and JSON API (api.h) over
// HTTP or HTTPS (cpp-httplib, OpenSSL), reading the database read-only.
//
// Who may look: on a loopback address the server may run open; on any other
// it refuses to start without a token. With a token every /api/ request
// needs "Authorization: Bearer <token>" (compared in constant time) and gets
// 401 otherwise; the page itself holds no data and asks for the token.
// Methods other than GET (and HEAD) get 405.

#include <atomic>
#include <memory>
#include <string>

namespace httplib {
class Server;
}

namespace catalogue {

class CCataloguePool;

struct TServeOptions {
    std::string db;
    std::string host = "127.0.0.1";
    int port = 8080;  // 0: any free port
    std::string token;  // empty: open (loopback only)
    std::string tlsCert, tlsKey;  // PEM files; both or neither
};

// "127.0.0.1:8080", "[::1]:8080", "0.0.0.0:80", "localhost:0". Throws
// CBadParameter for anything else.
void ParseListen(const std::string& text, TServeOptions& options);
// 127.0.0.0/8, ::1, localhost.
bool IsLoopback(const std::string& host);
// The token of a --token-file: its first line, without surrounding white
// space; throws CExc when unreadable or empty.
std::string ReadToken(const std::string& file);

class CWebServer {
public:
    // Opens the database and binds the address; throws CExc (database,
    // certificate, address in use) or CBadParameter (refused address).
    explicit CWebServer(const TServeOptions& options);
    ~CWebServer();
    int Port() const { return m_Port; }
    // "http://127.0.0.1:8080/".
    std::string Url() const;
    // Serves until Stop() (from another thread, before or after Run starts).
    void Run();
    void Stop();

private:
    void _Routes();

    TServeOptions m_Options;
    std::unique_ptr<CCataloguePool> m_Pool;
    std::unique_ptr<httplib::Server> m_Http;
    int m_Port = 0;
    std::atomic<bool> m_Ended{false};
};

}  // namespace catalogue
