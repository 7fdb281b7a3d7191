/*
 * Output buffer and marker segments.
 *
 * All bytes -- segments and entropy-coded data -- go through one local
 * buffer that is handed to the stream in large pieces; the stream sees a
 * write only when the buffer is nearly full, at the end of the image and
 * before the size is patched.
 *
 * Header order: SOI; the caller's application segments or the JFIF APP0
 * (version 1.01, density units 0, density 1 x 1, no thumbnail); one DQT per
 * table still to be written (a table shared by two components goes out
 * once); SOF0 when all Huffman table numbers are 0 or 1 (otherwise it
 * follows the DHT segments, so that a reader has every table before the
 * frame); one DHT per table still to be written, DC then AC for each
 * component; DRI when restarts are on; SOS. The position of the frame
 * header's height field is remembered for JpgEncReWriteImageSize.
 */
#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

bool OutBuffer::Flush() {
    if (failed) return false;
    if (pos == 0) return true;
    if (!stream || MStreamWrite(stream, data.data(), int32_t(pos)) != int32_t(pos)) {
        failed = true;
        return false;
    }
    pos = 0;
    return true;
}

bool OutBuffer::MakeRoom(size_t n) {
    if (!Flush()) return false;
    if (data.size() < n) data.resize(n);
    return true;
}

namespace {

void WriteDqt(Encoder* e, int t) {
    OutBuffer& o = e->out;
    o.Put16(0xFFDB);
    o.Put16(67);
    o.Put(uint8_t(t));
    for (int k = 0; k < 64; ++k) o.Put(uint8_t(e->quant[t][jpg_natural_order[k]]));
    e->quantPending[t] = false;
}

void WriteDht(Encoder* e, int cls, int t) {
    const uint8_t* bits = cls == 0 ? (t == 0 ? jpg_bits_dc_luminance : jpg_bits_dc_chrominance)
                                   : (t == 0 ? jpg_bits_ac_luminance : jpg_bits_ac_chrominance);
    const uint8_t* vals = cls == 0 ? (t == 0 ? jpg_val_dc_luminance : jpg_val_dc_chrominance)
                                   : (t == 0 ? jpg_val_ac_luminance : jpg_val_ac_chrominance);
    int n = 0;
    for (int i = 1; i <= 16; ++i) n += bits[i];
    OutBuffer& o = e->out;
    o.Put16(0xFFC4);
    o.Put16(uint32_t(2 + 1 + 16 + n));
    o.Put(uint8_t(cls == 0 ? t : t + 16));
    for (int i = 1; i <= 16; ++i) o.Put(bits[i]);
    for (int i = 0; i < n; ++i) o.Put(vals[i]);
    e->huffPending[cls][t] = false;
}

}  // namespace

MRESULT WriteFrameHeader(Encoder* e) {
    OutBuffer& o = e->out;
    if (!o.Reserve(64)) return MD_CERR_STREAM;
    const int32_t tell = o.stream ? MStreamTell(o.stream) : -1;
    e->heightFieldPos = tell < 0 ? -1 : tell + int32_t(o.pos) + 5;
    o.Put16(0xFFC0);
    o.Put16(uint32_t(8 + 3 * e->numComps));
    o.Put(8);
    o.Put16(uint32_t(e->height));
    o.Put16(uint32_t(e->width));
    o.Put(uint8_t(e->numComps));
    for (int i = 0; i < e->numComps; ++i) {
        o.Put(e->comp[i].id);
        o.Put(uint8_t((e->comp[i].h << 4) | e->comp[i].v));
        o.Put(e->comp[i].quantTbl);
    }
    return 0;
}

MRESULT WriteScanHeader(Encoder* e) {
    OutBuffer& o = e->out;
    if (!o.Reserve(64)) return MD_CERR_STREAM;
    o.Put16(0xFFDA);
    o.Put16(uint32_t(6 + 2 * e->numComps));
    o.Put(uint8_t(e->numComps));
    for (int i = 0; i < e->numComps; ++i) {
        o.Put(e->comp[i].id);
        o.Put(uint8_t((e->comp[i].dcTbl << 4) | e->comp[i].acTbl));
    }
    o.Put(0);
    o.Put(63);
    o.Put(0);
    return 0;
}

MRESULT WriteHeaderSegments(Encoder* e) {
    OutBuffer& o = e->out;
    if (!o.Reserve(2048 + e->appSegments.size())) return MD_CERR_STREAM;
    o.Put16(0xFFD8);
    if (e->appSegments.empty()) {
        static const uint8_t kJfif[18] = {0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0,
                                          1,    1,    0, 0,  1,   0,   1,   0,   0};
        for (uint8_t b : kJfif) o.Put(b);
    } else {
        for (uint8_t b : e->appSegments) o.Put(b);
    }
    for (int i = 0; i < e->numComps; ++i) {
        const int t = e->comp[i].quantTbl;
        if (e->quantPending[t]) WriteDqt(e, t);
    }
    bool smallTables = true;
    for (int i = 0; i < e->numComps; ++i)
        if (e->comp[i].dcTbl > 1 || e->comp[i].acTbl > 1) smallTables = false;
    if (smallTables && WriteFrameHeader(e) != 0) return MD_CERR_STREAM;
    for (int i = 0; i < e->numComps; ++i) {
        const Component& c = e->comp[i];
        if (c.dcTbl <= 1 && e->huffPending[0][c.dcTbl]) WriteDht(e, 0, c.dcTbl);
        if (c.acTbl <= 1 && e->huffPending[1][c.acTbl]) WriteDht(e, 1, c.acTbl);
    }
    if (!smallTables && WriteFrameHeader(e) != 0) return MD_CERR_STREAM;
    if (e->restartInterval != 0) {
        o.Put16(0xFFDD);
        o.Put16(4);
        o.Put16(uint32_t(e->restartInterval));
    }
    return WriteScanHeader(e);
}

}  // namespace scrivo::jpeg

using namespace scrivo::jpeg;

extern "C" MRESULT JpgEncReWriteImageSize(void* encoder, int32_t width, int32_t height) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (width < 1 || width > 65535 || height < 1 || height > 65535) return MD_CERR_INVALID_PARAM;
    if (e->heightFieldPos < 0 || !e->out.stream) return MD_CERR_STREAM;
    if (!e->out.Flush()) return MD_CERR_STREAM;
    MHStream s = e->out.stream;
    const int32_t cur = MStreamTell(s);
    if (cur < 0 || MStreamSeek(s, MSTREAM_SEEK_BEGIN, e->heightFieldPos) != 0)
        return MD_CERR_STREAM;
    const uint8_t bytes[4] = {uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8),
                              uint8_t(width)};
    bool written = true;
    for (uint8_t b : bytes)
        if (written && MStreamWrite(s, &b, 1) != 1) written = false;
    // Back to the end even after a failed write, so the stream stays usable.
    if (MStreamSeek(s, MSTREAM_SEEK_BEGIN, cur) != 0 || !written) return MD_CERR_STREAM;
    return 0;
}
