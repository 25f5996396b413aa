// The client's settings: `debounce` and `disable`, given in initialize's
// initializationOptions and in workspace/didChangeConfiguration.  The
// settings of initialize take the place of the command line's; each change
// then gives the settings whole, a setting it leaves out back at that base.
// What cannot be taken is said to the user and left out, never refused.
#include "lsp/server.h"

#include <algorithm>

namespace kivtool::lsp
{

namespace
{

enum : int { MESSAGE_WARNING = 2 };

// A value as the message quotes it, cut short.
std::string shown(const json &v)
{
    const std::string s = v.dump();
    return s.size() <= 40 ? s : s.substr(0, 37) + "...";
}

} // namespace

void server::configure(const json &settings, bool initial)
{
    auto warn = [&](const std::string &text) {
        send_({{"jsonrpc", "2.0"},
               {"method", "window/showMessage"},
               {"params", {{"type", MESSAGE_WARNING}, {"message", "kiv: " + text}}}});
    };
    // {"kiv": {...}}, as an editor keeps the settings of several servers,
    // or the settings themselves.
    const json &s = settings.is_object() && settings.contains("kiv") ? settings["kiv"] : settings;
    server_options now = base_;
    now.inline_checks = opt_.inline_checks;
    if (s.is_object()) {
        for (const auto &[key, value] : s.items()) {
            if (key == "debounce") {
                if (value.is_number_integer() && value.get<int64_t>() >= 0 &&
                    value.get<int64_t>() <= 10000)
                    now.debounce = std::chrono::milliseconds(value.get<int64_t>());
                else
                    warn("the setting debounce takes milliseconds from 0 to 10000, not " +
                         shown(value) + ": left out");
            } else if (key == "disable") {
                if (!value.is_array()) {
                    warn("the setting disable takes a list of lint rule ids, not " + shown(value) +
                         ": left out");
                    continue;
                }
                now.disabled.clear();
                for (const json &id : value) {
                    // The ids `kiv lint --disable` takes.
                    if (!id.is_string() || !find_rule(id.get<std::string>()))
                        warn("no lint rule is called " + shown(id) +
                             " (see kiv lint --help): left out");
                    else if (std::find(now.disabled.begin(), now.disabled.end(), id) ==
                             now.disabled.end())
                        now.disabled.push_back(id.get<std::string>());
                }
            } else {
                warn("no setting is called " + shown(key) + ": left out");
            }
        }
    } else if (!s.is_null()) {
        warn("the settings are not an object: left out");
    }
    opt_ = now;
    if (initial) {
        base_ = now;
        return;
    }
    // The documents are checked again with the new settings; a check that
    // began before is dropped when it finishes.
    ++config_;
    for (auto &[uri, d] : docs_)
        changed(d);
}

} // namespace kivtool::lsp
