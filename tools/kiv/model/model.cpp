#include "model/model.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common.h"
#include "core/log.h"
#include "core/sections.h"
#include "model/contained.h"
#include "model/reading.h"
#include "model/structure.h"
#include "core/run.h"

namespace kivtool
{

namespace
{

std::string plural(size_t n, const std::string &what)
{
    if (n == 1)
        return "1 " + what;
    // "entry" -> "entries", "canvas" -> "canvases"
    if (what.back() == 'y')
        return std::to_string(n) + " " + what.substr(0, what.size() - 1) + "ies";
    return std::to_string(n) + " " + what + (what.back() == 's' ? "es" : "s");
}

// Throws io_error unless a file of status `st` may be read as a script.
void check_status(const std::string &file, const struct stat &st, bool special_files)
{
    if (S_ISDIR(st.st_mode))
        throw io_error("cannot read " + file + ": " + strerror(EISDIR));
    if (!S_ISREG(st.st_mode) && !special_files)
        throw io_error("cannot read " + file +
                       ": not a regular file (--special-files reads it all the same)");
}

// The file at `file`, read once, checked before it is opened and again once
// open, in case it was replaced meanwhile.
std::string read_whole(const std::string &file, const load_options &opt)
{
    check_script_path(file, opt.special_files);
    const int fd =
        open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | (opt.special_files ? 0 : O_NONBLOCK));
    if (fd < 0)
        throw io_error("cannot read " + file + ": " + strerror(errno));
    try {
        struct stat st;
        if (fstat(fd, &st) != 0)
            throw io_error("cannot read " + file + ": " + strerror(errno));
        check_status(file, st, opt.special_files);
        std::string text = read_rest(fd, file, kiv_source_limit());
        close(fd);
        return text;
    } catch (...) {
        close(fd);
        throw;
    }
}

// The line a message of the interpreter names ("FILE:LINE: ..."), whole
// from its first character that is not blank: the run's closing message
// when the script failed to parse or run; `rest` is set to what it says
// after "FILE:LINE: ".  0 when it names none.
uint32_t message_line(const std::string &text, std::string_view &rest)
{
    const size_t at = text.find("lua error msg is ");
    if (at == std::string::npos)
        return 0;
    for (size_t c = text.find(':', at); c != std::string::npos; c = text.find(':', c + 1)) {
        size_t d = c + 1;
        while (d < text.size() && isdigit(static_cast<unsigned char>(text[d])))
            ++d;
        if (d > c + 1 && d + 1 < text.size() && text[d] == ':' && text[d + 1] == ' ') {
            rest = std::string_view(text).substr(d + 2);
            return static_cast<uint32_t>(strtoul(text.c_str() + c + 1, nullptr, 10));
        }
    }
    return 0;
}

// A script that failed at `line` on a nil looked up with the start of a
// loop at its first pass (`for i = 0, #S do local s = S[i] ... s.w`): what
// to say of it, with `where` moved to the loop's start; "" otherwise.
std::string nil_at_first_pass(script_model &m, uint32_t line, src_span &where)
{
    if (m.text.find("_resource_config_") == std::string::npos)
        return "";
    if (!m.flow)
        m.flow = std::make_shared<value_flow>(m.text, m.source);
    const value_flow::failure *f = m.flow->failed();
    if (!f || f->loop.none() || f->where.begin.line != line)
        return "";
    // The loop's variable: the name after `for`.
    std::string_view head = span_text(m.text, f->loop);
    head.remove_prefix(std::min<size_t>(3, head.size()));
    const size_t b = head.find_first_not_of(" \t");
    const size_t e = head.find_first_of(" \t=", b);
    const std::string var(b == std::string_view::npos ? "" : head.substr(b, e - b));
    where = f->loop_start;
    return "`" + f->nil_of + "` is nil at the first pass of the loop at line " +
           std::to_string(f->loop.begin.line) + ", where " + var + " is " +
           std::to_string(f->start) + ": a list's first element is [1]";
}

} // namespace

// The span of line `line` of the text, from its first character that is
// not blank to its end.
src_span line_span(std::string_view text, uint32_t line)
{
    uint32_t at_line = 1;
    size_t i = 0;
    while (at_line < line && i < text.size()) {
        const char c = text[i++];
        if (c == '\n' || c == '\r') {
            if (i < text.size() && (text[i] == '\n' || text[i] == '\r') && text[i] != c)
                ++i;
            ++at_line;
        }
    }
    if (at_line != line)
        return {};
    const size_t start = i;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    size_t end = i;
    while (end < text.size() && text[end] != '\n' && text[end] != '\r')
        ++end;
    src_span s;
    s.begin = {line, static_cast<uint32_t>(i - start + 1), static_cast<uint32_t>(i)};
    s.end = {line, static_cast<uint32_t>(end - start + 1), static_cast<uint32_t>(end)};
    return s;
}

std::string script_model::summary() const
{
    switch (kind) {
    case kiv_kind::calib:
        return "calibration data, " + plural(static_cast<size_t>(calib_size), "item");
    case kiv_kind::hevc:
        return "HEVC scaling lists";
    case kiv_kind::aisp:
        return "custom AISP, " + plural(fill.nn_cnt, "network") + ", " +
               plural(fill.filled, "interface entry");
    case kiv_kind::multi_chan:
        break;
    }
    return plural(cfg->chan_num, "channel") + ", " + plural(cfg->canvas_num, "canvas") + ", " +
           plural(cfg->stream_num, "stream");
}

size_t script_model::absent_count() const
{
    size_t n = 0;
    for (const log_line &l : log)
        n += l.absent;
    return n;
}

bool script_model::logged_errors() const
{
    for (const log_line &l : log)
        if (l.level == 0)
            return true;
    return false;
}

std::vector<std::string> read_table::unread() const
{
    std::vector<std::string> out;
    for (size_t i = 0; i < keys.size(); ++i)
        if (!read[i])
            out.push_back(keys[i]);
    return out;
}

const place *script_model::place_at(const std::string &path) const
{
    if (named_index_.empty())
        for (size_t i = 0; i < named.size(); ++i)
            named_index_[named[i].first] = i;
    auto it = named_index_.find(path);
    return it == named_index_.end() ? nullptr : &named[it->second].second;
}

src_span script_model::where(const std::string &path) const
{
    std::string p = path;
    for (;;) {
        const place *at = place_at(p);
        if (at && !at->where.none())
            return at->where;
        if (p.empty())
            return {};
        const size_t cut = p.find_last_of(".[");
        p = cut == std::string::npos ? "" : p.substr(0, cut);
    }
}

std::string script_model::written(const src_span &s) const
{
    return std::string(span_text(text, s));
}

void script_model::index_assignments() const
{
    if (assignments_indexed_)
        return;
    assignments_indexed_ = true;
    for (size_t i = 0; i < source.assignments.size(); ++i) {
        const src_assignment &a = source.assignments[i];
        if (a.literal_key && !a.name.empty())
            assigned_[a.name].push_back(static_cast<int32_t>(i));
        if (a.constructor >= 0)
            assigned_ctor_[a.constructor] = static_cast<int32_t>(i);
    }
}

const std::vector<int32_t> &script_model::assignments_to(const std::string &name) const
{
    static const std::vector<int32_t> none;
    index_assignments();
    auto it = assigned_.find(name);
    return it == assigned_.end() ? none : it->second;
}

int32_t script_model::assignment_of(int32_t ctor) const
{
    index_assignments();
    auto it = assigned_ctor_.find(ctor);
    return it == assigned_ctor_.end() ? -1 : it->second;
}

namespace
{

bool name_char(char c)
{
    return isalnum(static_cast<unsigned char>(c)) || c == '_';
}

} // namespace

// One pass over the text: every name followed by a single '=' and a value
// up to the end of the statement on its line.  Strings and comments are not
// told apart: what a name is said to be set to is only believed where the
// value gives the value loaded.
const std::vector<script_model::value_set> &script_model::sets_of(std::string_view name) const
{
    static const std::vector<value_set> none;
    if (!sets_indexed_) {
        sets_indexed_ = true;
        const std::string_view t = text;
        uint32_t line = 1;
        size_t line_start = 0;
        for (size_t at = 0; at < t.size();) {
            const char c = t[at];
            if (c == '\n' || c == '\r') {
                at +=
                    at + 1 < t.size() && (t[at + 1] == '\n' || t[at + 1] == '\r') && t[at + 1] != c
                        ? 2
                        : 1;
                ++line;
                line_start = at;
                continue;
            }
            if (!name_char(c) || isdigit(static_cast<unsigned char>(c)) ||
                (at > 0 && name_char(t[at - 1]))) {
                ++at;
                continue;
            }
            size_t i = at;
            while (i < t.size() && name_char(t[i]))
                ++i;
            const std::string_view n = t.substr(at, i - at);
            size_t v = i;
            while (v < t.size() && (t[v] == ' ' || t[v] == '\t'))
                ++v;
            if (v + 1 < t.size() && t[v] == '=' && t[v + 1] != '=' && sets_.size() < 65536) {
                ++v;
                while (v < t.size() && (t[v] == ' ' || t[v] == '\t'))
                    ++v;
                size_t end = v;
                while (end < t.size() && !strchr(",;\r\n", t[end]) &&
                       !t.substr(end).starts_with("--"))
                    ++end;
                while (end > v && (t[end - 1] == ' ' || t[end - 1] == '\t'))
                    --end;
                auto pos = [&](size_t o) {
                    return src_pos{line, static_cast<uint32_t>(o - line_start + 1),
                                   static_cast<uint32_t>(o)};
                };
                if (end > v)
                    sets_[n].push_back({{pos(at), pos(end)}, {pos(v), pos(end)}});
            }
            at = i;
        }
    }
    auto it = sets_.find(name);
    return it == sets_.end() ? none : it->second;
}

void check_script_path(const std::string &file, bool special_files)
{
    struct stat st;
    if (stat(file.c_str(), &st) != 0)
        throw io_error("cannot read " + file + ": " + strerror(errno));
    check_status(file, st, special_files);
}

std::string read_rest(int fd, const std::string &what, uint64_t limit)
{
    std::string text;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
        text.reserve(
            static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(st.st_size), limit)));
    char buf[65536];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n == 0)
            return text;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw io_error("cannot read " + what + ": " + strerror(errno));
        }
        if (static_cast<uint64_t>(n) > limit - text.size())
            throw io_error("cannot read " + what + ": longer than " + std::to_string(limit) +
                           " bytes, more than the library parses of any script");
        text.append(buf, static_cast<size_t>(n));
    }
}

kiv_any_load records_of(script_model &m)
{
    m.cfg = std::make_unique<kiv_multi_chan_cfg>();
    m.hevc = std::make_unique<kiv_hevc_scaling_cfg>();
    kiv_init(m.cfg.get());
    kiv_any_load load{};
    load.cfg = m.cfg.get();
    load.hevc = m.hevc.get();
    load.aisp = &m.aisp;
    load.fill = &m.fill;
    load.calib_room = [](void *ctx, uint32_t n) {
        auto *items = static_cast<std::vector<kiv_calib_data_item> *>(ctx);
        items->assign(n, {});
        return items->data();
    };
    load.room_ctx = &m.calib;
    return load;
}

script_model load_model(const std::string &file, const load_options &opt)
{
    return load_model_text(file, read_whole(file, opt), opt);
}

script_model load_model_text(const std::string &file, std::string text, const load_options &opt)
{
    script_model m;
    m.file = file;
    m.text = std::move(text);
    // A precompiled chunk has no source to map.
    const bool chunk = is_precompiled(m.text);
    m.source = scan_source(chunk ? std::string_view() : std::string_view(m.text));
    kiv_any_load load = records_of(m);

    // Each load starts at the same level: a script's log_level stays in
    // force after its load and would otherwise change the next one's log.
    kiv_set_log_level(opt.log_level);
    reading r(m);
    const kiv_watcher *outer = kiv_get_watcher();
    if (chunk && opt.precompiled) {
        load_contained(m, opt.log_level, r.watcher());
    } else {
        // A chunk is refused here, loaded as text only: the tool sets that
        // for its process (cli.cpp), and so does any other program that
        // models a chunk (a benchmark, a fuzzer).
        if (chunk)
            kiv_set_text_only(true);
        kiv_set_watcher(r.watcher());
        m.result = kiv_load_any(file.c_str(), m.text.data(), m.text.size(), &load);
        kiv_set_watcher(outer);
        m.kind = load.kind;
        m.calib_size = load.calib_size;
    }
    m.ran = m.contained_failure.empty();
    for (log_line &l : m.log) {
        if (l.text.find("lua error msg is ") == std::string::npos)
            continue;
        m.ran = false;
        if (chunk && !opt.precompiled)
            l.note = PRECOMPILED_NOTE;
        else if (std::string_view said; uint32_t line = chunk ? 0 : message_line(l.text, said)) {
            l.where = line_span(m.text, line);
            l.path.clear();
            // A bracket left open, or a ',' missing, that the indentation shows.
            if (structure_hint h = hint_structure(m.text, line, said); !h.where.none()) {
                l.where = h.where;
                l.note = std::move(h.note);
            } else if (const std::string note = nil_at_first_pass(m, line, l.where);
                       !note.empty()) {
                l.note = note;
            }
        }
    }
    r.finish();
    return m;
}

std::string dump_text(const kiv_multi_chan_cfg &cfg)
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *out = open_memstream(&buf, &len);
    if (!out)
        throw io_error(std::string("cannot write the dump: ") + strerror(errno));
    kiv_write_script(out, &cfg);
    fclose(out);
    std::string text(buf, len);
    free(buf);
    return text;
}

int32_t load_quietly(const std::string &file, const std::string &text, kiv_multi_chan_cfg *cfg)
{
    kiv_watcher quiet{};
    quiet.log = [](void *, const char *, size_t) {};
    const kiv_watcher *outer = kiv_get_watcher();
    kiv_set_watcher(&quiet);
    kiv_any_load load{};
    load.cfg = cfg;
    const int32_t ret = kiv_load_any(file.c_str(), text.data(), text.size(), &load);
    kiv_set_watcher(outer);
    return load.kind == kiv_kind::multi_chan ? ret : -1;
}

} // namespace kivtool
