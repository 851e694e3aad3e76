#include "catalogue/testing/web_fixture.h"

#include <stdexcept>

#include "catalogue/testing/run_writer.h"

namespace cattest {

namespace {

constexpr uint64_t kT1 = Ft(1767571200), kT2 = Ft(1767657600), kT3 = Ft(1767744000);  // 2026-01-05, -06, -07

void Ingest(const CRun& run, const std::string& db, const char* machine, const char* taken) {
    const TRun result = RunTool({"ingest", run.Dir(), "--machine", machine, "--taken", taken, "--db", db});
    if (result.code != 0) throw std::runtime_error("ingest " + run.Dir() + ": " + result.err);
}

}  // namespace

void MakeWebCatalogue(const std::string& scratch, const std::string& db) {
    auto pc = [](uint64_t budgetSize, uint64_t budgetTime) {
        return [=](CIndexBuilder& b) {
            const uint32_t alice = b.Owner(u"S-1-5-21-1-2-3-1001", u"alice", u"CORP");
            b.File(u"Users\\alice\\Documents\\budget-2026.xlsx", budgetSize, budgetTime, alice);
            b.File(u"Users\\alice\\Documents\\report.docx", 700, kT1, alice);
            b.File(u"Odd\\it's \"quoted\".txt", 1, kT1);
            b.File(u"Odd\\100% done_v2.txt", 2, kT1);
            b.File(u"Odd\\photo \U0001F600 beach.jpg", 3, kT1);
            // Damaged names: two that differ only in their lone surrogates,
            // and a folder whose name has one.
            b.File(std::u16string(u"Odd\\damaged ") + char16_t(0xD800) + u" name.txt", 4, kT1);
            b.File(std::u16string(u"Odd\\damaged ") + char16_t(0xDC00) + u" name.txt", 5, kT1);
            b.File(std::u16string(u"Odd\\torn ") + char16_t(0xDBFF) + u"\\inside.txt", 6, kT1);
            for (int i = 0; i < 250; ++i) {
                std::string n = std::to_string(i);
                b.File(u"Logs\\log_" + util::Utf8ToUtf16(std::string(3 - n.size(), '0') + n) + u".txt", 100 + i, kT1);
            }
        };
    };
    CRun one(std::filesystem::path(scratch) / "pc-01-1"), two(std::filesystem::path(scratch) / "pc-01-2"),
        server(std::filesystem::path(scratch) / "srv-02-1");
    one.Write(pc(50000, kT1));
    two.Write(pc(51000, kT2));
    server.Write([](CIndexBuilder& b) {
        const uint32_t bob = b.Owner(u"S-1-5-21-1-2-3-1002", u"bob", u"CORP");
        b.File(u"Shares\\Finance\\budget-2026.xlsx", 2500000, kT3, bob);
        b.File(u"Shares\\Finance\\forecast.xlsx", 9000, kT3, bob);
    });
    Ingest(one, db, "pc-01", "2026-01-05T18:00");
    Ingest(two, db, "pc-01", "2026-01-06T18:00");
    Ingest(server, db, "srv-02", "2026-01-07T18:00");
}

}  // namespace cattest
