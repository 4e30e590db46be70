// Raw I420 frames to baseline JPEG files, and the size of a BMP image.
#pragma once

#include <zolo/export.h>

#include <string>

// Converts the one I420 frame in `yuv_path` (w x h luma, then Cb and Cr of
// ((w+1)/2) x ((h+1)/2)) to a JPEG file at `jpg_path` with `quality` 0..100, feeding the
// planes to the encoder as raw 4:2:0 data. 0, or -1 with a log line (bad quality, missing
// or wrong-size input, unwritable output, encoder error).
ZM_EXPORT int yuv2jpeg(const char* yuv_path, const char* jpg_path, unsigned w, unsigned h,
                       unsigned quality);

// Copies the planes of a w x h frame (chroma cw x ch) into `dst`, padded to W x H (whole
// 16-pixel macroblocks) by repeating the last column and row of each plane. `dst` holds
// W*H luma bytes followed by the two (W/2)x(H/2) chroma planes.
ZM_EXPORT void extend_edge(unsigned char* dst, int W, int H, unsigned char* src, int w, int h,
                           int cw, int ch);

// Width and height from a BMP file's header (a top-down image's negative height comes back
// as its unsigned bit pattern). 0, or -1 when the file cannot be opened.
ZM_EXPORT int GetBmpWidthHeight(const std::string& path, unsigned* width, unsigned* height);
