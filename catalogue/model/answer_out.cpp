#include "catalogue/model/answer_out.h"

#include "catalogue/model/values.h"

namespace catalogue {

namespace {

std::string Json(std::u16string_view text) {
    std::string quoted;
    AppendJson(quoted, text);
    return quoted;
}

std::string JsonTime(uint64_t ticks) { return "\"" + IsoTime(ticks, true) + "\""; }

std::string JsonPoints(const std::vector<int64_t>& points) {
    std::string text = "[";
    for (size_t i = 0; i < points.size(); ++i) text += (i ? "," : "") + std::to_string(points[i]);
    return text + "]";
}

std::string JsonSide(const TSide& side, EKind kind) {
    if (kind == EKind::kDir) return "{}";
    if (kind == EKind::kLink) return "{\"target\":" + Json(side.target) + "}";
    return "{\"size\":" + std::to_string(side.size) + ",\"modified\":" + JsonTime(side.modified) +
           ",\"owner\":" + Json(side.owner.Shown()) + ",\"owner_sid\":" + Json(side.owner.sid) + "}";
}

}  // namespace

void WriteVersionJson(CTextOut& out, const TVersion& v) {
    const bool file = v.kind == EKind::kFile;
    out << "{\"machine\":" << Json(v.machine) << ",\"volume\":" << Json(v.volume) << ",\"path\":" << Json(v.path)
        << ",\"type\":\"" << KindName(v.kind) << "\",\"size\":" << (file ? std::to_string(v.size) : "null")
        << ",\"modified\":" << (file ? JsonTime(v.modified) : "null")
        << ",\"owner\":" << (file ? Json(v.owner.Shown()) : "null");
    if (file) out << ",\"owner_sid\":" << Json(v.owner.sid);
    if (v.kind == EKind::kLink) out << ",\"target\":" << Json(v.target);
    out << ",\"points\":" << JsonPoints(v.points) << "}\n";
}

void WritePointJson(CTextOut& out, const TPointInfo& p) {
    out << "{\"id\":" << std::to_string(p.id) << ",\"machine\":" << Json(p.machine) << ",\"taken\":" << JsonTime(p.taken)
        << ",\"volumes\":[";
    for (size_t i = 0; i < p.volumes.size(); ++i) out << (i ? "," : "") << Json(p.volumes[i]);
    out << "],\"files\":" << p.files << ",\"source\":" << Json(p.source) << "}\n";
}

void WriteMachineJson(CTextOut& out, const TMachineInfo& m) {
    out << "{\"machine\":" << Json(m.name) << ",\"points\":" << m.points
        << ",\"first\":" << (m.points ? JsonTime(m.firstTaken) : "null")
        << ",\"last\":" << (m.points ? JsonTime(m.lastTaken) : "null") << "}\n";
}

void WriteChangeJson(CTextOut& out, const TChange& c) {
    out << "{\"change\":\"" << ChangeName(c.what) << "\",\"volume\":" << Json(c.volume) << ",\"path\":" << Json(c.path)
        << ",\"type\":\"" << KindName(c.kind) << "\"";
    if (c.before) out << ",\"old\":" << JsonSide(*c.before, c.kind);
    if (c.after) out << ",\"new\":" << JsonSide(*c.after, c.kind);
    out << "}\n";
}

std::string PointList(const std::vector<int64_t>& points) {
    std::string text;
    for (size_t i = 0; i < points.size();) {
        size_t j = i;
        while (j + 1 < points.size() && points[j + 1] == points[j] + 1) ++j;
        text += (text.empty() ? "" : ",") + std::to_string(points[i]);
        if (j > i) text += (j == i + 1 ? "," : "-") + std::to_string(points[j]);
        i = j + 1;
    }
    return text;
}

void WriteVersionText(CTextOut& out, const TVersion& v) {
    out << v.machine << "  " << v.volume << v.path << (v.kind == EKind::kDir ? "\\" : "");
    if (v.kind == EKind::kFile)
        out << "  " << v.size << "  " << IsoTime(v.modified) << "  " << v.owner.Shown();
    if (v.kind == EKind::kLink) out << " -> " << v.target;
    out << "  points " << PointList(v.points) << "\n";
}

void WriteChangeText(CTextOut& out, const TChange& c) {
    static const char kMark[] = {'+', '-', '~'};
    out << kMark[c.what] << ' ' << c.volume << c.path << (c.kind == EKind::kDir ? "\\" : "");
    if (c.what != TChange::kChanged) {
        out << "\n";
        return;
    }
    const TSide &a = *c.before, &b = *c.after;
    std::string what;
    auto add = [&](const std::string& part) { what += (what.empty() ? "" : ", ") + part; };
    auto utf8 = [](std::u16string_view text) {
        std::string s;
        AppendUtf8(s, text);
        return s;
    };
    if (a.size != b.size) add("size " + std::to_string(a.size) + " -> " + std::to_string(b.size));
    if (a.modified != b.modified) add("time " + IsoTime(a.modified, true) + " -> " + IsoTime(b.modified, true));
    if (a.owner.sid != b.owner.sid) add("owner " + utf8(a.owner.sid) + " -> " + utf8(b.owner.sid));
    if (a.target != b.target) add("target " + utf8(a.target) + " -> " + utf8(b.target));
    out << "  " << what << "\n";
}

}  // namespace catalogue
