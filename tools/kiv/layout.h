// The picture of a configuration as SVG: the flow from video sources through
// channels and source buffers to canvases and streams, the input of every
// channel pass with the input windows of its buffers, and every canvas with
// the output windows of the buffers bound to it.
#ifndef KIV_TOOL_LAYOUT_H
#define KIV_TOOL_LAYOUT_H

#include <string>

#include "kiv.h"

namespace kivtool
{

// The whole SVG document.  All canvases are drawn to one scale, at which
// the largest fits 640 x 360, each as
//   <rect class="canvas" data-canvas="i" data-scale="s" x y width height .../>
// and each bound buffer's output window (x, y, width, height = output[0..3])
// inside it, clipped to it, as
//   <rect class="window" data-source="chan_0.main" x y width height .../>
// with data-outside="1" and a red stroke when it reaches outside the canvas.
// The channel inputs are drawn likewise, to a scale of their own: a
// <rect class="input-frame" data-channel="c" data-pass="p"> per channel pass
// and a <rect class="input" data-source="..."> per input window (input[0..3]).
// Each buffer has its own fill colour, the same in every part of the picture.
std::string layout_svg(const kiv_multi_chan_cfg &cfg);

} // namespace kivtool

#endif
