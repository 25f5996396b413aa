// The golden cases.  Each tests/cases/NAME.lua holds scripts separated by
// "--- TITLE | OPTIONS" lines; the text before the first of them is put in
// front of every script of the file; a line "-- include: NAME" there stands
// for tests/cases/include/NAME.lua, helpers that several files share.  A
// line "-- edit: OLD => NEW" in a script changes the first OLD of the
// prelude into NEW ("\n" and "\t" stand for a line break and a tab), so
// that a mistake can be planted where it would stand in a real script.
// NAME.out holds what each script gives:
// the result, the library's log byte for byte, the fields of the record that
// differ from a fresh one, and on request the dump and whether the dump
// loads back into the same record.
//
// Options (separated by blanks):
//   level=N      the log level set before the load (default 1)
//   hp           the high-precision rate flag set before the load
//   settings     the process's log level and rate flag after the load
//   dump         the dump of a record that loaded, its reload and second dump
//   dump=NAME    the same, of the dump showing only the table NAME = { ... }
//   only=A,B     record lines only for paths that start with A or B
//   grep=A,B     log lines (with kiv: standard output lines) only where
//                they contain A or B
//   mem=BYTES instructions=N time=MS strings=BYTES   the run's bounds (0: the
//                library's; without them the library's, but no time limit to
//                speak of)
//   calib | hevc | aisp=TYPE   the standalone loaders instead; their records
//                start as 0xA5 bytes, so that what a load leaves alone shows
//                (a calibration or network record: the lines are what it
//                wrote; scaling lists: what it did not clear)
//   calib=N      loads N calibration items whatever the script holds
//   kiv ARGS     runs the tool instead: "{}" in ARGS is the script's path,
//                "{prelude}" a file holding the prelude alone, "{out}" a file
//                whose text is shown after the run, "{src}" the source tree
//   json=P,Q     with kiv: the values at JSON pointers P and Q of the output
//   stdin        with kiv: the script is the tool's standard input
//
// The script's path is shown as "{}" wherever it appears.
//
// KIV_REGENERATE=1 rewrites the .out files instead of comparing them; the
// change is then reviewed as a diff of the working tree.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "core/log.h"
#include "kiv_test.h"
#include "core/run.h"
#include "records.h"
#include "render.h"
#include "tool_test.h"

namespace
{

namespace fs = std::filesystem;
using kivtest::capture;
using kivtest::read_file;
using kivtool::flatten;

const fs::path CASES = fs::path(KIV_SOURCE_DIR) / "tests" / "cases";

void write(const fs::path &p, const std::string &text)
{
    std::ofstream(p, std::ios::binary) << text;
}

struct options {
    int level = 1;
    bool hp = false, dump = false, settings = false;
    std::vector<std::string> only, grep;
    std::string kind = "multi", aisp_type, command, dump_part;
    kiv_run_limits limits{.time_ms = 600000};
    int calib_items = -1;
    std::vector<std::string> json;
    bool stdin = false;
};

options parse_options(const std::string &text)
{
    options o;
    std::istringstream in(text);
    for (std::string w; in >> w;) {
        size_t eq = w.find('=');
        std::string key = w.substr(0, eq), value = eq == std::string::npos ? "" : w.substr(eq + 1);
        auto list = [&](std::vector<std::string> &to) {
            std::istringstream items(value);
            for (std::string item; std::getline(items, item, ',');)
                to.push_back(item);
        };
        if (key == "kiv")
            std::getline(in, o.command), o.kind = key;
        else if (key == "level")
            o.level = std::stoi(value);
        else if (key == "only" || key == "json" || key == "grep")
            list(key == "only" ? o.only : key == "json" ? o.json : o.grep);
        else if (key == "aisp")
            o.kind = key, o.aisp_type = value;
        else if (key == "dump")
            o.dump = true, o.dump_part = value;
        else if (key == "mem" || key == "strings")
            (key == "mem" ? o.limits.mem_bytes : o.limits.string_bytes) = std::stoull(value);
        else if (key == "instructions")
            o.limits.instructions = std::stoull(value);
        else if (key == "time")
            o.limits.time_ms = static_cast<uint32_t>(std::stoul(value));
        else if (key == "hp" || key == "settings" || key == "stdin")
            (key == "hp" ? o.hp : key == "stdin" ? o.stdin : o.settings) = true;
        else if (key == "calib" || key == "hevc")
            o.kind = key, o.calib_items = value.empty() ? -1 : std::stoi(value);
        else
            ADD_FAILURE() << "unknown option " << w;
    }
    return o;
}

// "path = value" for each field of `rec` that differs from `base`.
std::string changed(const kivtool::record_desc &d, const void *base, const void *rec,
                    const options &o, const std::string &prefix = "")
{
    std::string out;
    auto a = flatten(d, base), b = flatten(d, rec);
    for (size_t i = 0; i < b.size(); ++i) {
        bool shown = o.only.empty();
        for (const auto &p : o.only)
            shown = shown || (prefix + b[i].path).rfind(p, 0) == 0;
        if (shown && a[i].value != b[i].value)
            out += prefix + b[i].path + " = " + b[i].value + "\n";
    }
    return out;
}

// The lines of a dump from "NAME = {" to the line that closes it, at the
// same indent (all of it for no name).
std::string part(const std::string &text, const std::string &name)
{
    std::istringstream in(text);
    std::string out, indent;
    bool in_part = name.empty();
    for (std::string line; std::getline(in, line);) {
        size_t at = line.find_first_not_of('\t');
        if (!in_part && at != std::string::npos &&
            line.compare(at, std::string::npos, name + " = {") == 0) {
            in_part = true;
            indent = line.substr(0, at);
        } else if (in_part && !name.empty() && (line == indent + "}," || line == indent + "}")) {
            return out + line + "\n";
        }
        if (in_part)
            out += line + "\n";
    }
    return out;
}

std::string section(const char *name, const std::string &text)
{
    return text.empty() ? "" : std::string(name) + ":\n" + text;
}

std::string run_multi(const std::string &path, const options &o)
{
    auto cfg = std::make_unique<kiv_multi_chan_cfg>(),
         base = std::make_unique<kiv_multi_chan_cfg>();
    kiv_init(base.get());
    *cfg = *base;
    int32_t ret = 0;
    std::string log = capture([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), cfg.get()); });
    if (!o.grep.empty())
        log = kivtest::only(log, o.grep);
    std::string out =
        "result: " + std::to_string(ret) + "\n" + section("log", log) +
        section("record", changed(kivtool::multi_chan_desc(), base.get(), cfg.get(), o));
    if (o.settings)
        out += "settings: log level " + std::to_string(kiv_get_log_level()) + ", hp " +
               std::to_string(kiv_get_hp_fps()) + "\n";
    if (!o.dump || ret != 0)
        return out;
    std::string dumped = path + ".dump.lua";
    out += section("dump log",
                   capture([&] { ret = kiv_dump_multi_chan_cfg(cfg.get(), dumped.c_str()); }));
    std::string text = read_file(dumped);
    out += "dump: " + std::to_string(ret) + "\n" + part(text, o.dump_part);
    // Loaded back and dumped again: the same record, the same text.
    auto again = std::make_unique<kiv_multi_chan_cfg>(*base);
    std::string log2 = capture([&] { ret = kiv_get_multi_chan_cfg(dumped.c_str(), again.get()); });
    capture([&] { kiv_dump_multi_chan_cfg(again.get(), dumped.c_str()); });
    bool same = read_file(dumped) == text;
    fs::remove(dumped);
    options all;
    std::string diff = changed(kivtool::multi_chan_desc(), cfg.get(), again.get(), all);
    return out + "reload: " + std::to_string(ret) +
           (ret    ? ""
            : same ? ", same dump"
                   : ", other dump") +
           (diff.empty() ? ", same record\n" : ", changed:\n" + diff) + section("reload log", log2);
}

std::string run_standalone(const std::string &path, const options &o)
{
    int32_t ret = 0;
    std::string log, rec;
    if (o.kind == "calib") {
        int32_t n = 0;
        log = capture([&] { n = kiv_get_calib_data_size(path.c_str()); });
        int32_t want = o.calib_items >= 0 ? o.calib_items : n;
        std::vector<kiv_calib_data_item> items(want > 0 ? want : 1), none(items.size());
        memset(items.data(), 0xA5, items.size() * sizeof items[0]);
        none = items;
        log += capture([&] {
            ret = kiv_load_calib_data(path.c_str(), items.data(), static_cast<uint32_t>(want));
        });
        for (size_t i = 0; i < items.size(); ++i)
            rec += changed(kivtool::calib_item_desc(), &none[i], &items[i], o,
                           "[" + std::to_string(i) + "].");
        return "size: " + std::to_string(n) + "\nresult: " + std::to_string(ret) + "\n" +
               section("log", log) + section("record", rec);
    }
    if (o.kind == "hevc") {
        auto cfg = std::make_unique<kiv_hevc_scaling_cfg>(),
             none = std::make_unique<kiv_hevc_scaling_cfg>();
        memset(cfg.get(), 0xA5, sizeof *cfg);
        log = capture([&] { ret = kiv_get_hevc_scaling_cfg(path.c_str(), cfg.get()); });
        rec = changed(kivtool::hevc_scaling_desc(), none.get(), cfg.get(), o);
    } else {
        auto cfg = std::make_unique<kiv_aisp_cfg>(), none = std::make_unique<kiv_aisp_cfg>();
        memset(cfg.get(), 0xA5, sizeof *cfg);
        *none = *cfg;
        log = capture([&] {
            ret = kiv_get_aisp_cfg(path.c_str(), cfg.get(),
                                   static_cast<uint8_t>(std::stoi(o.aisp_type)));
        });
        rec = changed(kivtool::aisp_desc(), none.get(), cfg.get(), o);
    }
    return "result: " + std::to_string(ret) + "\n" + section("log", log) + section("record", rec);
}

std::string replaced(std::string s, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size())
        s.replace(at, from.size(), to);
    return s;
}

std::string run_tool(const std::string &path, const options &o)
{
    const std::pair<std::string, std::string> places[] = {{"{}", path},
                                                          {"{prelude}", path + "-prelude"},
                                                          {"{out}", path + "-out"},
                                                          {"{src}", KIV_SOURCE_DIR}};
    std::vector<std::string> args;
    std::istringstream in(o.command);
    for (std::string w; in >> w; args.push_back(w))
        for (const auto &[name, place] : places)
            w = replaced(w, name, place);
    const int saved = o.stdin ? dup(STDIN_FILENO) : -1;
    if (o.stdin) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_TRUE(fd >= 0 && dup2(fd, STDIN_FILENO) == STDIN_FILENO);
        close(fd);
    }
    tooltest::run_result r = tooltest::kiv(args);
    if (saved >= 0) {
        dup2(saved, STDIN_FILENO);
        close(saved);
    }
    if (!o.grep.empty())
        r.out = kivtest::only(r.out, o.grep);
    if (!o.json.empty() && nlohmann::json::accept(r.out)) {
        auto j = nlohmann::ordered_json::parse(r.out);
        r.out.clear();
        for (const auto &p : o.json) {
            nlohmann::ordered_json::json_pointer at(p);
            r.out += p + " = " + (j.contains(at) ? j[at].dump() : "(none)") + "\n";
        }
    }
    std::string written = fs::exists(path + "-out") ? read_file(path + "-out") : "";
    fs::remove(path + "-out");
    auto mask = [&](std::string s) {
        for (size_t i = std::size(places); i-- > 0;)
            s = replaced(s, places[i].second, places[i].first);
        return s;
    };
    return "exit: " + std::to_string(r.rc) + "\n" + section("stdout", mask(r.out)) +
           section("stderr", mask(r.err)) + section("{out}", mask(written));
}

// The prelude with the case's "-- edit: OLD => NEW" lines applied.
std::string edited(std::string prelude, const std::string &body)
{
    std::istringstream in(body);
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with("-- edit: "))
            continue;
        const size_t arrow = line.find(" => ");
        if (arrow == std::string::npos) {
            ADD_FAILURE() << "an edit without \" => \": " << line;
            continue;
        }
        auto unescaped = [](const std::string &t) {
            return replaced(replaced(t, "\\n", "\n"), "\\t", "\t");
        };
        const std::string from = unescaped(line.substr(9, arrow - 9)),
                          to = unescaped(line.substr(arrow + 4));
        const size_t at = prelude.find(from);
        if (at == std::string::npos)
            ADD_FAILURE() << "nothing to edit: " << line;
        else
            prelude.replace(at, from.size(), to);
    }
    return prelude;
}

// One case: its script written to a file of its own (and the prelude to one
// more), loaded as asked.
std::string run_case(const std::string &prelude, const std::string &body, const options &o)
{
    fs::path path = fs::temp_directory_path() / ("kiv-case-" + std::to_string(getpid()) + ".lua");
    write(path, edited(prelude, body) + body);
    write(path.string() + "-prelude", prelude);
    kiv_set_log_level(o.level);
    kiv_set_hp_fps(o.hp ? 1 : 0);
    // No time limit to speak of unless asked for: the cases run under
    // sanitizers and emulators too.
    kiv_set_run_limits(o.limits);
    std::string out = o.kind == "multi" ? run_multi(path, o)
                      : o.kind == "kiv" ? run_tool(path, o)
                                        : run_standalone(path, o);
    // The script's path (in Lua's messages too) differs from run to run.
    for (size_t at; (at = out.find(path.string())) != std::string::npos;)
        out.replace(at, path.string().size(), "{}");
    kiv_set_log_level(1);
    kiv_set_hp_fps(0);
    kiv_set_run_limits({});
    fs::remove(path);
    fs::remove(path.string() + "-prelude");
    return out;
}

// Runs every case of a file; returns the text of its .out file.
std::string run_file(const fs::path &file)
{
    std::istringstream in(read_file(file));
    std::string prelude, out, title, body;
    bool started = false;
    auto flush = [&] {
        if (!started)
            return;
        size_t bar = title.find(" | ");
        options o = parse_options(bar == std::string::npos ? "" : title.substr(bar + 3));
        out += title + "\n" + run_case(prelude, body, o) + "\n";
    };
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("--- ", 0) == 0) {
            flush();
            started = true;
            title = line;
            body.clear();
        } else {
            (started ? body : prelude) +=
                line.starts_with("-- include: ")
                    ? read_file(CASES / "include" / (line.substr(12) + ".lua"))
                    : line + "\n";
        }
    }
    flush();
    return out;
}

class Cases : public testing::TestWithParam<std::string>
{
};

TEST_P(Cases, GiveWhatTheirOutFileSays)
{
    fs::path file = CASES / (GetParam() + ".lua"), expected = CASES / (GetParam() + ".out");
    std::string got = run_file(file);
    if (getenv("KIV_REGENERATE")) {
        write(expected, got);
        return;
    }
    EXPECT_EQ(read_file(expected), got) << "KIV_REGENERATE=1 rewrites " << expected;
}

std::vector<std::string> case_files()
{
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(CASES))
        if (e.path().extension() == ".lua")
            names.push_back(e.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(, Cases, testing::ValuesIn(case_files()),
                         [](const testing::TestParamInfo<std::string> &p) { return p.param; });

} // namespace
