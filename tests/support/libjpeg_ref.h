// libjpeg-turbo as an independent reference for tests and benchmarks: one
// compressor and one decompressor that the imaging tests and the codec
// benchmarks share, so that what "libjpeg's own encoder" means is written
// down once. Fatal errors never abort the process: they are reported.
#ifndef SCRIVO_TESTS_SUPPORT_LIBJPEG_REF_H
#define SCRIVO_TESTS_SUPPORT_LIBJPEG_REF_H

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

namespace libjpeg_ref {

struct CompressOptions {
    int components = 3;                      // 1 grey, 3 RGB, 4 RGBA input
    bool grey = false;                       // write one grey component
    int quality = 90;                        // used when tables is null
    const uint16_t (*tables)[64] = nullptr;  // luminance, chrominance (natural order)
    int hSamp = 2, vSamp = 2;                // luma sampling factors: 2,2 = 4:2:0, 1,1 = 4:4:4
    bool progressive = false;
    int restartRows = 0;
    J_DCT_METHOD dct = JDCT_ISLOW;
};

namespace detail {
struct Error {
    jpeg_error_mgr pub;
    jmp_buf jump;
    int warnings = 0;
};
inline void OnError(j_common_ptr c) {
    longjmp(reinterpret_cast<Error*>(c->err)->jump, 1);
}
inline void OnMessage(j_common_ptr c, int level) {
    if (level < 0) ++reinterpret_cast<Error*>(c->err)->warnings;
}
inline void Attach(jpeg_common_struct* c, Error& e) {
    c->err = jpeg_std_error(&e.pub);
    e.pub.error_exit = OnError;
    e.pub.emit_message = OnMessage;
}
}  // namespace detail

// Compresses w x h pixels whose rows are pitch bytes apart; empty on error.
inline std::vector<uint8_t> Compress(const uint8_t* px, int w, int h, size_t pitch,
                                     const CompressOptions& o = {}) {
    jpeg_compress_struct c;
    detail::Error err;
    detail::Attach(reinterpret_cast<jpeg_common_struct*>(&c), err);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_create_compress(&c);
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&c);
        std::free(out);
        return {};
    }
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = JDIMENSION(w);
    c.image_height = JDIMENSION(h);
    c.input_components = o.components;
    c.in_color_space = o.components == 1   ? JCS_GRAYSCALE
                       : o.components == 4 ? JCS_EXT_RGBA
                                           : JCS_RGB;
    jpeg_set_defaults(&c);
    if (o.grey && o.components != 1) jpeg_set_colorspace(&c, JCS_GRAYSCALE);
    if (o.tables) {
        for (int t = 0; t < 2; ++t) {
            unsigned int basic[64];
            for (int i = 0; i < 64; ++i) basic[i] = o.tables[t][i];
            jpeg_add_quant_table(&c, t, basic, 100, TRUE);
        }
    } else {
        jpeg_set_quality(&c, o.quality, TRUE);
    }
    if (c.num_components == 3) {
        c.comp_info[0].h_samp_factor = o.hSamp;
        c.comp_info[0].v_samp_factor = o.vSamp;
    }
    if (o.progressive) jpeg_simple_progression(&c);
    c.restart_in_rows = o.restartRows;
    c.dct_method = o.dct;
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(px) + size_t(c.next_scanline) * pitch;
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<uint8_t> bytes(out, out + size);
    std::free(out);
    return bytes;
}

struct Decoded {
    bool ok = false;  // false on a fatal error
    int width = 0, height = 0, components = 0;
    int warnings = 0;
    std::vector<uint8_t> pixels;  // packed rows
};

// Decompresses; out = JCS_UNKNOWN keeps libjpeg's default output space.
inline Decoded Decompress(const uint8_t* bytes, size_t n, J_COLOR_SPACE out = JCS_UNKNOWN) {
    Decoded d;
    jpeg_decompress_struct c;
    detail::Error err;
    detail::Attach(reinterpret_cast<jpeg_common_struct*>(&c), err);
    jpeg_create_decompress(&c);
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&c);
        d.ok = false;
        d.warnings = err.warnings;
        return d;
    }
    jpeg_mem_src(&c, bytes, static_cast<unsigned long>(n));
    jpeg_read_header(&c, TRUE);
    if (out != JCS_UNKNOWN) c.out_color_space = out;
    jpeg_start_decompress(&c);
    d.width = int(c.output_width);
    d.height = int(c.output_height);
    d.components = c.output_components;
    d.pixels.resize(size_t(d.width) * d.height * d.components);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = d.pixels.data() + size_t(c.output_scanline) * d.width * d.components;
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    d.ok = true;
    d.warnings = err.warnings;
    return d;
}

inline Decoded Decompress(const std::vector<uint8_t>& bytes, J_COLOR_SPACE out = JCS_UNKNOWN) {
    return Decompress(bytes.data(), bytes.size(), out);
}

}  // namespace libjpeg_ref

#endif
