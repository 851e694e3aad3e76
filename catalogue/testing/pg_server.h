#pragma once
// A PostgreSQL server of Debian's package for the tests of the catalogue's
// databases: made with initdb in a temporary folder, listening on a socket
// there only (no TCP), and stopped when the test program ends, also after a
// failed test. initdb and pg_ctl refuse to run as root: as root they run as
// the package's user "postgres" (runuser). Conninfo() is empty, with
// Why() saying why, where the package is not installed or the server does
// not start.

#include <string>

namespace cattest {

class CPgServer {
public:
    // The one server of the test program, started on first use.
    static CPgServer& Get();
    const std::string& Conninfo() const { return m_Conninfo; }
    const std::string& Why() const { return m_Why; }
    // A fresh database on the server: its conninfo.
    std::string NewDatabase();

    ~CPgServer();

private:
    CPgServer();
    std::string m_Bin, m_Dir, m_As, m_Conninfo, m_Why;
    int m_Databases = 0;
};

}  // namespace cattest
