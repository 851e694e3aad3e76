#include "catalogue/model/query_params.h"

#include <charconv>

#include "base/utf.h"
#include "catalogue/model/values.h"

namespace catalogue {

int64_t CQueryParams::Point(const std::string& name) const {
    const std::string* text = m_Get(name);
    if (!text) throw CBadParameter(m_Spell(name) + " RP is needed");
    int64_t id = 0;
    const auto end = text->data() + text->size();
    const auto [ptr, ec] = std::from_chars(text->data(), end, id);
    if (ec != std::errc() || ptr != end || id <= 0)
        throw CBadParameter(m_Spell(name) + " '" + *text + "' is not a restore point id (see 'points')");
    return id;
}

std::optional<std::u16string> CQueryParams::Text(const std::string& name) const {
    const std::string* text = m_Get(name);
    return text ? std::optional<std::u16string>(util::Wtf8ToUtf16(*text)) : std::nullopt;
}

std::optional<uint64_t> CQueryParams::_Parsed(const std::string& name, std::optional<uint64_t> (*parse)(std::string_view),
                                              const char* what) const {
    const std::string* text = m_Get(name);
    if (!text) return std::nullopt;
    const auto value = parse(*text);
    if (!value) throw CBadParameter(m_Spell(name) + " '" + *text + "' is not " + what);
    return value;
}

std::optional<uint64_t> CQueryParams::Time(const std::string& name) const {
    return _Parsed(name, ParseIsoTime, "a time (YYYY-MM-DD[Thh:mm[:ss]])");
}

std::optional<uint64_t> CQueryParams::Size(const std::string& name) const { return _Parsed(name, ParseSize, "a size"); }

TSearchFilter CQueryParams::Filter() const {
    TSearchFilter filter;
    filter.machine = Text("machine");
    filter.volume = Text("volume");
    filter.owner = Text("owner");
    if (const std::string* type = m_Get("type")) {
        if (*type == "f") filter.kind = EKind::kFile;
        else if (*type == "d") filter.kind = EKind::kDir;
        else if (*type == "l") filter.kind = EKind::kLink;
        else throw CBadParameter(m_Spell("type") + " '" + *type + "' is not f, d or l");
    }
    if (Has("at")) filter.fromPoint = filter.toPoint = Point("at");
    if (Has("from")) filter.fromPoint = Point("from");
    if (Has("to")) filter.toPoint = Point("to");
    filter.takenFrom = Time("taken-after");
    filter.takenTo = Time("taken-before");
    filter.minSize = Size("min-size");
    filter.maxSize = Size("max-size");
    filter.modifiedFrom = Time("newer");
    filter.modifiedTo = Time("older");
    return filter;
}

}  // namespace catalogue
