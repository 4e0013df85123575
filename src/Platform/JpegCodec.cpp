#include "Platform/JpegCodec.h"

#include <array>
#include <bit>
#include <csetjmp>
#include <cstdio>  // jpeglib.h expects FILE to be declared

#include <jerror.h>
#include <jpeglib.h>

namespace tarvik::jpeg {
namespace {

// Cairo keeps a pixel as one native-endian 32-bit word with alpha in the high byte. When
// decoding, the alpha byte is written as 255 so that no byte of the surface is left undefined.
constexpr bool kLittleEndian = std::endian::native == std::endian::little;
constexpr J_COLOR_SPACE kEncodedPixelLayout = kLittleEndian ? JCS_EXT_BGRX : JCS_EXT_XRGB;
constexpr J_COLOR_SPACE kDecodedPixelLayout = kLittleEndian ? JCS_EXT_BGRA : JCS_EXT_ARGB;

// libjpeg's default fatal-error handler exits the process. Ours jumps back to the function
// that armed `jump`, which gives up. Those functions keep every object with a destructor
// outside the armed region, so the jump skips no destructor.
struct ErrorManager {
    jpeg_error_mgr fields;  // first, so that libjpeg's pointer to it is a pointer to us
    std::jmp_buf jump;
};

[[noreturn]] void jumpBack(j_common_ptr info) {
    std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}

void printNothing(j_common_ptr) {}

void install(ErrorManager& errors, jpeg_error_mgr*& slot) {
    slot = jpeg_std_error(&errors.fields);
    errors.fields.error_exit = jumpBack;
    errors.fields.output_message = printNothing;
}

// A libjpeg destination that appends the compressed bytes to a Data, a chunk at a time.
struct DataDestination {
    jpeg_destination_mgr fields;  // first, as above
    Data* output;
    std::array<JOCTET, 16 * 1024> chunk;
};

DataDestination& destinationOf(j_compress_ptr info) {
    return *reinterpret_cast<DataDestination*>(info->dest);
}

void startChunk(j_compress_ptr info) {
    DataDestination& destination = destinationOf(info);
    destination.fields.next_output_byte = destination.chunk.data();
    destination.fields.free_in_buffer = destination.chunk.size();
}

// An exception must not unwind through libjpeg's C frames: running out of memory becomes
// libjpeg's own error instead.
void appendChunk(j_compress_ptr info, std::size_t count) {
    DataDestination& destination = destinationOf(info);
    bool appended = true;
    try {
        destination.output->insert(destination.output->end(), destination.chunk.begin(),
                                   destination.chunk.begin() + static_cast<long>(count));
    } catch (const std::bad_alloc&) {
        appended = false;
    }
    if (!appended) {
        ERREXIT1(info, JERR_OUT_OF_MEMORY, 0);
    }
}

boolean flushFullChunk(j_compress_ptr info) {
    appendChunk(info, destinationOf(info).chunk.size());
    startChunk(info);
    return TRUE;
}

void flushLastChunk(j_compress_ptr info) {
    DataDestination& destination = destinationOf(info);
    appendChunk(info, destination.chunk.size() - destination.fields.free_in_buffer);
}

bool compress(jpeg_compress_struct& info, ErrorManager& errors, DataDestination& destination,
              cairo_surface_t* surface, int quality) {
    if (setjmp(errors.jump)) {
        return false;
    }
    jpeg_create_compress(&info);
    destination.fields.init_destination = startChunk;
    destination.fields.empty_output_buffer = flushFullChunk;
    destination.fields.term_destination = flushLastChunk;
    info.dest = &destination.fields;

    info.image_width = static_cast<JDIMENSION>(cairo_image_surface_get_width(surface));
    info.image_height = static_cast<JDIMENSION>(cairo_image_surface_get_height(surface));
    info.input_components = 4;
    info.in_color_space = kEncodedPixelLayout;
    jpeg_set_defaults(&info);  // 4:2:0 subsampling, Huffman tables of the standard
    jpeg_set_quality(&info, quality, TRUE);

    unsigned char* pixels = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = pixels + static_cast<std::size_t>(info.next_scanline) * stride;
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    return true;
}

// A decompression and its error manager, released however decoding ends.
struct Decompression {
    ErrorManager errors{};
    jpeg_decompress_struct info{};
    ~Decompression() { jpeg_destroy_decompress(&info); }
};

bool readHeader(Decompression& job, const std::uint8_t* bytes, std::size_t size) {
    if (setjmp(job.errors.jump)) {
        return false;
    }
    jpeg_create_decompress(&job.info);
    jpeg_mem_src(&job.info, bytes, static_cast<unsigned long>(size));
    jpeg_read_header(&job.info, TRUE);
    job.info.out_color_space = kDecodedPixelLayout;
    jpeg_calc_output_dimensions(&job.info);
    return true;
}

bool readPixels(Decompression& job, cairo_surface_t* surface) {
    if (setjmp(job.errors.jump)) {
        return false;
    }
    unsigned char* pixels = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    jpeg_start_decompress(&job.info);
    while (job.info.output_scanline < job.info.output_height) {
        JSAMPROW row = pixels + static_cast<std::size_t>(job.info.output_scanline) * stride;
        jpeg_read_scanlines(&job.info, &row, 1);
    }
    jpeg_finish_decompress(&job.info);
    return true;
}

}  // namespace

std::optional<Data> encode(cairo_surface_t* surface, int quality) {
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS ||
        cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE) {
        return std::nullopt;
    }
    cairo_format_t format = cairo_image_surface_get_format(surface);
    if ((format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) ||
        cairo_image_surface_get_width(surface) <= 0 ||
        cairo_image_surface_get_height(surface) <= 0) {
        return std::nullopt;
    }

    Data output;
    DataDestination destination{};
    destination.output = &output;
    ErrorManager errors{};
    jpeg_compress_struct info{};
    install(errors, info.err);
    bool compressed = compress(info, errors, destination, surface, quality);
    jpeg_destroy_compress(&info);
    if (!compressed) {
        return std::nullopt;
    }
    return output;
}

std::shared_ptr<cairo_surface_t> decode(const std::uint8_t* bytes, std::size_t size) {
    Decompression job;
    install(job.errors, job.info.err);
    if (!readHeader(job, bytes, size)) {
        return nullptr;
    }
    std::shared_ptr<cairo_surface_t> surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(job.info.output_width),
                                   static_cast<int>(job.info.output_height)),
        cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return nullptr;  // larger than Cairo allows
    }
    cairo_surface_flush(surface.get());
    if (!readPixels(job, surface.get())) {
        return nullptr;
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

}  // namespace tarvik::jpeg
