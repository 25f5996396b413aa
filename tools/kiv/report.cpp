#include "report.h"

#include <climits>
#include <cstring>
#include <unistd.h>

#include "common.h"

namespace kivtool
{

using json = nlohmann::ordered_json;

namespace
{

// A place with its column counted in characters (UTF-8 code points) from
// the start of its line instead of bytes.
src_pos in_characters(const std::string &text, src_pos p)
{
    if (p.line == 0 || p.col == 0 || p.offset < p.col - 1 || p.offset > text.size())
        return p;
    uint32_t col = 1;
    for (uint32_t i = p.offset - (p.col - 1); i < p.offset; ++i)
        col += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    p.col = col;
    return p;
}

src_span in_characters(const std::string &text, src_span s)
{
    return {in_characters(text, s.begin), in_characters(text, s.end)};
}

} // namespace

finding in_characters(const std::string &text, finding f)
{
    f.where = in_characters(text, f.where);
    for (related_place &p : f.related)
        p.where = in_characters(text, p.where);
    return f;
}

std::string raw_log(const script_model &m, int level)
{
    std::string out;
    for (const log_line &l : m.log)
        if (l.level <= level)
            out += l.text;
    return out;
}

file_report report_of(const script_model &m, bool check_only,
                      const std::vector<std::string> &disabled, int raw_level)
{
    file_report r;
    r.file = m.file;
    r.kind = m.kind;
    r.result = m.result;
    r.logged_errors = m.logged_errors();
    r.summary = m.summary();
    r.absent = m.absent_count();
    if (raw_level >= 0)
        r.raw_log = raw_log(m, raw_level);
    r.findings = findings_of(m, check_only, disabled);
    for (finding &f : r.findings)
        f = in_characters(m.text, std::move(f));
    return r;
}

file_report report_file(const std::string &path, bool check_only,
                        const std::vector<std::string> &disabled, int raw_level, int log_level)
{
    file_report r;
    try {
        const script_model m = load_script(path, {log_level});
        return report_of(m, check_only, disabled, raw_level);
    } catch (const io_error &e) {
        r.error = e.what();
    } catch (const std::bad_alloc &) {
        r.error = "cannot check " + script_name(path) + ": out of memory";
    }
    r.file = script_name(path);
    return r;
}

namespace
{

// "FILE:LINE:COL: ", or "FILE: " without a place.
std::string place_text(const std::string &file, const src_span &s)
{
    if (s.none())
        return file + ": ";
    return file + ":" + std::to_string(s.begin.line) + ":" + std::to_string(s.begin.col) + ": ";
}

// The line fields of a place (none without one).
void put_place(json &o, const src_span &s)
{
    if (s.none())
        return;
    o["line"] = s.begin.line;
    o["column"] = s.begin.col;
    o["end_line"] = s.end.line;
    o["end_column"] = s.end.col;
}

} // namespace

std::string finding_text(const std::string &file, const finding &f, bool rule)
{
    std::string out = place_text(file, f.where) + severity_name(f.r->level) + ": ";
    if (!f.path.empty())
        out += f.path + ": ";
    out += f.message;
    if (!rule)
        return out;
    out += std::string(" [") + f.r->id + "]\n";
    for (const related_place &p : f.related)
        out += place_text(file, p.where) + "note: " + p.message + "\n";
    return out;
}

json findings_json(const std::vector<file_report> &files)
{
    json a = json::array();
    for (const file_report &r : files) {
        for (const finding &f : r.findings) {
            json o = {{"file", r.file}};
            put_place(o, f.where);
            o["severity"] = severity_name(f.r->level);
            o["path"] = f.path;
            o["message"] = f.message;
            o["rule"] = f.r->id;
            if (!f.related.empty()) {
                json related = json::array();
                for (const related_place &p : f.related) {
                    json place = json::object();
                    put_place(place, p.where);
                    place["message"] = p.message;
                    related.push_back(std::move(place));
                }
                o["related"] = std::move(related);
            }
            a.push_back(std::move(o));
        }
    }
    return a;
}

namespace
{

// Bytes of a URI that stand for themselves; every other byte is
// percent-encoded.
std::string uri_escaped(const std::string &path)
{
    std::string out;
    for (unsigned char c : path) {
        if (isalnum(c) || strchr("-._~/", c)) {
            out += static_cast<char>(c);
        } else {
            char buf[4];
            snprintf(buf, sizeof buf, "%%%02X", c);
            out += buf;
        }
    }
    return out;
}

// A file as an artifact location: a relative path against %SRCROOT%, an
// absolute one as a file URI.
json artifact(const std::string &file)
{
    if (!file.empty() && file[0] == '/')
        return {{"uri", "file://" + uri_escaped(file)}};
    return {{"uri", uri_escaped(file)}, {"uriBaseId", "%SRCROOT%"}};
}

const char *sarif_level(severity s)
{
    return s == severity::info ? "note" : severity_name(s);
}

// A place in a file as a physical location: the file, and the region
// unless the place is none (the file as a whole).
json physical_location(const std::string &file, const src_span &s)
{
    json physical = {{"artifactLocation", artifact(file)}};
    if (!s.none())
        physical["region"] = {{"startLine", s.begin.line},
                              {"startColumn", s.begin.col},
                              {"endLine", s.end.line},
                              {"endColumn", s.end.col}};
    return physical;
}

std::string working_directory()
{
    char buf[PATH_MAX];
    if (!getcwd(buf, sizeof buf))
        return "/";
    std::string d = buf;
    return d.back() == '/' ? d : d + "/";
}

} // namespace

json findings_sarif(const std::vector<file_report> &files)
{
    json rules = json::array();
    const std::vector<rule> &all = all_rules();
    for (const rule &r : all)
        rules.push_back({{"id", r.id},
                         {"shortDescription", {{"text", r.summary}}},
                         {"help",
                          {{"text", std::string(r.summary) + " See docs/lint.md, \"" + r.id +
                                        "\", for an example and the fix."}}},
                         {"defaultConfiguration", {{"level", sarif_level(r.level)}}}});
    json results = json::array();
    json notifications = json::array();
    for (const file_report &r : files) {
        if (!r.readable())
            notifications.push_back(
                {{"level", "error"},
                 {"message", {{"text", r.error}}},
                 {"locations", json::array({{{"physicalLocation",
                                              {{"artifactLocation", artifact(r.file)}}}}})}});
        for (const finding &f : r.findings) {
            json location = {{"physicalLocation", physical_location(r.file, f.where)}};
            if (!f.path.empty())
                location["logicalLocations"] =
                    json::array({{{"fullyQualifiedName", f.path}, {"kind", "member"}}});
            json result = {
                {"ruleId", f.r->id},
                {"ruleIndex", f.r - all.data()},
                {"level", sarif_level(f.r->level)},
                {"message", {{"text", f.path.empty() ? f.message : f.path + ": " + f.message}}},
                {"locations", json::array({location})}};
            if (!f.related.empty()) {
                json related = json::array();
                for (const related_place &p : f.related)
                    related.push_back({{"id", related.size() + 1},
                                       {"physicalLocation", physical_location(r.file, p.where)},
                                       {"message", {{"text", p.message}}}});
                result["relatedLocations"] = std::move(related);
            }
            results.push_back(std::move(result));
        }
    }
    return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs",
             json::array(
                 {{{"tool",
                    {{"driver",
                      {{"name", "kiv"},
                       {"version", "1.0.0"},
                       {"informationUri", "https://example.invalid/kiv/docs/lint.md"},
                       {"rules", rules}}}}},
                   {"invocations", json::array({{{"executionSuccessful", notifications.empty()},
                                                 {"toolExecutionNotifications", notifications}}})},
                   {"originalUriBaseIds",
                    {{"%SRCROOT%", {{"uri", "file://" + uri_escaped(working_directory())}}}}},
                   {"columnKind", "unicodeCodePoints"},
                   {"results", results}}})}};
}

} // namespace kivtool
