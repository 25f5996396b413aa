// kiv layout --format html: the picture in a page of its own, with a panel
// beside it that shows the record and the findings of the object under the
// pointer.  The page needs nothing but itself: the picture is inline SVG,
// the objects are JSON in a script element, and a small script links the
// two through the data attributes of the picture.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "channel/srcbuf.h"
#include "layout.h"
#include "model/model.h"
#include "model/rules.h"
#include "records.h"
#include "render.h"
#include "report.h"

namespace kivtool
{

namespace
{

const char *const STYLE =
    R"(html, body { margin: 0; height: 100%; font: 14px sans-serif; color: #222; }
body { display: flex; }
#picture { flex: 1; overflow: auto; min-width: 0; }
#panel { width: 400px; flex: none; overflow: auto; box-sizing: border-box; padding: 12px 16px;
         border-left: 1px solid #bbb; background: #fafafa; }
#picture svg text { pointer-events: none; }
#picture svg text.legend { pointer-events: auto; }
#picture svg [data-source], #picture svg [data-canvas], #picture svg [data-stream],
#picture svg [data-channel], #picture svg [data-vsrc], #picture svg [data-pyramid],
#picture svg [data-memory] { cursor: pointer; }
#picture svg .kiv-selected { stroke: #ff7f00 !important; stroke-width: 3px !important; }
#picture svg text.kiv-selected { stroke: none !important; font-weight: bold; }
#panel h2 { font-size: 18px; margin: 0 0 4px; }
#panel h3 { font-size: 14px; margin: 14px 0 4px; }
#panel .path { color: #555; font-family: monospace; margin: 0; }
#panel .failure { color: #b00000; }
#panel ul { margin: 0; padding-left: 18px; }
#panel li { margin: 2px 0; font-size: 13px; }
#panel li.error { color: #b00000; } #panel li.warning { color: #8a5a00; }
#panel li[data-object] { cursor: pointer; text-decoration: underline dotted; }
#panel table { border-collapse: collapse; font: 12px monospace; width: 100%; }
#panel td { padding: 1px 6px; border-bottom: 1px solid #e4e4e4; vertical-align: top; }
#panel td:first-child { color: #555; }
)";

// Hover shows an object in the panel, a click keeps it there (a click on
// nothing goes back to the whole file), and the address's fragment names
// the object kept ("#buffer:chan_0.main"), so that a link can point at one.
const char *const SCRIPT = R"((function () {
  'use strict';
  var data = JSON.parse(document.getElementById('kiv-data').textContent);
  var panel = document.getElementById('panel');
  var svg = document.querySelector('#picture svg');
  var KINDS = [['data-source', 'buffer'], ['data-canvas', 'canvas'], ['data-stream', 'stream'],
               ['data-pyramid', 'pyramid'], ['data-memory', 'memory'], ['data-vsrc', 'vsrc'],
               ['data-channel', 'channel']];
  function own(e) {
    for (var i = 0; i < KINDS.length; i++)
      if (e.hasAttribute && e.hasAttribute(KINDS[i][0]))
        return KINDS[i][1] + ':' + e.getAttribute(KINDS[i][0]);
    return null;
  }
  function keyOf(e) {
    for (; e && e !== svg; e = e.parentNode) {
      var k = own(e);
      if (k && data.objects[k]) return k;
    }
    return null;
  }
  var drawn = {};
  svg.querySelectorAll('*').forEach(function (e) {
    var k = own(e);
    if (k) (drawn[k] = drawn[k] || []).push(e);
  });
  function add(parent, tag, text, cls) {
    var e = document.createElement(tag);
    if (text !== undefined) e.textContent = text;
    if (cls) e.className = cls;
    parent.appendChild(e);
    return e;
  }
  function fields(table, value, name) {
    var flat = Array.isArray(value) && value.every(function (v) { return typeof v !== 'object'; });
    if (value !== null && typeof value === 'object' && !flat) {
      Object.keys(value).forEach(function (k) {
        fields(table, value[k], Array.isArray(value) ? name + '[' + k + ']' : (name ? name + '.' : '') + k);
      });
      return;
    }
    var row = table.insertRow();
    row.insertCell().textContent = name;
    row.insertCell().textContent = flat ? '[' + value.join(', ') + ']' : String(value);
  }
  function findings(list, heading) {
    add(panel, 'h3', list.length ? heading + ' (' + list.length + ')' : 'No findings');
    var ul = add(panel, 'ul');
    list.forEach(function (i) {
      var f = data.findings[i];
      var li = add(ul, 'li', (f.line ? f.line + ':' + f.column + ': ' : '') + f.severity + ': ' +
                   (f.path ? f.path + ': ' : '') + f.message + ' [' + f.rule + ']', f.severity);
      if (f.object) li.setAttribute('data-object', f.object);
    });
  }
  function show(key) {
    panel.textContent = '';
    var o = key && data.objects[key];
    if (!o) {
      add(panel, 'h2', data.file);
      add(panel, 'p', data.summary, 'path');
      if (data.failure) add(panel, 'p', data.failure, 'failure');
      findings(data.findings.map(function (f, i) { return i; }), 'Findings of kiv lint');
      add(panel, 'p', 'Point at a box, a window or a layer to see its fields; click to keep it.');
      return;
    }
    add(panel, 'h2', o.title);
    add(panel, 'p', o.kind + ': ' + o.path, 'path');
    findings(o.findings, 'Findings');
    add(panel, 'h3', 'Fields');
    fields(add(panel, 'table'), o.fields, '');
  }
  var kept = null, marked = [];
  function mark(key) {
    marked.forEach(function (e) { e.classList.remove('kiv-selected'); });
    marked = (key && drawn[key]) || [];
    marked.forEach(function (e) { e.classList.add('kiv-selected'); });
  }
  function keep(key) {
    kept = key && data.objects[key] ? key : null;
    show(kept);
    mark(kept);
    try {
      history.replaceState(null, '', kept ? '#' + kept : location.pathname + location.search);
    } catch (e) { /* a page without a history of its own */ }
  }
  svg.addEventListener('mouseover', function (e) {
    var k = keyOf(e.target) || kept;
    show(k);
    mark(k);
  });
  svg.addEventListener('mouseleave', function () { show(kept); mark(kept); });
  svg.addEventListener('click', function (e) { keep(keyOf(e.target)); });
  panel.addEventListener('click', function (e) {
    var k = e.target.getAttribute && e.target.getAttribute('data-object');
    if (k) keep(k);
  });
  window.addEventListener('hashchange', function () {
    keep(decodeURIComponent(location.hash.slice(1)));
  });
  keep(decodeURIComponent(location.hash.slice(1)));
})();
)";

std::string esc(const std::string &s)
{
    std::string out;
    for (char c : s)
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return out;
}

// Whether a finding at `path` is about what lies at `at`.
bool under(const std::string &path, const std::string &at)
{
    return path == at || path.starts_with(at + ".") || path.starts_with(at + "[");
}

struct object {
    std::string key, title, kind;
    std::vector<std::string> paths; // the record paths it stands for, the first shown
    json fields;
};

// What the picture draws, as the panel shows it.
std::vector<object> objects_of(const kiv_multi_chan_cfg &cfg, const json &record)
{
    std::vector<object> out;
    std::map<uint32_t, size_t> vsrcs;
    for (int c = 0; c < std::min<int>(cfg.chan_num, 3); ++c) {
        const std::string cs = std::to_string(c), at = "channels[" + cs + "]";
        const json &ch = record["channels"][static_cast<size_t>(c)];
        uint32_t id = cfg.channels[c].vsrc.vsrc_id;
        if (vsrcs.count(id))
            out[vsrcs[id]].paths.push_back(at + ".vsrc");
        else
            vsrcs[id] = out.size(), out.push_back({"vsrc:" + std::to_string(id),
                                                   "vsrc " + std::to_string(id),
                                                   "video source",
                                                   {at + ".vsrc"},
                                                   ch["vsrc"]});
        json rest = ch;
        for (const char *part : {"vsrc", "src_buf", "pyramid"})
            rest.erase(part);
        out.push_back({"channel:" + cs, "chan_" + cs, "channel", {at}, rest});
        out.push_back({"pyramid:" + cs,
                       "chan_" + cs + " pyramid",
                       "pyramid",
                       {at + ".pyramid"},
                       ch["pyramid"]});
        for (int p = 0; p < std::min<int>(cfg.channels[c].pass_num, 2); ++p)
            for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
                const std::string name = buffer_name(c, p, b);
                out.push_back(
                    {"buffer:" + name,
                     name,
                     "source buffer",
                     {at + ".src_buf[" + std::to_string(p) + "][" + std::to_string(b) + "]"},
                     ch["src_buf"][static_cast<size_t>(p)][static_cast<size_t>(b)]});
            }
    }
    for (int i = 0; i < std::min<int>(cfg.canvas_num, 12); ++i)
        out.push_back({"canvas:" + std::to_string(i),
                       "canvas " + std::to_string(i),
                       "canvas",
                       {"canvas[" + std::to_string(i) + "]"},
                       record["canvas"][static_cast<size_t>(i)]});
    for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s)
        out.push_back({"stream:" + std::to_string(s),
                       "stream " + std::to_string(s),
                       "stream",
                       {"streams[" + std::to_string(s) + "]"},
                       record["streams"][static_cast<size_t>(s)]});
    const kiv_mem_cfg_resource &mem = cfg.resource_mem_layout;
    const json &jm = record["resource_mem_layout"];
    for (int i = 0; i < std::min<int>(mem.max_chan_num, 12); ++i)
        out.push_back({"memory:chan_" + std::to_string(i),
                       "chan_" + std::to_string(i) + " memory",
                       "memory layout of a channel",
                       {"resource_mem_layout.channels_mem[" + std::to_string(i) + "]"},
                       jm["channels_mem"][static_cast<size_t>(i)]});
    for (int s = 0; s < std::min<int>(mem.max_stream_num, 13); ++s)
        out.push_back({"memory:stream_" + std::to_string(s),
                       "stream " + std::to_string(s) + " memory",
                       "memory layout of a stream",
                       {"resource_mem_layout.streams_mem[" + std::to_string(s) + "]"},
                       jm["streams_mem"][static_cast<size_t>(s)]});
    return out;
}

} // namespace

std::string layout_html(const script_model &m, const std::string &failure)
{
    const json record = to_json(multi_chan_desc(), m.cfg.get());
    std::vector<object> objects = objects_of(*m.cfg, record);
    json found = json::array(), shown = json::object();
    std::map<std::string, json> at; // the findings of each object
    for (const object &o : objects)
        at[o.key] = json::array();
    for (const finding &f : report_of(m, false, {}).findings) {
        // The object whose path is the longest that holds the finding's.
        const object *best = nullptr;
        size_t longest = 0;
        for (const object &o : objects)
            for (const std::string &p : o.paths)
                if (under(f.path, p) && p.size() > longest)
                    best = &o, longest = p.size();
        json j = {{"severity", severity_name(f.r->level)},
                  {"rule", f.r->id},
                  {"path", f.path},
                  {"message", f.message}};
        if (!f.where.none())
            j["line"] = f.where.begin.line, j["column"] = f.where.begin.col;
        if (best) {
            j["object"] = best->key;
            at[best->key].push_back(found.size());
        }
        found.push_back(std::move(j));
    }
    for (const object &o : objects)
        shown[o.key] = {{"title", o.title},
                        {"kind", o.kind},
                        {"path", o.paths[0]},
                        {"findings", at[o.key]},
                        {"fields", o.fields}};
    const json page = {{"file", m.file},
                       {"summary", m.summary()},
                       {"failure", failure},
                       {"findings", found},
                       {"objects", shown}};
    // Bytes that are not UTF-8 are shown as U+FFFD; no '<' may end the
    // script element early.
    std::string data = page.dump(-1, ' ', false, json::error_handler_t::replace), safe;
    for (char c : data)
        safe += c == '<' ? std::string("\\u003c") : std::string(1, c);
    std::string svg = layout_svg(*m.cfg, failure);
    svg.erase(0, svg.find("<svg"));
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>kiv "
           "layout: " +
           esc(m.file) + "</title>\n<style>\n" + STYLE + "</style>\n</head>\n<body>\n" +
           "<div id=\"picture\">\n" + svg + "</div>\n<aside id=\"panel\"></aside>\n" +
           "<script type=\"application/json\" id=\"kiv-data\">" + safe + "</script>\n<script>\n" +
           SCRIPT + "</script>\n</body>\n</html>\n";
}

} // namespace kivtool
