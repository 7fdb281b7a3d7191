/*
 * Entropy coder: the standard Huffman tables of Annex K, sequential
 * baseline coding of one block at a time.
 *
 * Bits collect in a 64-bit buffer, left to right; when a code does not fit
 * any more, the 8 full bytes go out at once. A byte of 0xFF in the stream
 * must be followed by a stuffed 0x00; a bit trick tells whether any of the
 * 8 bytes is 0xFF, and only then are they written one by one.
 *
 * Each block arrives in zig-zag order together with a 64-bit mask of its
 * non-zero AC coefficients (made by the block coder), so the coder jumps
 * from one non-zero coefficient to the next with a count-trailing-zeros
 * instead of testing every position. The categories and value bits of all
 * 64 coefficients are found first, in one vector pass (coef_symbols.cpp);
 * what stays sequential per coefficient is the run length, one table
 * lookup (the code already shifted to leave room for the value bits) and
 * one put. Magnitudes are clamped to what the baseline tables can express
 * (DC differences to 11 bits, AC values to 10 bits).
 */
#include <cstring>

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

void BuildHuffTable(const uint8_t* bits, const uint8_t* vals, HuffTable* out) {
    std::memset(out, 0, sizeof(*out));
    uint32_t code = 0;
    int k = 0;
    for (int len = 1; len <= 16; ++len) {
        for (int i = 0; i < bits[len]; ++i, ++k) {
            const int nb = vals[k] & 15;
            out->code[vals[k]] = code << nb;
            out->size[vals[k]] = uint8_t(len + nb);
            ++code;
        }
        code <<= 1;
    }
}

namespace {

// The bit buffer and the output position, held in registers while a block
// is coded (the output bytes would otherwise alias them).
struct Sink {
    uint64_t buffer;
    int freeBits;
    uint8_t* p;
};

inline void Emit8(Sink& s, uint64_t b) {
    if (b & 0x8080808080808080ull & ~(b + 0x0101010101010101ull)) {
        for (int i = 56; i >= 0; i -= 8) {
            const uint8_t c = uint8_t(b >> i);
            *s.p++ = c;
            if (c == 0xFF) *s.p++ = 0;
        }
    } else {
        const uint64_t be = __builtin_bswap64(b);
        std::memcpy(s.p, &be, 8);
        s.p += 8;
    }
}

inline void PutBits(Sink& s, uint32_t code, int size) {
    s.freeBits -= size;
    if (s.freeBits < 0) [[unlikely]] {
        Emit8(s, (s.buffer << (size + s.freeBits)) | (uint64_t(code) >> -s.freeBits));
        s.freeBits += 64;
        s.buffer = code;
    } else {
        s.buffer = (s.buffer << size) | code;
    }
}

}  // namespace

void EncodeBlock(Encoder* e, const int16_t* zz, uint64_t mask, Component* c) {
    static const int level = BlockCoderLevel();
    CoefSymbols sym;
    CoefSymbolsAt(level, zz, &sym);
    OutBuffer& ob = e->out;
    Sink s{e->bits.buffer, e->bits.freeBits, ob.data.data() + ob.pos};
    const HuffTable& dc = e->dcHuff[c->dcTbl];
    const HuffTable& ac = e->acHuff[c->acTbl];

    int diff = zz[0] - c->lastDc;
    c->lastDc = zz[0];
    if (diff > 2047) diff = 2047;
    if (diff < -2047) diff = -2047;
    {
        const uint32_t a = uint32_t(diff < 0 ? -diff : diff);
        const int nb = a ? 32 - __builtin_clz(a) : 0;
        const uint32_t v = uint32_t(diff < 0 ? diff - 1 : diff) & ((1u << nb) - 1);
        PutBits(s, dc.code[nb] | v, dc.size[nb]);
    }

    int last = 0;
    while (mask) {
        const int k = __builtin_ctzll(mask);
        mask &= mask - 1;
        int run = k - last - 1;
        last = k;
        if (run >= 16) [[unlikely]] {
            do {
                PutBits(s, ac.code[0xF0], ac.size[0xF0]);
                run -= 16;
            } while (run >= 16);
        }
        const int rs = (run << 4) | sym.nbits[k];
        PutBits(s, ac.code[rs] | sym.bits[k], ac.size[rs]);
    }
    if (last != 63) PutBits(s, ac.code[0], ac.size[0]);
    e->bits.buffer = s.buffer;
    e->bits.freeBits = s.freeBits;
    ob.pos = size_t(s.p - ob.data.data());
}

void FlushBits(Encoder* e) {
    BitWriter& bw = e->bits;
    OutBuffer& ob = e->out;
    int n = 64 - bw.freeBits;
    uint64_t b = bw.buffer;
    const int pad = (8 - (n & 7)) & 7;
    if (pad) {
        b = (b << pad) | ((1u << pad) - 1);
        n += pad;
    }
    for (int i = n - 8; i >= 0; i -= 8) {
        const uint8_t c = uint8_t(b >> i);
        ob.Put(c);
        if (c == 0xFF) ob.Put(0);
    }
    bw.buffer = 0;
    bw.freeBits = 64;
}

void EmitRestart(Encoder* e, int n) {
    FlushBits(e);
    e->out.Put(0xFF);
    e->out.Put(uint8_t(0xD0 + (n & 7)));
    for (int i = 0; i < e->numComps; ++i) e->comp[i].lastDc = 0;
}

}  // namespace scrivo::jpeg
