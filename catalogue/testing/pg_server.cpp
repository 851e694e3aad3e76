#include "catalogue/testing/pg_server.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace cattest {

namespace {

namespace fs = std::filesystem;

std::string FindBin() {
    std::error_code ec;
    std::string best;
    for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", ec))
        if (fs::exists(entry.path() / "bin" / "initdb") && entry.path().string() > best) best = entry.path().string();
    return best.empty() ? best : best + "/bin";
}

int Shell(const std::string& line) { return std::system(line.c_str()); }

}  // namespace

CPgServer& CPgServer::Get() {
    static CPgServer server;
    return server;
}

CPgServer::CPgServer() {
    m_Bin = FindBin();
    if (m_Bin.empty()) {
        m_Why = "PostgreSQL is not installed (no /usr/lib/postgresql/*/bin/initdb; package postgresql)";
        return;
    }
    char pattern[] = "/tmp/ngi-pg.XXXXXX";
    if (!mkdtemp(pattern)) {
        m_Why = "cannot make a temporary folder";
        return;
    }
    m_Dir = pattern;
    if (geteuid() == 0) {
        if (Shell("id -u postgres >/dev/null 2>&1") != 0 || Shell("command -v runuser >/dev/null") != 0) {
            m_Why = "running as root without the user postgres or runuser to start the server as";
            return;
        }
        Shell("chown postgres '" + m_Dir + "'");
        m_As = "runuser -u postgres -- ";
    }
    const std::string data = m_Dir + "/data";
    if (Shell(m_As + m_Bin + "/initdb -D '" + data + "' -A trust -U postgres -E UTF8 --no-locale >'" + m_Dir +
              "/initdb.log' 2>&1") != 0) {
        m_Why = "initdb failed: see " + m_Dir + "/initdb.log";
        return;
    }
    if (Shell(m_As + m_Bin + "/pg_ctl -D '" + data + "' -l '" + m_Dir + "/server.log' -w -o \"-k '" + m_Dir +
              "' -c listen_addresses='' -c fsync=off\" start >/dev/null 2>&1") != 0) {
        m_Why = "the server did not start: see " + m_Dir + "/server.log";
        return;
    }
    m_Conninfo = "postgresql:///postgres?host=" + m_Dir + "&user=postgres";
}

std::string CPgServer::NewDatabase() {
    const std::string name = "t" + std::to_string(++m_Databases);
    Shell(m_Bin + "/psql -q -h '" + m_Dir + "' -U postgres -d postgres -c 'CREATE DATABASE " + name + "' >/dev/null");
    return "postgresql:///" + name + "?host=" + m_Dir + "&user=postgres";
}

CPgServer::~CPgServer() {
    if (!m_Conninfo.empty())
        Shell(m_As + m_Bin + "/pg_ctl -D '" + m_Dir + "/data' -m immediate -w stop >/dev/null 2>&1");
    if (!m_Dir.empty()) {
        std::error_code ec;
        fs::remove_all(m_Dir, ec);
    }
}

}  // namespace cattest
