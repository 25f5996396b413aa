#include "lsp/hints.h"

#include <algorithm>
#include <regex>
#include <tuple>

#include "lsp/assist.h"
#include "model/rule_kit.h"

namespace kivtool::lsp
{

namespace
{

// The last name of a record path: "fps" of "channels[0].vsrc.fps".
std::string key_of(const std::string &path)
{
    return path.substr(path.rfind('.') + 1);
}

bool rate_key(const std::string &key)
{
    return key == "idsp_fps" || key == "fps" || key == "frame_rate";
}

bool ceiling_key(const std::string &key)
{
    return key == "max_fps" || key == "default_fps";
}

std::string ordinal(int64_t n)
{
    const int64_t t = n % 100, u = n % 10;
    return std::to_string(n) + (t >= 11 && t <= 13 ? "th"
                                : u == 1           ? "st"
                                : u == 2           ? "nd"
                                : u == 3           ? "rd"
                                                   : "th");
}

struct hint {
    size_t at; // an offset of the checked text
    std::string label, tooltip;
};

// The end of the value written at a record path, when the reading placed it.
std::optional<size_t> value_end(const place *p)
{
    if (!p || !p->present || p->value.none())
        return std::nullopt;
    return p->value.end.offset;
}

void rate_hints(const script_model &m, std::vector<hint> &out)
{
    for (const auto &[path, p] : m.named) {
        const auto at = value_end(&p);
        const auto r = at ? rate_at(m, path) : std::nullopt;
        if (!r || !r->changed())
            continue;
        const std::string label = r->ceiling ? std::to_string(r->thousandths) + " thousandths"
                                             : std::to_string(r->whole) + " whole, " +
                                                   std::to_string(r->thousandths) + " thousandths";
        out.push_back({*at, label, "`" + path + "`: " + rate_sentence(*r, m.written(p.value))});
    }
}

void truncation_hints(const script_model &m, std::vector<hint> &out)
{
    for (const script_model::slip &s : m.slips) {
        const auto held = m.held.find(s.path);
        const auto at = value_end(m.place_at(s.path));
        if (s.wrong_type || held == m.held.end() || !at)
            continue;
        out.push_back({*at, std::to_string(held->second), "`" + s.path + "`: " + s.message + "."});
    }
}

// A channel or stream whose id files it elsewhere than its place in the
// script: the loader keeps channel i and stream i at record i, and the dump
// writes them in that order (chan_0, stream_0, ...), streams only up to
// their count.
void id_hints(const script_model &m, std::vector<hint> &out)
{
    if (!kit::multi(m) || m.result != 0)
        return;
    static const std::regex ELEMENT(R"((channels|streams)\[(\d+)\])");
    for (const read_table &t : m.tables) {
        std::smatch n;
        if (t.parent < 0 || t.position < 0 || !std::regex_match(t.path, n, ELEMENT) ||
            m.tables[static_cast<size_t>(t.parent)].path != n[1].str())
            continue;
        const std::string list = n[1];
        const int64_t id = std::stoll(n[2]);
        // Two tables with one id: duplicate-id tells which one counts.
        if (std::any_of(m.duplicates.begin(), m.duplicates.end(),
                        [&](const auto &d) { return d.list == list && d.id == id; }))
            continue;
        if (t.id_at.none())
            continue;
        const size_t at = t.id_at.end.offset;
        const bool chan = list == "channels";
        const int64_t count = chan ? m.cfg->chan_num : m.cfg->stream_num;
        const std::string name = (chan ? "chan_" : "stream_") + std::to_string(id);
        const std::string here = "this table is the " + ordinal(t.position + 1) + " of `" + list +
                                 "`, and the loader files it as " + t.path;
        if (!chan && id >= count)
            out.push_back({at, "not dumped",
                           here + "; the dump writes the " + std::to_string(count) +
                               " streams by position, stream_0 to stream_" +
                               std::to_string(count - 1) + ", so it leaves this one out."});
        else if (id != t.position)
            out.push_back({at, name,
                           here + ": the dump writes it as " + name + ", the " + ordinal(id + 1) +
                               " of `" + list + "`."});
    }
}

} // namespace

bool stored_rate::changed() const
{
    if (!given)
        return true;
    // The rate written, in thousandths, as exactly as the script gave it.
    if (!hp && (*given > INT64_MAX / 1000 || *given < INT64_MIN / 1000))
        return true;
    const int64_t written = hp ? *given : *given * 1000;
    return thousandths != written || (!ceiling && int64_t{whole} * 1000 != written);
}

std::optional<stored_rate> rate_at(const script_model &m, const std::string &path)
{
    const std::string key = key_of(path);
    if (!kit::multi(m) || !(rate_key(key) || ceiling_key(key)))
        return std::nullopt;
    stored_rate r;
    r.ceiling = ceiling_key(key);
    r.hp = m.cfg->enable_hp_fps;
    if (const auto g = m.given.find(path); g != m.given.end())
        r.given = g->second;
    else if (std::none_of(m.slips.begin(), m.slips.end(), [&](const script_model::slip &s) {
                 return s.wrong_type && s.path == path;
             }))
        return std::nullopt;
    // As the library reads it (kiv_fps_from_script): the low 32 bits of the
    // integer, rounded up to whole frames from thousandths.
    const uint32_t v = static_cast<uint32_t>(r.given.value_or(0));
    if (r.ceiling) {
        r.thousandths = r.hp ? v : v * 1000u;
        return r;
    }
    r.whole = r.hp ? static_cast<uint32_t>(static_cast<int32_t>(v + 999u) / 1000) : v;
    r.thousandths = r.hp ? v : v * 1000u;
    if (key == "frame_rate") // a pyramid's or canvas's whole rate is an 8-bit field
        r.whole &= 0xFFu;
    return r;
}

std::string rate_sentence(const stored_rate &r, const std::string &written)
{
    std::string s = "With `enable_hp_fps = " + std::string(r.hp ? "1" : "0") + "`, " + written;
    if (!r.given) {
        s += " is not an integer, loaded as 0";
    } else {
        const int64_t v = *r.given;
        if (written != std::to_string(v))
            s += " (" + std::to_string(v) + ")";
        char rate[48];
        if (r.hp)
            snprintf(rate, sizeof rate, "%s%lld.%03lld", v < 0 ? "-" : "",
                     static_cast<long long>(v < 0 ? -(v / 1000) : v / 1000),
                     static_cast<long long>(v < 0 ? -(v % 1000) : v % 1000));
        else
            snprintf(rate, sizeof rate, "%lld", static_cast<long long>(v));
        s += " is " + std::string(rate) + " frames per second";
    }
    s += ": stored as ";
    if (r.ceiling)
        return s + std::to_string(r.thousandths) + " thousandths.";
    return s + std::to_string(r.whole) + " whole and " + std::to_string(r.thousandths) +
           " thousandths.";
}

json inlay_hints(const document &d, const range &asked)
{
    json out = json::array();
    if (!d.last)
        return out;
    const script_model &m = d.last->model;
    std::vector<hint> hints;
    rate_hints(m, hints);
    truncation_hints(m, hints);
    id_hints(m, hints);
    std::vector<src_span> at;
    for (const hint &h : hints) {
        src_span s;
        s.begin.line = s.end.line = 1; // a place, not none: only its offsets are carried
        s.begin.offset = s.end.offset = static_cast<uint32_t>(h.at);
        at.push_back(s);
    }
    const std::vector<std::optional<range>> now = carried(d, at);
    auto key = [](position p) { return std::pair(p.line, p.character); };
    std::vector<std::tuple<std::pair<uint32_t, uint32_t>, std::string, std::string>> shown;
    for (size_t i = 0; i < hints.size(); ++i)
        if (now[i] && key(asked.start) <= key(now[i]->end) && key(now[i]->end) <= key(asked.end))
            shown.emplace_back(key(now[i]->end), hints[i].label, hints[i].tooltip);
    // A value that a helper gives several tables is hinted once.
    std::sort(shown.begin(), shown.end());
    shown.erase(std::unique(shown.begin(), shown.end(),
                            [](const auto &a, const auto &b) {
                                return std::get<0>(a) == std::get<0>(b) &&
                                       std::get<1>(a) == std::get<1>(b);
                            }),
                shown.end());
    for (const auto &[p, label, tooltip] : shown)
        out.push_back({{"position", {{"line", p.first}, {"character", p.second}}},
                       {"label", "→ " + label},
                       {"paddingLeft", true},
                       {"tooltip", tooltip}});
    return out;
}

} // namespace kivtool::lsp
