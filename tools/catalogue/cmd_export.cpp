// export FILE --format csv|jsonl: every folder, file and link of an index,
// one line each, for loading into a catalogue database. Folders come from
// memory, files and links are streamed; a line is built in one buffer.

#include "base/utf.h"
#include "catalogue/commands.h"
#include "catalogue/values.h"
#include "catalogue/volume_index.h"

namespace catalogue {

namespace {

struct TRow {
    const char* type = "";
    std::u16string_view path;
    bool hasFileFields = false;
    uint64_t size = 0, time = 0, owner = 0;
    std::u16string_view target;
};

class CExporter {
public:
    CExporter(CVolumeIndex& index, CTextOut& out, bool json) : m_Index(index), m_Out(out), m_Json(json) {
        if (!m_Json) m_Out << "type,path,size,mtime,owner_sid,owner_account,target\n";
    }

    void Write(const TRow& row) {
        m_Line.clear();
        m_Path.clear();
        AppendUtf8(m_Path, row.path);
        std::string sid, account;
        if (row.hasFileFields) {
            if (const TOwner* owner = m_Index.Owner(row.owner)) {
                AppendUtf8(sid, owner->sid);
                AppendUtf8(account, owner->account);
            }
        }
        std::string target;
        AppendUtf8(target, row.target);
        const std::string size = row.hasFileFields ? std::to_string(row.size) : std::string();
        const std::string time = row.hasFileFields ? IsoTime(row.time, true) : std::string();
        if (m_Json) {
            m_Line += "{\"type\":\"";
            m_Line += row.type;
            m_Line += "\",\"path\":";
            AppendJson(m_Line, m_Path);
            if (row.hasFileFields) {
                m_Line += ",\"size\":" + size + ",\"mtime\":\"" + time + "\",\"owner_sid\":";
                AppendJson(m_Line, sid);
                m_Line += ",\"owner_account\":";
                AppendJson(m_Line, account);
            }
            if (!row.target.empty()) {
                m_Line += ",\"target\":";
                AppendJson(m_Line, target);
            }
            m_Line += "}\n";
        } else {
            m_Line += row.type;
            m_Line += ',';
            AppendCsv(m_Line, m_Path);
            m_Line += ',' + size + ',' + time + ',';
            AppendCsv(m_Line, sid);
            m_Line += ',';
            AppendCsv(m_Line, account);
            m_Line += ',';
            AppendCsv(m_Line, target);
            m_Line += '\n';
        }
        m_Out << m_Line;
    }

private:
    CVolumeIndex& m_Index;
    CTextOut& m_Out;
    bool m_Json;
    std::string m_Line, m_Path;
};

}  // namespace

int RunExport(const TArgs& args, TContext& ctx) {
    const std::string* format = args.Get("format");
    if (!format) throw CUsageError("--format csv|jsonl is required");
    if (*format != "csv" && *format != "jsonl") throw CUsageError("--format takes csv or jsonl");
    CVolumeIndex index(ArgPath(args.positional[0]));
    CExporter exporter(index, ctx.out, *format == "jsonl");
    const uint64_t dirCount = index.GetDirCount();
    for (uint64_t id = 0; id < dirCount; ++id) {
        const std::u16string path = index.DirPath(id);
        TRow row;
        row.type = "dir";
        row.path = path;
        exporter.Write(row);
    }
    idxdata::CTableStream files = index.Tables().Files();
    while (files.Next()) {
        const uint64_t dir = files.Qword(kFileParent);
        index.CheckParent(files, dir);
        TRow row;
        row.type = "file";
        row.path = index.EntryPath(dir, files.String(kFileName));
        row.hasFileFields = true;
        row.size = files.Qword(kFileSize);
        row.time = files.Qword(kFileTime);
        row.owner = files.Dword(kFileOwner);
        exporter.Write(row);
    }
    if (index.Tables().HasReparses()) {
        idxdata::CTableStream links = index.Tables().Reparses();
        while (links.Next()) {
            const uint64_t dir = links.Qword(kReparseParent);
            index.CheckParent(links, dir);
            TRow row;
            row.type = "link";
            row.path = index.EntryPath(dir, links.String(kReparseName));
            row.target = links.String(kReparseTarget);
            exporter.Write(row);
        }
    }
    return 0;
}

}  // namespace catalogue
