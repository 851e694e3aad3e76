#include "catalogue/server/api.h"

#include <charconv>
#include <set>

#include "base/case.h"
#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/model/answer_out.h"
#include "catalogue/model/query_params.h"
#include "catalogue/model/values.h"

namespace catalogue {

namespace {

// A machine, restore point or path that is not in the catalogue.
class CNotFound : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

const std::set<std::string> kFilterNames = {"machine", "volume",       "type",     "owner",    "at",
                                            "from",    "to",           "taken-after", "taken-before",
                                            "min-size", "max-size",    "newer",    "older"};

// The request's parameters, by the command line's names ("min-size" for
// min_size); each at most once, none unknown to the question.
class CRequest {
public:
    CRequest(const TApiParams& params, std::set<std::string> known) {
        known.insert({"limit", "after"});
        for (const auto& [key, value] : params) {
            // min_size is looked up as "min-size"; a web name spelled with
            // "-" becomes one with "_", which no question knows.
            std::string name = key;
            for (char& c : name) c = c == '_' ? '-' : c == '-' ? '_' : c;
            if (!known.count(name)) throw CBadParameter("unknown parameter '" + key + "'");
            if (value.size() > kMaxParamBytes)
                throw CBadParameter(key + " is longer than " + std::to_string(kMaxParamBytes) + " bytes");
            if (!m_Values.emplace(name, value).second) throw CBadParameter(key + " is given twice");
        }
    }
    CQueryParams Params() const {
        return CQueryParams(
            [this](const std::string& name) {
                const auto it = m_Values.find(name);
                return it == m_Values.end() ? nullptr : &it->second;
            },
            [](std::string name) {
                for (char& c : name)
                    if (c == '-') c = '_';
                return name;
            });
    }
    const std::string* Get(const std::string& name) const {
        const auto it = m_Values.find(name);
        return it == m_Values.end() ? nullptr : &it->second;
    }
    std::u16string Required(const std::string& name) const {
        const std::string* value = Get(name);
        if (!value || value->empty()) throw CBadParameter(name + " is needed");
        return util::Wtf8ToUtf16(*value);
    }
    size_t Number(const std::string& name, size_t otherwise) const {
        const std::string* text = Get(name);
        if (!text) return otherwise;
        size_t value = 0;
        const auto end = text->data() + text->size();
        const auto [ptr, ec] = std::from_chars(text->data(), end, value);
        if (ec != std::errc() || ptr != end) throw CBadParameter(name + " '" + *text + "' is not a number");
        return value;
    }

private:
    std::map<std::string, std::string> m_Values;
};

std::set<std::string> Names(std::initializer_list<const char*> extra, bool filter = false) {
    std::set<std::string> names(extra.begin(), extra.end());
    if (filter) names.insert(kFilterNames.begin(), kFilterNames.end());
    return names;
}

// Every JSON line of a list, as an array's page.
template <class T, class Write>
std::string Page(const std::vector<T>& list, const CRequest& request, Write write) {
    const size_t limit = request.Number("limit", kDefaultPageSize);
    if (limit < 1 || limit > kMaxPageSize)
        throw CBadParameter("limit must be 1 to " + std::to_string(kMaxPageSize));
    const size_t after = request.Number("after", 0);
    if (after > list.size()) throw CBadParameter("after " + std::to_string(after) + " is past the last result");
    const size_t end = std::min(list.size(), after + limit);
    std::string body = "{\"results\":[";
    for (size_t i = after; i < end; ++i) {
        CTextOut line;
        write(line, list[i]);
        if (i > after) body += ',';
        // The command line's line without its line feed.
        body.append(line.Text(), 0, line.Text().size() - 1);
    }
    return body + "],\"next\":" + (end < list.size() ? std::to_string(end) : std::string("null")) + "}";
}

void CheckMachine(const CCatalogue& catalogue, const std::optional<std::u16string>& machine) {
    if (!machine) return;
    for (const auto& m : catalogue.Machines())
        if (util::EqualNoCase(m.name, *machine)) return;
    throw CNotFound("no machine " + util::Utf16ToWtf8(*machine) + " in the catalogue");
}

// Restore point `id` of `machine` (any machine when not given).
const TPointInfo& CheckPoint(const CCatalogue& catalogue, int64_t id, const std::optional<std::u16string>& machine) {
    for (const auto& p : catalogue.Points())
        if (p.id == id) {
            if (machine && !util::EqualNoCase(p.machine, *machine))
                throw CNotFound("restore point " + std::to_string(id) + " is not one of " +
                                util::Utf16ToWtf8(*machine) + "'s");
            return catalogue.Point(id);
        }
    throw CNotFound("no restore point " + std::to_string(id));
}

std::string Answer(CCatalogue& catalogue, std::string_view question, const TApiParams& params) {
    if (question == "search") {
        const CRequest request(params, Names({"q"}, true));
        const std::u16string pattern = request.Required("q");
        const TSearchFilter filter = request.Params().Filter();
        CheckMachine(catalogue, filter.machine);
        for (const auto& point : {filter.fromPoint, filter.toPoint})
            if (point) CheckPoint(catalogue, *point, std::nullopt);
        std::vector<TVersion> found;
        try {
            found = catalogue.Search(pattern, filter, kMaxSearchResults);
        } catch (const CTooManyResults& e) {
            throw CBadParameter(std::string(e.what()) + " '" + util::Utf16ToWtf8(pattern) +
                                "': narrow the search (a longer name, a machine, a volume, a time or size range)");
        }
        return Page(found, request, WriteVersionJson);
    }
    if (question == "versions") {
        const CRequest request(params, Names({"path"}, true));
        const std::u16string path = request.Required("path");
        const TSearchFilter filter = request.Params().Filter();
        CheckMachine(catalogue, filter.machine);
        const auto list = catalogue.Versions(path, filter);
        if (list.empty()) throw CNotFound("no entry " + util::Utf16ToWtf8(path) + " in the catalogue");
        return Page(list, request, WriteVersionJson);
    }
    if (question == "ls") {
        const CRequest request(params, Names({"machine", "path", "at", "volume"}));
        const CQueryParams p = request.Params();
        const auto machine = p.Text("machine");
        CheckMachine(catalogue, machine);
        const int64_t at = p.Point("at");
        CheckPoint(catalogue, at, machine);
        const std::string* path = request.Get("path");
        std::vector<TVersion> list;
        try {
            list = catalogue.Ls(path && !path->empty() ? util::Wtf8ToUtf16(*path) : u"\\", at, p.Text("volume"));
        } catch (const CExc& e) {
            // The point is there: what is missing is the folder.
            throw CNotFound(util::Utf16ToUtf8(e.GetMessages().empty() ? u"no such folder" : e.GetMessages()[0]));
        }
        return Page(list, request, WriteVersionJson);
    }
    if (question == "changes") {
        const CRequest request(params, Names({"machine", "from", "to"}));
        const CQueryParams p = request.Params();
        const auto machine = p.Text("machine");
        CheckMachine(catalogue, machine);
        const int64_t from = p.Point("from"), to = p.Point("to");
        const std::u16string owner = CheckPoint(catalogue, from, machine).machine;
        CheckPoint(catalogue, to, owner);
        return Page(catalogue.Changes(from, to), request, WriteChangeJson);
    }
    if (question == "machines") {
        const CRequest request(params, {});
        return Page(catalogue.Machines(), request, WriteMachineJson);
    }
    if (question == "points") {
        const CRequest request(params, Names({"machine"}));
        const auto machine = request.Params().Text("machine");
        CheckMachine(catalogue, machine);
        return Page(catalogue.Points(machine), request, WritePointJson);
    }
    throw CNotFound("no question /api/" + std::string(question) +
                    " (search, versions, ls, changes, machines, points)");
}

}  // namespace

std::string ErrorJson(std::string_view text) {
    // Parameters quoted in messages may not be UTF-8.
    std::string body = "{\"error\":";
    AppendJson(body, util::Wtf8ToUtf16(text));
    return body + "}";
}

TApiAnswer AnswerApi(CCatalogue& catalogue, std::string_view question, const TApiParams& params) {
    try {
        return {200, Answer(catalogue, question, params)};
    } catch (const CBadParameter& e) {
        return {400, ErrorJson(e.what())};
    } catch (const CNotFound& e) {
        return {404, ErrorJson(e.what())};
    } catch (const CExc& e) {
        std::u16string text;
        for (const auto& line : e.GetMessages()) text += (text.empty() ? u"" : u"; ") + line;
        return {500, ErrorJson(util::Utf16ToUtf8(text))};
    } catch (const std::exception& e) {
        return {500, ErrorJson(e.what())};
    }
}

}  // namespace catalogue
