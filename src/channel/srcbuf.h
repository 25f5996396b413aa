// The source buffers of a channel pass, by name.
#ifndef KIV_CHANNEL_SRCBUF_H
#define KIV_CHANNEL_SRCBUF_H

// Buffer b of a pass is named kiv_src_buf_names[b]; canvases name buffers
// "chan_<c>.<name>" in pass 0 and "chan_<c>.<name>_<p>" in pass p.
#define KIV_SRC_BUF_NUM 7
extern const char kiv_src_buf_names[KIV_SRC_BUF_NUM][16];

#endif
