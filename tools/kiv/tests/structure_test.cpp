// The hint the indentation gives to a script that does not parse: each case
// a script with one mistake, run through the library as the tool runs it,
// and the place and note of the interpreter's error as the tool shows it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kiv_test.h"
#include "model/model.h"

using Structure = kivtest::Settings;

namespace
{

struct row {
    const char *what;
    std::string script;
    std::string want; // "LINE:COL-LINE:COL", the error's place, then the note if any
};

// The place and note of the interpreter's error in the model of `script`.
std::string error_of(const std::string &script, std::string &said)
{
    const kivtool::script_model m = kivtool::load_model_text("cfg.lua", script);
    for (const kivtool::log_line &l : m.log)
        if (l.text.find("lua error msg is ") != std::string::npos) {
            said = l.text;
            const auto pos = [](const kivtool::src_pos &p) {
                return std::to_string(p.line) + ":" + std::to_string(p.col);
            };
            const std::string s = pos(l.where.begin) + "-" + pos(l.where.end);
            return l.note.empty() ? s : s + " " + l.note;
        }
    return "no error";
}

// A script written as a raw string: its first line break left out.
std::string lines(const char *s)
{
    return std::string(s + (*s == '\n'));
}

TEST_F(Structure, UnclosedOpenersArePlacedWhereTheIndentationShows)
{
    const std::vector<row> rows = {
        {"a list of the top table", lines(R"(
_resource_config_ = {
    version = 1,
    channels = {
        { id = 0 },
    canvas = {},
}
)"),
         "3:16-3:17 the '{' at line 3 is not closed: the lines after it go back to its indentation "
         "at line 5"},
        {"a channel's buffer, the line before it ending in ','", lines(R"(
_resource_config_ = {
    channels = {
        {
            id = 0,
            main = { max_output = {1920, 1080},
            pass_num = 1,
        },
    },
}
)"),
         "5:20-5:47 a '{' at line 5 is not closed: the lines after it go back to its indentation "
         "at line 6"},
        // The interpreter stops at the next field; no ',' is missing there.
        {"a channel's buffer, the line before it ending in a value", lines(R"(
_resource_config_ = {
    channels = {
        {
            id = 0,
            main = { max_output = {1920, 1080}
            pass_num = 1,
        },
    },
}
)"),
         "5:20-5:47 a '{' at line 5 is not closed: the lines after it go back to its indentation "
         "at line 6"},
        {"four deep, the next line indented less than the opener", lines(R"(
_resource_config_ = {
    channels = {
        {
            pyramid = {
                layers = {
                    { crop_win = {0, 0, 960, 540} },
            },
        },
    },
}
)"),
         "5:26-5:27 the '{' at line 5 is not closed: the lines after it go back to its indentation "
         "at line 7"},
        {"a call's '(', its table closed", lines(R"(
local function chan(id, t) t.id = id return t end
_resource_config_ = {
    channels = {
        chan(0, {
            sensor_ctrl = 1,
        },
        chan(1, { sensor_ctrl = 0 }),
    },
}
)"),
         "4:13-4:14 the '(' at line 4 is not closed: the lines after it go back to its indentation "
         "at line 6"},
        // A block's 'end' is placed on the free line after its last line.
        {"a function", lines(R"(
local function sensor(id)
    return { vsrc_id = id, mode = "1080p" }

_resource_config_ = {
    version = 1,
}
)"),
         "3:1-3:2 the 'function' at line 1 has no 'end': the lines after it go back to its "
         "indentation at line 4"},
        {"a for loop", lines(R"(
local chans = {}
for i = 0, 1 do
    chans[#chans + 1] = { id = i }
_resource_config_ = {
    channels = chans,
}
)"),
         "2:1-2:4 the 'for' at line 2 has no 'end': the lines after it go back to its indentation "
         "at line 4"},
        // The interpreter names the function, which its last 'end' leaves open.
        {"an if in a function", lines(R"(
local function rate(hp)
    if hp then
        return 30000
    end
    if not hp then
        hp = false
    return 30
end
_resource_config_ = { version = 1 }
)"),
         "5:5-5:7 the 'if' at line 5 has no 'end': the lines after it go back to its indentation "
         "at line 7"},
        {"a loop inside an if, the else level with the if", lines(R"(
local t = {}
if #t == 0 then
    for i = 1, 2 do
        t[i] = i
else
    t = nil
end
_resource_config_ = t
)"),
         "3:5-3:8 the 'for' at line 3 has no 'end': the lines after it go back to its indentation "
         "at line 5"},
        {"a repeat", lines(R"(
local n = 0
repeat
    n = n + 1
_resource_config_ = { version = n }
)"),
         "2:1-2:7 the 'repeat' at line 2 has no 'until': the lines after it go back to its "
         "indentation at line 4"},
        // Either '{' of line 4 may lack its '}': the first '}' may be main's.
        {"two tables of a line, one of them left open", lines(R"(
_resource_config_ = {
    channels = {
        {
            main = { max_output = {1920, 1080, input = {0, 0, 1920, 1080} },
            pass_num = 1,
        },
    },
}
)"),
         "4:20-4:76 a '{' at line 4 is not closed: the lines after it go back to its indentation "
         "at line 5"},
        {"a function and an if on a line, one 'end'", lines(R"(
local pick = function(x) if x then return 1 end
local fps = pick(true)
_resource_config_ = { version = 1 }
)"),
         "1:14-1:48 a block at line 1 has no 'end': the lines after it go back to its indentation "
         "at line 2"},
        {"indented with tabs, callbacks closed by 'end)' before it",
         lines("local function each(t, f) for _, v in ipairs(t) do f(v) end end\n"
               "local list = {}\n"
               "each({1, 2}, function(v)\n"
               "\tlist[#list + 1] = { id = v }\n"
               "end)\n"
               "_resource_config_ = {\n"
               "\tchannels = {\n"
               "\t\t{ id = 0, main = { max_output = {1920, 1080} },\n"
               "\t},\n"
               "}\n"),
         "8:3-8:49 a '{' at line 8 is not closed: the lines after it go back to its indentation "
         "at line 9"},
    };
    for (const row &r : rows) {
        std::string said;
        const std::string got = error_of(r.script, said);
        EXPECT_EQ(got, r.want) << r.what << "\n" << said;
    }
}

TEST_F(Structure, AMissingCommaIsNamedOnlyBetweenFieldsOfABalancedConstructor)
{
    const std::vector<row> rows = {
        {"two fields", lines(R"(
_resource_config_ = {
    version = 1
    log_level = 1,
}
)"),
         "2:15-2:16 is a ',' missing at the end of line 2?"},
        {"a string value, comments after it", lines(R"(
local front = {
    mode = "1080p" -- the front sensor
    -- its rate
    fps = 30,
}
_resource_config_ = { version = 1 }
)"),
         "2:18-2:19 is a ',' missing at the end of line 2?"},
        {"a table value, in a list", lines(R"(
_resource_config_ = {
    canvas = {
        { type = "encode", size = {1920, 1080} }
        { type = "prev", size = {720, 480} },
    },
}
)"),
         "3:48-3:49 is a ',' missing at the end of line 3?"},
        // The interpreter stops at the same line as for a missing ',' in the
        // table below, but the table left open is the mistake.
        {"a value ending a line, the table around it left open", lines(R"(
_resource_config_ = {
    streams = {
        { id = 0, max_size = {1920, 1080}
        { id = 1, max_size = {1280, 720} },
    },
}
)"),
         "3:9-3:42 a '{' at line 3 is not closed: the lines after it go back to its indentation "
         "at line 4"},
    };
    for (const row &r : rows) {
        std::string said;
        const std::string got = error_of(r.script, said);
        EXPECT_EQ(got, r.want) << r.what << "\n" << said;
    }
}

// The place is then the line the interpreter names, and there is no note.
TEST_F(Structure, NoHintWhereTheIndentationDoesNotTell)
{
    const std::vector<row> rows = {
        {"tabs against spaces",
         lines("_resource_config_ = {\n"
               "\tchannels = {\n"
               "\t\t{ id = 0 },\n"
               "    canvas = {},\n"
               "}\n"),
         "6:1-6:1"},
        {"no indentation", lines(R"(
_resource_config_ = {
channels = {
{ id = 0 },
canvas = {},
}
)"),
         "6:1-6:1"},
        {"a ',' missing where nothing is indented", lines(R"(
_resource_config_ = {
version = 1
log_level = 1,
}
)"),
         "3:1-3:15"},
        {"a line that begins no field after a value", lines(R"(
_resource_config_ = {
    version = 1
        = 2,
}
)"),
         "3:9-3:13"},
        {"one line", "_resource_config_ = { channels = { { id = 0 }, canvas = {} }\n", "2:1-2:1"},
        {"two openers left open", lines(R"(
_resource_config_ = {
    channels = {
        {
            main = { max_output = {1920, 1080},
    canvas = {},
}
)"),
         "7:1-7:1"},
        {"the interpreter stops before the opener's end", lines(R"(
_resource_config_ = {
    version = = 1,
    channels = {
        { id = 0 },
    canvas = {},
}
)"),
         "2:5-2:19"},
        {"the last table of the file left open", lines(R"(
_resource_config_ = {
    version = 1,
    channels = {},
)"),
         "4:1-4:1"},
        {"brackets that close as indented: a missing 'do'", lines(R"(
local t = {}
for i = 1, 2
    t[i] = i
end
_resource_config_ = t
)"),
         "3:5-3:13"},
        {"a ',' missing between a call's arguments", lines(R"(
local function chan(id, t) t.id = id return t end
_resource_config_ = {
    channels = {
        chan(0
             { sensor_ctrl = 1 }),
    },
}
)"),
         "5:14-5:35"},
        {"a table closed on a line indented less than its own", lines(R"(
_resource_config_ = {
    channels = {
        { id = 0,
          main = { max_output = {1920, 1080} },
},
    canvas = {},
)"),
         "7:1-7:1"},
    };
    for (const row &r : rows) {
        std::string said;
        const std::string got = error_of(r.script, said);
        EXPECT_EQ(got, r.want) << r.what << "\n" << said;
    }
}

} // namespace
