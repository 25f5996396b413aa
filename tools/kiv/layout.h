// The picture of a configuration as SVG: the flow from video sources through
// channels and source buffers to canvases and streams, the pyramids and the
// memory layout, the input of every channel pass with the input windows of
// its buffers, and every canvas with the output windows of the buffers bound
// to it; and the page of `kiv layout --format html`, the picture beside a
// panel that shows the record and the findings of what is pointed at.
#ifndef KIV_TOOL_LAYOUT_H
#define KIV_TOOL_LAYOUT_H

#include <string>

#include "kiv.h"

namespace kivtool
{

struct script_model;

// The whole SVG document.  All canvases are drawn to one scale, at which
// the largest fits 640 x 360, each as
//   <rect class="canvas" data-canvas="i" data-scale="s" x y width height .../>
// and each bound buffer's output window (x, y, width, height = output[0..3])
// inside it as
//   <rect class="window" data-source="chan_0.main" x y width height .../>
// with data-outside="1" when it reaches outside the canvas: the part inside
// is clipped to the canvas, the part outside is drawn beside it, dashed red.
// Windows of one place (coincident) are filled with stripes, one colour
// each, and carry data-same="k/n", their rank among the n.
// The channel inputs are drawn likewise, to a scale of their own: a
// <rect class="input-frame" data-channel="c" data-pass="p"> per channel pass
// and a <rect class="input" data-source="..."> per input window (input[0..3]).
// Each buffer has its own fill colour, the same in every part of the picture.
// The boxes of the flow carry data-vsrc, data-channel, data-source,
// data-canvas or data-stream; the pyramid layers data-pyramid="c", the rows
// of the memory layout data-memory="chan_i" or "stream_i".
// `failure`, when not empty, is the text of a banner above all: the load
// failed, and the picture shows what was read before it did.
std::string layout_svg(const kiv_multi_chan_cfg &cfg, const std::string &failure = "");

// One self-contained HTML page: the picture, and a panel that shows the
// record's fields and the findings of `kiv lint` of the object under the
// pointer (a click keeps it; "#canvas:1" in the address selects one).
std::string layout_html(const script_model &m, const std::string &failure = "");

// The name the picture gives buffer `index` of pass `pass` of channel
// `chan`: chan_<c>.<name> in pass 0, chan_<c>.<name>_<p> in pass p.
std::string buffer_name(int chan, int pass, int index);

} // namespace kivtool

#endif
