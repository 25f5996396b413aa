// kiv lint FILE...: findings about what loads but cannot work as meant.
#include "lint.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <unistd.h>

#include "channel/srcbuf.h"
#include "common.h"
#include "core/access.h"
#include "render.h"

namespace kivtool
{

const std::vector<rule> &lint_rules()
{
    static const std::vector<rule> rules = {
        {"unknown-key", severity::warning,
         "A key in a script table that the loader does not read: it is ignored."},
        {"wrong-type", severity::error,
         "A value the loader cannot take as its key's type: it used 0 or treated the key as "
         "absent."},
        {"truncated-value", severity::error,
         "An integer that does not fit its field: its high bits or its sign are lost."},
        {"vsrc-conflict", severity::error,
         "A video source that shares its vsrc_id with an earlier channel's but differs: the dump "
         "keeps the earlier one."},
        {"unbound-buffer", severity::warning,
         "A source buffer given windows but named by no canvas: the dump writes it as zeros."},
        {"window-outside-canvas", severity::error,
         "An output window whose right or bottom edge lies beyond its canvas."},
        {"output-over-max", severity::warning,
         "An output window larger than its buffer's max_output."},
        {"overlapping-windows", severity::info, "Two output windows on one canvas that overlap."},
        {"lossy-round-trip", severity::error,
         "A field that differs after the record is dumped and loaded again."},
        {"load-failed", severity::error,
         "The library refused the script (its log says why); only what was read before counts."},
    };
    return rules;
}

const rule *find_rule(const std::string &id)
{
    for (const rule &r : lint_rules())
        if (id == r.id)
            return &r;
    return nullptr;
}

const char *severity_name(severity s)
{
    switch (s) {
    case severity::info:
        return "info";
    case severity::warning:
        return "warning";
    case severity::error:
        return "error";
    }
    return "error";
}

namespace
{

// What a table of the script is, for naming its keys as record fields.
enum class tkind {
    other,
    root,
    channels,
    channel,
    pass,
    pyramid,
    layers,
    vsrc,
    canvases,
    streams,
    stream,
    mem,
};

struct frame {
    tkind kind = tkind::other;
    std::string rec;      // the path its keys are named under ("channels[1].vsrc")
    std::string chan_rec; // the channel's path, for the buffers of a further pass
    int pass = 0;
    bool collected = false;
    std::vector<std::string> keys; // its string keys, sorted
    std::set<std::string> known;   // looked up, or skipped, here
    std::map<std::string, int64_t> given;
    std::map<std::pair<std::string, int32_t>, int64_t> given_elem;
    std::set<std::string> reported; // keys that have a finding of their own
};

std::string joined(const std::string &rec, const std::string &name)
{
    return rec.empty() ? name : rec + "." + name;
}

std::string indexed(const std::string &rec, int64_t index)
{
    return rec + "[" + std::to_string(index) + "]";
}

int buffer_index(const std::string &name)
{
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
        if (name == kiv_src_buf_names[b])
            return b;
    return -1;
}

// The value at idx as a script author would write it, short.
std::string describe(lua_State *L, int idx)
{
    switch (lua_type(L, idx)) {
    case LUA_TSTRING: {
        size_t len = 0;
        const char *s = lua_tolstring(L, idx, &len);
        std::string out = "\"" + std::string(s, std::min<size_t>(len, 40));
        return out + (len > 40 ? "...\"" : "\"");
    }
    case LUA_TNUMBER:
        if (lua_isinteger(L, idx))
            return std::to_string(lua_tointeger(L, idx));
        else {
            char buf[32];
            snprintf(buf, sizeof buf, "%.14g", lua_tonumber(L, idx));
            return buf;
        }
    case LUA_TBOOLEAN:
        return lua_toboolean(L, idx) ? "true" : "false";
    default:
        return std::string("a ") + lua_typename(L, lua_type(L, idx));
    }
}

size_t distance(const std::string &a, const std::string &b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diag = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] != b[j - 1])});
            diag = up;
        }
    }
    return row[b.size()];
}

// The watcher of one load: it follows the tables the parsers enter and
// turns what they find into findings.
class reading_watch
{
  public:
    explicit reading_watch(std::string file) : file_(std::move(file))
    {
        frame root;
        root.kind = tkind::root;
        stack_.push_back(root);
        w_ = {this, on_lookup, on_enter, on_leave, on_stored, on_unread};
    }
    const kiv_watcher *watcher() const { return &w_; }

    // The unknown keys of the tables still open (the global table itself);
    // called when the load succeeded.
    void finish()
    {
        while (!stack_.empty()) {
            unknown_keys(stack_.back());
            stack_.pop_back();
        }
    }
    void drop_unknown_keys() { unknown_ = false; }

    std::vector<finding> &findings() { return findings_; }

    // When the key at `path`, or the nearest table around it, was read.
    size_t order_of(std::string path) const
    {
        while (!path.empty()) {
            auto it = order_.find(path);
            if (it != order_.end())
                return it->second;
            size_t cut = path.find_last_of(".[");
            path = cut == std::string::npos ? "" : path.substr(0, cut);
        }
        return seq_;
    }

    void add(const char *id, const std::string &path, const std::string &message, size_t order)
    {
        findings_.push_back({file_, find_rule(id), path, message, order});
    }

  private:
    std::string file_;
    kiv_watcher w_{};
    std::vector<frame> stack_;
    std::vector<finding> findings_;
    std::map<std::string, size_t> order_;
    size_t seq_ = 0;
    bool unknown_ = true;
    // The last lookup, which an enter takes for the table entered.
    std::string last_name_;
    int32_t last_index_ = -1;
    bool last_named_ = false;

    static reading_watch &self(void *ctx) { return *static_cast<reading_watch *>(ctx); }

    void collect(lua_State *L, int idx)
    {
        frame &f = stack_.back();
        f.collected = true;
        if (lua_type(L, idx) != LUA_TTABLE)
            return;
        int t = lua_absindex(L, idx);
        lua_pushnil(L);
        while (lua_next(L, t) != 0) {
            if (lua_type(L, -2) == LUA_TSTRING)
                f.keys.emplace_back(lua_tostring(L, -2));
            lua_pop(L, 1);
        }
        std::sort(f.keys.begin(), f.keys.end());
    }

    void note_order(const std::string &path) { order_.emplace(path, seq_); }

    static void on_lookup(void *ctx, lua_State *L, const char *name, int32_t index, kiv_want want)
    {
        self(ctx).lookup(L, name, index, want);
    }

    void lookup(lua_State *L, const char *name, int32_t index, kiv_want want)
    {
        ++seq_;
        frame &f = stack_.back();
        bool element_of_array = name && index >= 0;
        if (!f.collected && !element_of_array)
            collect(L, -2);
        last_named_ = name != nullptr;
        last_name_ = name ? name : "";
        last_index_ = index;
        std::string path = name ? joined(f.rec, name) : indexed(f.rec, index);
        if (name && !element_of_array)
            f.known.insert(name);
        note_order(path);
        if (lua_type(L, -1) == LUA_TNIL)
            return;
        switch (want) {
        case KIV_WANT_ANY:
            return;
        case KIV_WANT_INTEGER: {
            int ok = 0;
            int64_t v = lua_tointegerx(L, -1, &ok);
            if (ok) {
                if (element_of_array)
                    f.given_elem[{name, index}] = v;
                else if (name)
                    f.given[name] = v;
                // The id picks the record the rest of the table goes to.
                if (name && !element_of_array && strcmp(name, "id") == 0 &&
                    (f.kind == tkind::channel || f.kind == tkind::stream))
                    f.rec = indexed(f.kind == tkind::channel ? "channels" : "streams", v);
                return;
            }
            wrong_type(f, name, path, describe(L, -1) + " is not an integer: loaded as 0");
            return;
        }
        case KIV_WANT_STRING:
            if (lua_type(L, -1) == LUA_TSTRING || lua_type(L, -1) == LUA_TNUMBER)
                return;
            wrong_type(f, name, path, describe(L, -1) + ", not a string: taken as absent");
            return;
        case KIV_WANT_TABLE:
        case KIV_WANT_ARRAY:
            if (lua_type(L, -1) == LUA_TTABLE)
                return;
            wrong_type(f, name, path,
                       describe(L, -1) +
                           (want == KIV_WANT_TABLE ? ", not a table" : ", not an array") +
                           ": taken as absent");
            return;
        }
    }

    void wrong_type(frame &f, const char *name, const std::string &path, const std::string &msg)
    {
        std::string key = name ? name : path;
        if (!f.reported.insert(key).second)
            return;
        add("wrong-type", name && f.rec.size() ? joined(f.rec, name) : path, msg, seq_);
    }

    static void on_enter(void *ctx, lua_State *) { self(ctx).enter(); }

    // The table entered is the value of the last lookup.
    void enter()
    {
        const frame &p = stack_.back();
        frame f;
        f.pass = p.pass;
        f.chan_rec = p.chan_rec;
        const std::string n = last_name_;
        f.rec = last_named_ ? joined(p.rec, n) : indexed(p.rec, last_index_);
        switch (p.kind) {
        case tkind::root:
            if (n == "channels")
                f.kind = tkind::channels;
            else if (n == "canvas")
                f.kind = tkind::canvases;
            else if (n == "streams")
                f.kind = tkind::streams;
            else if (n == "resource_mem_layout")
                f.kind = tkind::mem;
            break;
        case tkind::channels:
            f.kind = tkind::channel;
            break;
        case tkind::streams:
            f.kind = tkind::stream;
            break;
        case tkind::channel:
        case tkind::pass: {
            const std::string &chan = p.kind == tkind::channel ? p.rec : p.chan_rec;
            int b = buffer_index(n);
            if (b >= 0) {
                f.rec =
                    chan + ".src_buf[" + std::to_string(p.pass) + "][" + std::to_string(b) + "]";
            } else if (p.kind == tkind::channel && n.rfind("pass_", 0) == 0) {
                f.kind = tkind::pass;
                f.pass = atoi(n.c_str() + 5);
                f.chan_rec = chan;
                f.rec = chan + ".pass_cfg[" + std::to_string(f.pass) + "]";
            } else if (n == "pyramid") {
                f.kind = tkind::pyramid;
            } else if (n == "vsrc") {
                f.kind = tkind::vsrc;
            }
            break;
        }
        case tkind::pyramid:
            if (n == "layers")
                f.kind = tkind::layers;
            break;
        default:
            break;
        }
        stack_.push_back(f);
        order_.emplace(f.rec, seq_);
    }

    static void on_leave(void *ctx) { self(ctx).leave(); }

    void leave()
    {
        if (stack_.size() <= 1)
            return;
        unknown_keys(stack_.back());
        stack_.pop_back();
    }

    void unknown_keys(const frame &f)
    {
        if (!unknown_ || !f.collected)
            return;
        for (const std::string &k : f.keys) {
            if (f.known.count(k))
                continue;
            std::string near;
            size_t best = k.size() / 3 + 1;
            for (const std::string &cand : f.known) {
                size_t d = distance(k, cand);
                if (d < best || (d == best && near.empty() && d <= 2)) {
                    best = d;
                    near = cand;
                }
            }
            std::string msg = "no loader reads `" + k + "` here: it is ignored";
            if (!near.empty())
                msg += "; did you mean `" + near + "`?";
            add("unknown-key", joined(f.rec, k), msg, ++seq_);
        }
    }

    static void on_stored(void *ctx, const char *key, int32_t elem, int64_t held)
    {
        self(ctx).stored(key, elem, held);
    }

    void stored(const char *key, int32_t elem, int64_t held)
    {
        frame &f = stack_.back();
        int64_t given;
        if (elem < 0) {
            auto it = f.given.find(key);
            if (it == f.given.end())
                return;
            given = it->second;
        } else {
            auto it = f.given_elem.find({key, elem});
            if (it == f.given_elem.end())
                return;
            given = it->second;
        }
        if (given == held || !f.reported.insert(key).second)
            return;
        std::string what = elem < 0 ? "" : "element " + std::to_string(elem + 1) + ": ";
        std::string how = given < 0 && held >= 0 ? "its sign is lost" : "its high bits are dropped";
        add("truncated-value", joined(f.rec, key),
            what + std::to_string(given) + " does not fit the field (" + how + "): stored as " +
                std::to_string(held),
            order_of(joined(f.rec, key)));
    }

    static void on_unread(void *ctx, const char *key) { self(ctx).stack_.back().known.insert(key); }
};

std::string buffer_name(int c, int p, int b)
{
    std::string n = "chan_" + std::to_string(c) + "." + kiv_src_buf_names[b];
    return p ? n + "_" + std::to_string(p) : n;
}

std::string buffer_path(int c, int p, int b)
{
    return "channels[" + std::to_string(c) + "].src_buf[" + std::to_string(p) + "][" +
           std::to_string(b) + "]";
}

std::string window(const uint32_t *w)
{
    return "{" + std::to_string(w[0]) + ", " + std::to_string(w[1]) + ", " + std::to_string(w[2]) +
           ", " + std::to_string(w[3]) + "}";
}

// The rules about the record as loaded.
void record_rules(const kiv_multi_chan_cfg &cfg, reading_watch &w)
{
    const int chans = std::min<int>(cfg.chan_num, 3);
    const int canvases = std::min<int>(cfg.canvas_num, 12);
    const record_desc *vsrc_desc = nullptr;
    for (const field &m : kivtool::multi_chan_desc().members)
        if (std::string(m.name) == "channels")
            for (const field &cm : m.elem->rec->members)
                if (std::string(cm.name) == "vsrc")
                    vsrc_desc = cm.rec;

    for (int j = 0; j < chans; ++j) {
        const kiv_vsrc_cfg &vj = cfg.channels[j].vsrc;
        for (int i = 0; i < j; ++i) {
            const kiv_vsrc_cfg &vi = cfg.channels[i].vsrc;
            if (vi.vsrc_id != vj.vsrc_id)
                continue;
            std::vector<leaf_value> a = flatten(*vsrc_desc, &vi), b = flatten(*vsrc_desc, &vj);
            for (size_t k = 0; k < a.size(); ++k) {
                if (a[k].value == b[k].value)
                    continue;
                std::string path = "channels[" + std::to_string(j) + "].vsrc";
                w.add("vsrc-conflict", path,
                      "vsrc_id " + std::to_string(vj.vsrc_id) + " is channel " + std::to_string(i) +
                          "'s source too, which differs in " + a[k].path + " (" + a[k].value +
                          ", here " + b[k].value + "): the dump writes vsrc_" +
                          std::to_string(vj.vsrc_id) + " once, from channel " + std::to_string(i),
                      w.order_of(path));
                break;
            }
            break;
        }
    }

    struct placed {
        std::string name;
        const uint32_t *out;
    };
    std::vector<std::vector<placed>> on(static_cast<size_t>(canvases));
    for (int c = 0; c < chans; ++c) {
        const int passes = std::min<int>(cfg.channels[c].pass_num, 2);
        for (int p = 0; p < passes; ++p) {
            for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
                const kiv_src_buf_cfg &sb = cfg.channels[c].src_buf[p][b];
                const std::string path = buffer_path(c, p, b), name = buffer_name(c, p, b);
                const bool windows =
                    sb.max_output[0] || sb.max_output[1] ||
                    std::any_of(sb.input, sb.input + 4, [](uint32_t v) { return v; }) ||
                    std::any_of(sb.output, sb.output + 4, [](uint32_t v) { return v; });
                if (sb.canvas_id == -1 && windows) {
                    w.add("unbound-buffer", path,
                          name + " has windows but no canvas names it: the dump writes it as zeros",
                          w.order_of(path));
                    continue;
                }
                if (sb.output[2] > sb.max_output[0] || sb.output[3] > sb.max_output[1])
                    w.add("output-over-max", path + ".output",
                          "the output window " + std::to_string(sb.output[2]) + "x" +
                              std::to_string(sb.output[3]) + " is larger than max_output " +
                              std::to_string(sb.max_output[0]) + "x" +
                              std::to_string(sb.max_output[1]),
                          w.order_of(path + ".output"));
                if (sb.canvas_id < 0 || sb.canvas_id >= canvases)
                    continue;
                const kiv_canvas_cfg &cv = cfg.canvas[sb.canvas_id];
                uint64_t right = uint64_t{sb.output[0]} + sb.output[2];
                uint64_t bottom = uint64_t{sb.output[1]} + sb.output[3];
                if (right > cv.width || bottom > cv.height)
                    w.add("window-outside-canvas", path + ".output",
                          name + "'s output window " + window(sb.output) + " reaches (" +
                              std::to_string(right) + ", " + std::to_string(bottom) +
                              "), beyond canvas " + std::to_string(sb.canvas_id) + " (" +
                              std::to_string(cv.width) + "x" + std::to_string(cv.height) + ")",
                          w.order_of(path + ".output"));
                for (const placed &o : on[static_cast<size_t>(sb.canvas_id)]) {
                    uint64_t l = std::max(o.out[0], sb.output[0]),
                             t = std::max(o.out[1], sb.output[1]);
                    uint64_t r = std::min(uint64_t{o.out[0]} + o.out[2], right);
                    uint64_t bm = std::min(uint64_t{o.out[1]} + o.out[3], bottom);
                    if (l < r && t < bm)
                        w.add("overlapping-windows", path + ".output",
                              name + "'s output window overlaps " + o.name + "'s on canvas " +
                                  std::to_string(sb.canvas_id),
                              w.order_of(path + ".output"));
                }
                on[static_cast<size_t>(sb.canvas_id)].push_back({name, sb.output});
            }
        }
    }
}

bool covered(const std::vector<finding> &fs, const std::string &path)
{
    for (const finding &f : fs)
        if (path == f.path || path.rfind(f.path + ".", 0) == 0 || path.rfind(f.path + "[", 0) == 0)
            return true;
    return false;
}

// Fields that differ after a dump and a load of the dump.
void round_trip(const std::string &file, const kiv_multi_chan_cfg &cfg, reading_watch &w)
{
    char tmpl[] = "/tmp/kiv-lint-XXXXXX";
    int fd = mkstemp(tmpl);
    if (fd < 0)
        throw io_error(std::string("cannot create a temporary file: ") + strerror(errno));
    close(fd);
    auto again = std::make_unique<kiv_multi_chan_cfg>();
    int32_t ret = 0;
    capture_log([&] {
        kiv_dump_multi_chan_cfg(&cfg, tmpl);
        ret = kiv_get_multi_chan_cfg(tmpl, again.get());
    });
    unlink(tmpl);
    std::vector<finding> &fs = w.findings();
    if (ret != 0) {
        w.add("lossy-round-trip", "",
              "the dump of this record does not load (result " + std::to_string(ret) + ")",
              w.order_of(""));
        return;
    }
    // Streams are dumped by position: ids with a gap move or lose streams.
    const int streams = std::min<int>(cfg.stream_num, 13);
    bool gap = false;
    for (int s = streams; s < 13; ++s)
        gap = gap || cfg.streams[s].max_width || cfg.streams[s].max_height;
    std::vector<leaf_value> a = flatten(multi_chan_desc(), &cfg),
                            b = flatten(multi_chan_desc(), again.get());
    for (size_t k = 0; k < a.size(); ++k) {
        if (a[k].value == b[k].value || covered(fs, a[k].path))
            continue;
        std::string path = a[k].path, why;
        if (path.size() > 16 && path.compare(path.size() - 16, 16, ".vsrc.calib_data") == 0) {
            why = "the format has no place for calib_data: the dump leaves it out";
        } else if (gap && path.rfind("streams[", 0) == 0) {
            path = "streams";
            why = "the stream ids have a gap: the dump writes the " + std::to_string(streams) +
                  " streams as stream_0 to stream_" + std::to_string(streams - 1) +
                  " by position, so they load back changed";
        } else {
            why = "is " + a[k].value + ", " + b[k].value + " after a dump and a load";
        }
        w.add("lossy-round-trip", path, why, w.order_of(path));
    }
    (void)file;
}

} // namespace

std::vector<finding> lint_file(const std::string &path)
{
    require_readable(path);
    reading_watch w(path);
    auto cfg = std::make_unique<kiv_multi_chan_cfg>();
    loaded l;
    kiv_set_watcher(w.watcher());
    try {
        log_to_stderr([&] { l = load_script(path, cfg.get()); });
    } catch (...) {
        kiv_set_watcher(nullptr);
        throw;
    }
    kiv_set_watcher(nullptr);
    if (l.result != 0) {
        w.drop_unknown_keys();
        w.add("load-failed", "",
              "the library refused it (result " + std::to_string(l.result) + "): see its log",
              static_cast<size_t>(-1));
    }
    w.finish();
    if (l.result == 0 && l.kind == script_kind::multi_chan) {
        record_rules(*cfg, w);
        round_trip(path, *cfg, w);
    }
    std::vector<finding> fs = std::move(w.findings());
    std::stable_sort(fs.begin(), fs.end(),
                     [](const finding &a, const finding &b) { return a.order < b.order; });
    return fs;
}

std::string lint_text(const std::vector<finding> &fs)
{
    std::string out;
    for (const finding &f : fs)
        out += f.file + ": " + severity_name(f.r->level) + ": " + f.path + ": " + f.message + " [" +
               f.r->id + "]\n";
    return out;
}

nlohmann::ordered_json lint_json(const std::vector<finding> &fs)
{
    nlohmann::ordered_json a = nlohmann::ordered_json::array();
    for (const finding &f : fs)
        a.push_back({{"file", f.file},
                     {"severity", severity_name(f.r->level)},
                     {"path", f.path},
                     {"message", f.message},
                     {"rule", f.r->id}});
    return a;
}

namespace
{

// A file name as a relative URI reference: unreserved characters and '/'
// as they are, every other byte percent-encoded.
std::string uri_of(const std::string &path)
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

const char *sarif_level(severity s)
{
    return s == severity::info ? "note" : severity_name(s);
}

} // namespace

nlohmann::ordered_json lint_sarif(const std::vector<finding> &fs)
{
    json rules = json::array();
    const std::vector<rule> &all = lint_rules();
    for (const rule &r : all)
        rules.push_back({{"id", r.id},
                         {"shortDescription", {{"text", r.summary}}},
                         {"help",
                          {{"text", std::string(r.summary) + " See docs/lint.md, \"" + r.id +
                                        "\", for an example and the fix."}}},
                         {"defaultConfiguration", {{"level", sarif_level(r.level)}}}});
    json results = json::array();
    for (const finding &f : fs) {
        json result = {
            {"ruleId", f.r->id},
            {"ruleIndex", f.r - all.data()},
            {"level", sarif_level(f.r->level)},
            {"message", {{"text", f.path.empty() ? f.message : f.path + ": " + f.message}}},
            {"locations", json::array({{{"physicalLocation",
                                         {{"artifactLocation", {{"uri", uri_of(f.file)}}}}}}})}};
        if (!f.path.empty())
            result["locations"][0]["logicalLocations"] =
                json::array({{{"fullyQualifiedName", f.path}, {"kind", "member"}}});
        results.push_back(result);
    }
    return {
        {"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
        {"version", "2.1.0"},
        {"runs", json::array({{{"tool",
                                {{"driver",
                                  {{"name", "kiv"},
                                   {"version", "1.0.0"},
                                   {"informationUri", "https://example.invalid/kiv/docs/lint.md"},
                                   {"rules", rules}}}}},
                               {"results", results}}})}};
}

void add_lint(CLI::App &app, int &rc)
{
    struct options {
        std::vector<std::string> files, disabled;
        std::string format = "text", error_on = "warning";
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "lint", "Load each script and report what loads but cannot work as meant, or what a dump "
                "silently changes; one line per finding.");
    sub->add_option("FILE", opt->files, "Configuration scripts")->required();
    sub->add_option("--format", opt->format, "text (default), json or sarif")
        ->check(CLI::IsMember({"text", "json", "sarif"}));
    std::vector<std::string> ids;
    for (const rule &r : lint_rules())
        ids.push_back(r.id);
    sub->add_option("--disable", opt->disabled, "Leave out the findings of rule ID (repeatable)")
        ->check(CLI::IsMember(ids));
    sub->add_option("--error-on", opt->error_on,
                    "The lowest severity that makes the exit code 1: warning (default) or error")
        ->check(CLI::IsMember({"warning", "error"}));
    add_log_options(sub);
    sub->callback([opt, &rc] {
        std::vector<finding> all;
        int worst = EXIT_OK;
        for (const std::string &f : opt->files) {
            try {
                for (finding &x : lint_file(f))
                    if (std::find(opt->disabled.begin(), opt->disabled.end(), x.r->id) ==
                        opt->disabled.end())
                        all.push_back(std::move(x));
            } catch (const io_error &e) {
                std::cerr << "kiv: " << e.what() << '\n';
                worst = EXIT_USAGE;
            }
        }
        const severity threshold = opt->error_on == "error" ? severity::error : severity::warning;
        size_t counts[3] = {0, 0, 0};
        for (const finding &x : all) {
            ++counts[static_cast<int>(x.r->level)];
            if (x.r->level >= threshold && worst == EXIT_OK)
                worst = EXIT_FAILED;
        }
        if (opt->format == "json") {
            std::cout << dump_json(lint_json(all)) << '\n';
        } else if (opt->format == "sarif") {
            std::cout << dump_json(lint_sarif(all)) << '\n';
        } else {
            std::cout << lint_text(all);
            std::cout << opt->files.size() << (opt->files.size() == 1 ? " file: " : " files: ")
                      << counts[2] << (counts[2] == 1 ? " error, " : " errors, ") << counts[1]
                      << (counts[1] == 1 ? " warning, " : " warnings, ") << counts[0]
                      << (counts[0] == 1 ? " info\n" : " infos\n");
        }
        rc = worst;
    });
}

} // namespace kivtool
