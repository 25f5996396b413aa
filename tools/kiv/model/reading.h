// Watching one load (kiv_watcher): what the model learns from the library
// while it reads a script.  Internal to the model.
#ifndef KIV_TOOL_MODEL_READING_H
#define KIV_TOOL_MODEL_READING_H

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/access.h"
#include "model/model.h"

namespace kivtool
{

// Which constructor made each table of the running script, from the line
// and function the interpreter was at when it made it.
class table_origins
{
  public:
    explicit table_origins(const src_map &source);
    // The script has just made `table` (kiv_watcher::made_table).
    void made(lua_State *L, const void *table);
    // The constructor of `table`: `hint` (the constructor the script text
    // places there) when it could have made the table, else the best guess
    // from where the table was made; -1 when unknown.
    int32_t of(const void *table, int32_t hint) const;
    // For a table made inside a function: the constructors at the line of
    // the call that made it (`channel { id = 0, ... }` for the table that
    // channel() returns), where the values it takes over were written.
    const std::vector<int32_t> *call_site(const void *table) const;
    // For a table made inside a function: the line of the main chunk whose
    // call made it (through helpers that call helpers); 0 when unknown.
    uint32_t call_line(const void *table) const;

  private:
    struct site {
        uint32_t fn_line, fn_last, line;
        bool operator==(const site &o) const = default;
    };
    struct site_hash {
        size_t operator()(const site &s) const
        {
            return (size_t{s.fn_line} * 0x9E3779B1u) ^ (size_t{s.fn_last} << 20) ^ s.line;
        }
    };
    struct origin {
        const std::vector<int32_t> *candidates;
        int32_t guess;
        const std::vector<int32_t> *call; // null: made in the main chunk
        uint32_t call_line;
    };
    const std::vector<int32_t> *at(lua_State *L, int level, site *s) const;
    std::unordered_map<site, std::vector<int32_t>, site_hash> sites_;
    std::unordered_map<const void *, origin> made_;
    site last_{};
    size_t run_ = 0; // tables made one after another at the same site
};

class reading
{
  public:
    explicit reading(script_model &m);
    const kiv_watcher *watcher() const { return &w_; }
    // After the run: closes the tables still open (the global table is
    // whole when the load succeeded) and lists the duplicate ids.
    void finish();

  private:
    enum class tkind {
        other,
        root,
        channels,
        channel,
        pass,
        pyramid,
        vsrc,
        canvases,
        canvas,
        streams,
        stream
    };
    struct frame {
        tkind kind = tkind::other;
        std::string rec;      // the record path its keys are named under
        std::string chan_rec; // the channel's path, for the buffers of a further pass
        int pass = 0;
        const void *table = nullptr;
        int32_t ctor = -1;
        size_t index = 0; // its entry in model.tables
        bool collected = false;
        bool pending_error = false; // an ERROR was logged since its last lookup
        bool stopped = false;       // its last lookup found no table or array where one was wanted
        // Its lookup before the last, when it found a switch on (a key read
        // as an integer, not 0), and the last: what made the last one needed.
        std::string switch_key, last_switch_key;
        place switch_at, last_switch_at;
        std::string stopped_at;
        place self; // where the table itself was named
        // The evaluator's table at the same path, when it agreed so far.
        const flow::table *flowed = nullptr;
        std::unordered_map<std::string, int64_t> given; // integers given, by key or "key[i]"
        std::vector<std::string> reported;              // keys with a slip of their own
    };

    script_model &m_;
    table_origins origins_;
    kiv_watcher w_{};
    std::vector<frame> stack_;
    std::unordered_map<const void *, int32_t> ctors_; // tables seen while reading
    // The last lookup: its path and place (the log's lines are placed there),
    // and what an enter takes for the table entered.
    std::string cur_path_;
    place cur_;
    // The evaluator's table for a table the last lookup found, when the
    // evaluator found the same.
    const flow::table *cur_flowed_ = nullptr;
    bool flow_tried_ = false;
    bool cur_found_ = false;
    size_t cur_table_ = 0;
    // Tables left since the last lookup: an ERROR logged now is the failure
    // they passed on, so they were not read to their end.
    std::vector<size_t> just_left_;
    std::string last_name_;
    int32_t last_index_ = -1;
    bool last_named_ = false;
    // Ids of `channels` and `streams` elements, with where each was written.
    struct given_id {
        int64_t id;
        src_span where;
    };
    std::vector<given_id> ids_[2];

    // Each constructor's fields by name (the last of a name wins) and by
    // position, made when the reading first looks into it.
    struct field_index {
        std::vector<std::pair<std::string_view, int32_t>> names; // sorted
        std::vector<int32_t> positions;                          // field of element i + 1
    };
    std::vector<std::unique_ptr<field_index>> fields_;

    int32_t ctor_of(lua_State *L, int idx, int32_t hint);
    flow_value flowed_value(const frame &f, const char *name, int32_t index) const;
    place flowed_place(const flow_value &v) const;
    place listed_place(const flow::table *list, const char *name) const;
    const src_field *find_field(int32_t ctor, const char *name, int32_t index);
    void mark_read(frame &f, const char *name, bool present);
    place place_of(lua_State *L, const void *table, int32_t ctor, const char *name, int32_t index);
    place patched(lua_State *L, int32_t ctor, const char *name);
    place passed_on(lua_State *L, const void *table, const src_field *f, const char *name);
    place table_value(const void *table, int32_t made, const place &named);
    src_span local_value(std::string_view v, lua_State *L, src_span *value_span) const;
    void note_place(const std::string &path, const place &p);
    void collect(lua_State *L, frame &f);
    void lookup(lua_State *L, const char *name, int32_t index, kiv_want want);
    void check_type(lua_State *L, frame &f, const char *name, int32_t index, kiv_want want,
                    const std::string &path);
    void slip(frame &f, const std::string &key, const std::string &path, const std::string &message,
              bool wrong_type);
    void enter();
    void name_entered(const frame &p, frame &f);
    void leave();
    void close(frame &f, bool whole);
    void stored(const char *key, int32_t elem, int64_t held);
    void logged(const char *text, size_t n);
};

} // namespace kivtool

#endif
