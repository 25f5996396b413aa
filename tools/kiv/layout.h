// The picture of a configuration as SVG: the flow from video sources through
// channels and source buffers to canvases and streams, and every canvas
// drawn with the output windows of the buffers bound to it.
#ifndef KIV_TOOL_LAYOUT_H
#define KIV_TOOL_LAYOUT_H

#include <string>

#include "kiv.h"

namespace kivtool
{

// The whole SVG document.  Each canvas is drawn as
//   <rect class="canvas" data-canvas="i" x y width height .../>
// scaled to fit 640 x 360, and each bound buffer's output window (x, y,
// width, height = output[0..3]) inside it, at the same scale, as
//   <rect class="window" data-source="chan_0.main" x y width height .../>
std::string layout_svg(const kiv_multi_chan_cfg &cfg);

} // namespace kivtool

#endif
