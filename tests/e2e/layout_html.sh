#!/usr/bin/env bash
# The layout_html test: the page of `kiv layout --format html` in a real
# browser.  The page of every multi-channel example, of the 4K example with
# a lint finding planted and of a script that fails to load is written, and
# all are opened in one headless Chromium as frames of a harness page; on
# load the harness clicks and points at objects of each page as CHECKS
# below say and compares what the panel then shows with the expected
# fields, writing a report into its page, which Chromium dumps.  Then a
# screenshot of the harness, cut into one tile per frame, must show a
# picture and a panel in every tile.  Three runs of Chromium in all.
#   layout_html.sh KIV_BINARY SOURCE_DIR
set -euo pipefail
kiv=$(realpath "$1")
src=$(realpath "$2")
browser=$(command -v chromium || command -v chromium-browser || true)
[ -n "$browser" ] || { echo "chromium is missing: scripts/install-deps.sh installs it" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# PAGE[#OBJECT]  ACTION  SELECTOR  what the panel then shows, " | " between
# the parts (the panel's text with its blanks squeezed to one).  load: the
# panel as the page opens; leave: the pointer leaves the picture.
CHECKS='
single_1080p	load	-	single_1080p.lua | 1 channel, 3 canvases, 2 streams | No findings
single_1080p	click	rect.window[data-source="chan_0.third"]	chan_0.third | source buffer: channels[0].src_buf[0][2] | output [0, 0, 640, 360] | canvas_id 2
single_1080p	hover	rect.box[data-stream="1"]	stream 1 | stream: streams[1] | max_M 1 | codec_enable 1 | max_width 1280
single_1080p	leave	svg	chan_0.third | canvas_id 2
single_1080p	click	rect.pyramid-layer[data-layer="2"]	chan_0 pyramid | pyramid: channels[0].pyramid | layer_map 7 | layers[2].crop_win [0, 0, 1920, 1080]
two_channel_encode_preview	click	rect.canvas[data-canvas="2"]	canvas 2 | canvas: canvas[2] | width 720 | height 480 | type 2 | vout_id 1
two_channel_encode_preview	click	rect.box[data-vsrc="0"]	vsrc 0 | video source: channels[0].vsrc | fps 30 | mode
hdr_virtual_mode	click	rect.box[data-channel="0"]	chan_0 | channel: channels[0] | idsp_fps_hp 29970 | pass_cfg[1].input_buf_id
hdr_virtual_mode	click	rect.input[data-source="chan_0.second"]	chan_0.second | input [0, 0, 2688, 1520]
three_channel_4k#canvas:1	load	-	canvas 1 | canvas: canvas[1] | width 2560 | height 960 | source_chan_num 2
three_channel_4k	click	rect.memory[data-memory="stream_3"]	stream 3 memory | resource_mem_layout.streams_mem[3] | qpm_buf_max_num 2 | max_stream [2560, 1920]
three_channel_4k	click	text.legend[data-source="chan_1.main"]	chan_1.main | input [960, 540, 1920, 1080] | No findings
4k_lint	load	-	4k_lint.lua | Findings of kiv lint (1) | overlapping-windows
4k_lint	click	#panel li[data-object]	chan_1.main | Findings (1) | chan_1.main&apos;s output window overlaps | [overlapping-windows] | output [1280, 720, 640, 360]
4k_lint	click	rect.canvas[data-canvas="4"]	canvas 4 | No findings | width 1920
failed	load	-	failed.lua | error: streams[1].max_size: item(max_size) doesn&apos;t exist
failed	click	rect.window[data-source="chan_0.main"]	chan_0.main | canvas_id 0
'
pages=(single_1080p two_channel_encode_preview hdr_virtual_mode three_channel_4k 4k_lint failed)
frames=$(grep . <<<"$CHECKS" | cut -f1 | sort -u | wc -l) # a frame per PAGE[#OBJECT]

# The pages.  The planted finding: the 4K example's preview windows overlap
# once its comment no longer silences that.
cd "$work"
for p in single_1080p two_channel_encode_preview hdr_virtual_mode three_channel_4k; do
    cp "$src/examples/$p.lua" "$p.lua"
done
sed 's/ -- kiv-lint: disable=overlapping-windows//' three_channel_4k.lua >4k_lint.lua
sed 's/{ id = 1, max_size = {1280, 720}, /{ id = 1, /' single_1080p.lua >failed.lua
for p in "${pages[@]}"; do
    status=0
    "$kiv" layout -q --format html "$p.lua" -o "$p.html" 2>"$p.err" || status=$?
    want=0
    [ "$p" != failed ] || want=1
    if [ $status -ne $want ] || [ ! -s "$p.html" ]; then
        echo "kiv layout --format html $p.lua: exit code $status, not $want" >&2
        cat "$p.err" >&2
        exit 1
    fi
done

# The harness: a frame per page (and object asked for), 1000 x 700 each,
# two to a row.
{
    cat <<'EOF'
<!DOCTYPE html>
<html><head><meta charset="utf-8"><style>
body { margin: 0; width: 2000px; }
iframe { border: 0; width: 1000px; height: 700px; float: left; }
pre { clear: both; }
</style></head><body>
<script type="text/plain" id="checks">
EOF
    printf '%s\n' "$CHECKS"
    cat <<'EOF'
</script>
<pre id="report"></pre>
<script>
'use strict';
var checks = document.getElementById('checks').textContent.split('\n')
  .filter(function (l) { return l.trim(); }).map(function (l) { return l.split('\t'); });
var report = [], left = 0, frames = {};
function squeeze(s) { return s.replace(/\s+/g, ' '); }
function run(doc, page) {
  var panel = doc.getElementById('panel'), svg = doc.querySelector('#picture svg');
  checks.filter(function (c) { return c[0] === page; }).forEach(function (c) {
    var what = c.slice(0, 3).join(' '), target = c[2] === '-' ? null : doc.querySelector(c[2]);
    if (c[1] !== 'load' && !target) { report.push('FAIL ' + what + ': no such element'); return; }
    if (c[1] === 'click' || c[1] === 'hover')
      target.dispatchEvent(new MouseEvent(c[1] === 'click' ? 'click' : 'mouseover', {bubbles: true}));
    if (c[1] === 'leave') svg.dispatchEvent(new MouseEvent('mouseleave'));
    var text = squeeze(panel.innerText), missing = c[3].split(' | ').filter(function (want) {
      return text.indexOf(want.replace(/&apos;/g, "'")) < 0;
    });
    if (c[1] === 'click' && !doc.querySelector('#picture .kiv-selected')) missing.push('(nothing marked)');
    report.push(missing.length ? 'FAIL ' + what + ': no "' + missing.join('", "') + '" in: ' + text
                               : 'ok ' + what);
  });
}
checks.forEach(function (c) { frames[c[0]] = true; });
Object.keys(frames).forEach(function (page) {
  var f = document.createElement('iframe'), at = page.indexOf('#');
  f.src = at < 0 ? page + '.html' : page.slice(0, at) + '.html' + page.slice(at);
  ++left;
  f.addEventListener('load', function () {
    try { run(f.contentDocument, page); } catch (e) { report.push('FAIL ' + page + ': ' + e); }
    if (--left === 0)
      document.getElementById('report').textContent = report.join('\n') + '\ndone\n';
  });
  document.body.insertBefore(f, document.getElementById('report'));
});
</script>
</body></html>
EOF
} >harness.html
# A page that says how much of each tile of the screenshot (as many as its
# address's fragment says) is drawn: how many colours, what share of it is
# not white, and of its panel (the right 400 px) what share is ink.
cat >tiles.html <<'EOF'
<!DOCTYPE html>
<html><body><pre id="tiles"></pre><script>
var img = new Image();
img.onload = function () {
  var c = document.createElement('canvas');
  c.width = img.width; c.height = img.height;
  var g = c.getContext('2d');
  g.drawImage(img, 0, 0);
  var out = [];
  for (var t = 0; t < +location.hash.slice(1); ++t) {
    var d = g.getImageData((t & 1) * 1000, (t >> 1) * 700, 1000, 700).data;
    var colours = new Set(), drawn = 0, ink = 0;
    for (var i = 0; i < d.length; i += 4) {
      colours.add((d[i] << 16) | (d[i + 1] << 8) | d[i + 2]);
      drawn += d[i] + d[i + 1] + d[i + 2] < 750;
      ink += (i / 4) % 1000 >= 600 && d[i] + d[i + 1] + d[i + 2] < 450;
    }
    out.push('tile ' + t + ' colours ' + colours.size + ' drawn ' + Math.round(drawn / 7000) +
             '% panel ink ' + (ink / 2800).toFixed(1) + '%');
  }
  document.getElementById('tiles').textContent = out.join('\n') + '\ndone\n';
};
img.onerror = function () { document.getElementById('tiles').textContent = 'cannot load\n'; };
img.src = 'shot.png';
</script></body></html>
EOF

chrome() { # the browser, without a profile or a home of its own to leave behind
    HOME=$work timeout 120 "$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage \
        --user-data-dir="$work/profile" --allow-file-access-from-files --hide-scrollbars \
        --virtual-time-budget=10000 "$@" 2>>"$work/chromium.log"
}
fail() {
    echo "$1" >&2
    echo "--- chromium's log" >&2
    tail -n 20 "$work/chromium.log" >&2
    exit 1
}

report=$(chrome --dump-dom "file://$work/harness.html" |
    sed -n '/<pre id="report">/,/<\/pre>/p' | sed 's/<[^>]*>//g')
grep -qx "done" <<<"$report" || fail "the harness did not finish: $report"
if grep '^FAIL' <<<"$report" >&2; then
    exit 1
fi
want=$(grep -c . <<<"$CHECKS")
[ "$(grep -c '^ok ' <<<"$report")" -eq "$want" ] || fail "not every check ran: $report"

rows=$(((frames + 1) / 2))
chrome --screenshot="$work/shot.png" --window-size=2000,$((rows * 700)) "file://$work/harness.html" ||
    true
[ -s shot.png ] || fail "no screenshot"
tiles=$(chrome --dump-dom "file://$work/tiles.html#$frames" | sed -n '/<pre id="tiles">/,/<\/pre>/p' |
    sed 's/<[^>]*>//g')
grep -qx "done" <<<"$tiles" || fail "the screenshot could not be read: $tiles"
[ "$(grep -c '^tile ' <<<"$tiles")" -eq "$frames" ] || fail "not a tile per frame: $tiles"
blank=$(awk '/^tile / && ($4 < 20 || $6 + 0 < 10 || $9 + 0 < 0.3)' <<<"$tiles")
[ -z "$blank" ] || fail "tiles blank or without a panel: $blank"
echo "kiv layout --format html in Chromium: $want checks on ${#pages[@]} pages pass, no tile blank"
