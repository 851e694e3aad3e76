// export FILE --format csv|jsonl: every folder, file and link of an index,
// one line each, for loading into a catalogue database. Folders come from
// memory, files and links are streamed; a line is built in one buffer.

#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/model/values.h"
#include "catalogue/index/volume_index.h"

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
    CExporter(const CVolumeIndex& index, CTextOut& out, bool json) : m_Out(out), m_Json(json) {
        if (!m_Json) m_Out << "type,path,size,mtime,owner_sid,owner_account,target\n";
        // Each owner's two fields, quoted once for all its files.
        for (uint64_t id = 0; id < index.GetOwnerCount(); ++id) {
            std::string fields;
            if (m_Json) {
                fields = ",\"owner_sid\":";
                AppendJson(fields, index.Owner(id)->sid);
                fields += ",\"owner_account\":";
                AppendJson(fields, index.Owner(id)->account);
            } else {
                std::string sid, account;
                AppendUtf8(sid, index.Owner(id)->sid);
                AppendUtf8(account, index.Owner(id)->account);
                AppendCsv(fields, sid);
                fields += ',';
                AppendCsv(fields, account);
            }
            m_OwnerFields.push_back(std::move(fields));
        }
        m_NoOwner = m_Json ? ",\"owner_sid\":\"\",\"owner_account\":\"\"" : ",";
    }

    void Write(const TRow& row) {
        m_Line.clear();
        const std::string& owner = row.owner < m_OwnerFields.size() ? m_OwnerFields[row.owner] : m_NoOwner;
        if (m_Json) {
            m_Line += "{\"type\":\"";
            m_Line += row.type;
            m_Line += "\",\"path\":";
            AppendJson(m_Line, row.path);
            if (row.hasFileFields) {
                m_Line += ",\"size\":";
                AppendNumber(m_Line, row.size);
                m_Line += ",\"mtime\":\"";
                AppendIsoTime(m_Line, row.time, true);
                m_Line += '"';
                m_Line += owner;
            }
            if (!row.target.empty()) {
                m_Line += ",\"target\":";
                AppendJson(m_Line, row.target);
            }
            m_Line += "}\n";
        } else {
            m_Line += row.type;
            m_Line += ',';
            m_Text.clear();
            AppendUtf8(m_Text, row.path);
            AppendCsv(m_Line, m_Text);
            m_Line += ',';
            if (row.hasFileFields) {
                AppendNumber(m_Line, row.size);
                m_Line += ',';
                AppendIsoTime(m_Line, row.time, true);
                m_Line += ',';
                m_Line += owner;
            } else {
                m_Line += ",,,";
            }
            m_Line += ',';
            m_Text.clear();
            AppendUtf8(m_Text, row.target);
            AppendCsv(m_Line, m_Text);
            m_Line += '\n';
        }
        m_Out << m_Line;
    }

private:
    CTextOut& m_Out;
    bool m_Json;
    std::vector<std::string> m_OwnerFields;
    std::string m_NoOwner;
    std::string m_Line, m_Text;
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
