#pragma once
// The web API: GET /api/<question>?<parameters> answered over a catalogue,
// with the parameters of the command line's questions (min_size for
// --min-size) and, in "results", the objects its --json lines hold, written
// by the same writer (answer_out.h). Independent of any HTTP library.
//
//   search?q=&machine=&volume=&type=&owner=&at=&from=&to=&taken_after=
//         &taken_before=&min_size=&max_size=&newer=&older=
//   versions?path=&machine=&volume=   ls?machine=&path=&at=&volume=
//   changes?machine=&from=&to=        machines    points?machine=
//
// Every answer is {"results": [...], "next": N|null}, a page of at most
// `limit` results (1 to 1000, 100 by default) from `after` (0 by default);
// `next` is the `after` of the next page, null on the last. Errors are
// {"error": "..."}: 400 for a missing, unknown, repeated or bad parameter,
// 404 for an unknown question, machine, restore point or path.

#include <map>
#include <string>
#include <string_view>

#include "catalogue/db/catalogue_db.h"

namespace catalogue {

using TApiParams = std::multimap<std::string, std::string>;

struct TApiAnswer {
    int status = 200;
    std::string body;  // JSON
};

inline constexpr size_t kMaxPageSize = 1000;
inline constexpr size_t kDefaultPageSize = 100;
// The most versions one search may find: a pattern that matches more (such
// as "*" over millions of files) is refused, 400, rather than built and
// sorted again for every page it would take.
inline constexpr size_t kMaxSearchResults = 100000;
// The longest pattern or path a request may give, in bytes.
inline constexpr size_t kMaxParamBytes = 2048;

// `question` is what follows "/api/". Database errors give 500.
TApiAnswer AnswerApi(CCatalogue& catalogue, std::string_view question, const TApiParams& params);

// {"error": text}.
std::string ErrorJson(std::string_view text);

}  // namespace catalogue
