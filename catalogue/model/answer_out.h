#pragma once
// The catalogue's answers as text for people and as JSON lines for programs
// (docs/catalogue.md, "JSON lines"): one object a line, UTF-8, times in ISO
// 8601 UTC with seven fraction digits. Fields that a kind of entry does not
// have (a folder's size) are null.

#include "catalogue/model/catalogue_types.h"
#include "catalogue/model/text_out.h"

namespace catalogue {

void WriteVersionJson(CTextOut& out, const TVersion& v);
void WritePointJson(CTextOut& out, const TPointInfo& p);
void WriteMachineJson(CTextOut& out, const TMachineInfo& m);
void WriteChangeJson(CTextOut& out, const TChange& c);

// "1-3,7": restore point ids, runs of consecutive ids joined.
std::string PointList(const std::vector<int64_t>& points);
// A version on one line: machine, volume and path, kind, size, time,
// owner, link target, restore points.
void WriteVersionText(CTextOut& out, const TVersion& v);
// A change as `diff` writes one: "+ C:\path", "- ...", "~ ...  size a -> b".
void WriteChangeText(CTextOut& out, const TChange& c);

}  // namespace catalogue
