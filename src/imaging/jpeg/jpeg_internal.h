/*
 * Internal state and building blocks of the baseline JPEG encoder.
 *
 * The encoder is split by responsibility:
 *   quant_tables.cpp  Annex K tables, quality -> quantisation tables and the
 *                     per-table reciprocal/divisor tables of the block coders;
 *   headers.cpp       the output byte buffer and the marker segments;
 *   fdct.cpp          the float block coder (DCT + quantisation);
 *   fdct_int.cpp      the integer block coder;
 *   huffman.cpp       derived Huffman tables and the entropy coder;
 *   color_sample.cpp  input pixels -> Y/Cb/Cr component rows, downsampling;
 *   encoder.cpp       the component API, MCU-row assembly and scanlines.
 */
#ifndef SCRIVO_IMAGING_JPEG_INTERNAL_H
#define SCRIVO_IMAGING_JPEG_INTERNAL_H

#include <cstdint>
#include <vector>

#include "scrivo/jpeg.h"

namespace scrivo::jpeg {

// Annex K tables and the zig-zag order (jpg_natural_order[k] is the
// row-major position of the k-th coefficient in zig-zag order).
extern const uint8_t jpg_std_luminance_quant_tbl[64];
extern const uint8_t jpg_std_chrominance_quant_tbl[64];
extern const uint8_t jpg_bits_dc_luminance[17];
extern const uint8_t jpg_val_dc_luminance[12];
extern const uint8_t jpg_bits_dc_chrominance[17];
extern const uint8_t jpg_val_dc_chrominance[12];
extern const uint8_t jpg_bits_ac_luminance[17];
extern const uint8_t jpg_val_ac_luminance[162];
extern const uint8_t jpg_bits_ac_chrominance[17];
extern const uint8_t jpg_val_ac_chrominance[162];
extern const uint8_t jpg_natural_order[64];
// The zig-zag order for blocks stored transposed (column-major), as the
// floating-point block coder leaves them.
extern const uint8_t jpg_transposed_order[64];

// Quality level 0..5 of a quality value.
int QualityLevel(int32_t quality);
// Scale factor S in percent.
int QualityScale(int32_t quality);
// Fills a table (natural order) from an Annex K table and a scale factor.
void ScaleQuantTable(const uint8_t* base, int scale, uint16_t* out);

// Derived Huffman table. For each symbol s: its code followed by room for
// the s & 15 value bits it announces (the magnitude category of a DC
// difference or AC value; 0 for end-of-block and the run of 16 zeros), and
// the length of the two together.
struct HuffTable {
    uint32_t code[256];
    uint8_t size[256];
};
// Builds the derived table from the bits/values lists (Annex C).
void BuildHuffTable(const uint8_t* bits, const uint8_t* vals, HuffTable* out);

// Output buffer in front of the stream: bytes collect here and go to the
// stream in large pieces.
struct OutBuffer {
    std::vector<uint8_t> data;
    size_t pos = 0;
    MHStream stream = nullptr;
    bool failed = false;
    void Put(uint8_t b) { data[pos++] = b; }
    void Put16(uint32_t v) {
        data[pos++] = uint8_t(v >> 8);
        data[pos++] = uint8_t(v);
    }
    // Makes room for n more bytes, flushing to the stream if needed.
    bool Reserve(size_t n) { return data.size() - pos >= n || MakeRoom(n); }
    bool MakeRoom(size_t n);
    bool Flush();
};

// Entropy coder state.
struct BitWriter {
    uint64_t buffer = 0;
    int freeBits = 64;
};

struct Component {
    uint8_t id;
    uint8_t h, v;      // sampling factors
    uint8_t quantTbl;  // 0 luminance, 1 chrominance
    uint8_t dcTbl, acTbl;
    int16_t lastDc;
};

// The block coder of mode 0 takes float reciprocals (already including the
// DCT's scaling), mode 1 integer divisors; its vector kernels divide by
// multiplying with divMul and shifting right by divShift (exact, see
// BuildQuantScale).
struct QuantScale {
    float recip[64];       // transposed layout, see fdct.cpp
    float recipPair[128];  // each row of recip twice, for two blocks at once
    uint16_t divisor[64];  // natural order: 8 x table entry
    uint32_t divMul[64];
    uint32_t divShift[64];
};

struct Encoder {
    MHandle mem = nullptr;
    int32_t quality = JPG_DEFAULT_QUALITY;
    int qualityLevel = 2;
    uint16_t quant[2][64];
    bool quantPending[2] = {true, true};
    QuantScale scale[2];
    int32_t qualityMode = 0;
    int32_t sampling = JPG_SAMPLING_AUTO;
    int32_t restartInterval = 0;
    std::vector<uint8_t> appSegments;
    bool repeatHeader = false;

    int32_t width = 0, height = 0;
    uint32_t inputFormat = 0;  // 0: take the bitmap's own
    int32_t heightFieldPos = -1;

    // Coding state.
    int numComps = 0;
    Component comp[3];
    bool huffPending[2][2] = {{true, true}, {true, true}};  // [class][table]
    HuffTable dcHuff[2], acHuff[2];
    OutBuffer out;
    BitWriter bits;
    bool headerWritten = false;
    bool trailerWritten = false;
    bool failed = false;

    // MCU-row assembly.
    int maxH = 1, maxV = 1;
    int mcusX = 0;
    int rowsPerMcuRow = 8;
    int32_t linesDone = 0;
    int rowInMcuRow = 0;
    int paddedWidth = 0;            // mcusX * 8 * maxH
    std::vector<uint8_t> full[3];   // component rows at full resolution
    std::vector<uint8_t> plane[3];  // component rows at their own resolution
    int planeStride[3] = {0, 0, 0};
    bool chromaDirect = false;  // I420 input: chroma written at own resolution
    uint32_t mcuCount = 0;
    int nextRestart = 0;
    uint32_t activeFormat = 0;  // colour ID the buffers were laid out for
};

// quant_tables.cpp
void BuildQuantScale(const uint16_t* table, QuantScale* out);

// headers.cpp
MRESULT WriteHeaderSegments(Encoder* e);
MRESULT WriteFrameHeader(Encoder* e);
MRESULT WriteScanHeader(Encoder* e);

// fdct.cpp. Both coders read an 8x8 block of samples (row stride in bytes)
// and write its 64 quantised coefficients in zig-zag order; they return the
// mask of the non-zero AC coefficients (bit k for zig-zag position k).
// Mode 0, the float coder, on the best instruction set the machine has
// (BlockCoderLevel: 0 scalar, 1 AVX2, 2 AVX-512BW); all levels give the
// same coefficients.
int BlockCoderLevel();
uint64_t BlockCodeFloat(const uint8_t* src, int stride, const float* recip, int16_t* zz);
uint64_t BlockCodeFloatAt(int level, const uint8_t* src, int stride, const float* recip,
                          int16_t* zz);
uint64_t BlockCodeFloatScalar(const uint8_t* src, int stride, const float* recip, int16_t* zz);
// Codes two blocks with the same row stride and table, at a and b, into
// zz[0] ... zz[127], their masks into masks[0] and masks[1]: the same as
// two BlockCodeFloatAt calls, faster at level 2.
void BlockCodeFloatPairAt(int level, const uint8_t* a, const uint8_t* b, int stride,
                          const QuantScale& qs, int16_t* zz, uint64_t* masks);
// Mode 1, the integer coder (fdct_int.cpp), with levels as above.
uint64_t BlockCodeIntAt(int level, const uint8_t* src, int stride, const QuantScale& qs,
                        int16_t* zz);
uint64_t BlockCodeIntScalar(const uint8_t* src, int stride, const uint16_t* divisor, int16_t* zz);

// coef_symbols.cpp. For each coefficient of a block: its magnitude
// category (bit length of the value clamped to +-1023) and its value bits
// as they are coded. Level as for the block coders (above 0: AVX2); all
// levels give the same output.
struct CoefSymbols {
    alignas(32) uint16_t bits[64];
    alignas(32) uint8_t nbits[64];
};
void CoefSymbolsScalar(const int16_t* zz, CoefSymbols* out);
void CoefSymbolsAt(int level, const int16_t* zz, CoefSymbols* out);

// huffman.cpp
// Codes one block given in zig-zag order with its non-zero AC mask.
void EncodeBlock(Encoder* e, const int16_t* zz, uint64_t mask, Component* c);
void FlushBits(Encoder* e);  // pads with one bits to a byte boundary
void EmitRestart(Encoder* e, int n);

// color_sample.cpp
// Converts `count` input lines starting at `line` of the bitmap into the
// component rows `row` ... of the MCU-row buffers.
bool IsSupportedFormat(uint32_t colorId);
bool IsGreyFormat(uint32_t colorId);
// One row of R, G, B (or B, G, R) pixels of 3 or 4 bytes to Y and, when cb
// is not null, Cb and Cr. Level as for the block coders (1: AVX2, 2: also
// AVX-512BW for 4-byte pixels); all levels give the same bytes.
void RgbToYcc(const uint8_t* s, int w, int bpp, bool bgr, uint8_t* y, uint8_t* cb, uint8_t* cr,
              int level);
bool IsI420Format(uint32_t colorId);
void ConvertRow(Encoder* e, uint32_t colorId, const MBITMAP* bm, int line, int row);
void ReplicateRow(Encoder* e, int fromRow, int toRow);

// downsample.cpp. One output row of a subsampled component: outW averages
// of 2x2 pixels of rows a and b (hs 2, b not null), 2x1 pixels of a (b
// null) or 1x2 pixels (hs 1). Level as for the block coders.
void DownsampleRowScalar(const uint8_t* a, const uint8_t* b, int hs, int outW, uint8_t* o);
void DownsampleRowAt(int level, const uint8_t* a, const uint8_t* b, int hs, int outW, uint8_t* o);
void DownsampleMcuRow(Encoder* e);

}  // namespace scrivo::jpeg

#endif
