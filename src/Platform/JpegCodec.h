#pragma once

#include <tarvik/Value.h>

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace tarvik::jpeg {

// JPEG through libjpeg(-turbo). libjpeg's errors never end the process: a failed encode or
// decode gives none, and its warnings (such as a truncated file) are not printed.

// The pixels of an ARGB32 or RGB24 image surface as a baseline JPEG at `quality` (1 to 100,
// libjpeg's scale) with 4:2:0 chroma subsampling. The alpha byte is ignored: premultiplied
// colour without its alpha is the colour laid over black. None for a surface without pixels.
// The surface is only read, never flushed (it may be shared between threads): a caller that
// drew into it flushes it first.
std::optional<Data> encode(cairo_surface_t* surface, int quality);

// The image in `bytes` as a new RGB24 image surface, or null when it is not a JPEG libjpeg
// can decode (CMYK JPEGs included).
std::shared_ptr<cairo_surface_t> decode(const std::uint8_t* bytes, std::size_t size);

}  // namespace tarvik::jpeg
