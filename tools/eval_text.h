// The character error rate of recognised text against the printed lines.
//
// Both texts are normalised the same way before they are compared: every run
// of white space (spaces, tabs, line breaks) becomes one space and the ends
// are trimmed, so the truth's lines joined by a space and the recogniser's
// own line breaks and blank lines meet on equal terms; the typographic forms
// a recogniser may choose for plain characters (curly quotes, en and em
// dashes, the fi and fl ligatures) become those characters; and separator
// rules typed as characters (a word of three or more of - _ = ~ * .) are
// dropped, since a recogniser rightly takes them for lines and reads nothing
// or a few dashes: on a till receipt they would otherwise outweigh the
// items. Case and other punctuation are kept: they are part of what was
// printed.
//
// The rate is the Levenshtein distance (insertions, deletions and
// substitutions of code points, each costing 1) divided by the length of the
// normalised truth. It exceeds 1 when the recogniser invents more text than
// the page holds. Malformed UTF-8 bytes count as one code point each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace scrivo_eval {

// Code points of UTF-8 text; a byte that does not start a well-formed
// sequence stands for itself.
inline std::u32string DecodeUtf8(std::string_view s) {
    std::u32string out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        const auto b = static_cast<unsigned char>(s[i]);
        const int len = b < 0x80           ? 1
                        : (b >> 5) == 0x6  ? 2
                        : (b >> 4) == 0xE  ? 3
                        : (b >> 3) == 0x1E ? 4
                                           : 0;
        char32_t cp = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
        bool ok = len > 0 && i + len <= s.size();
        for (int k = 1; ok && k < len; ++k) {
            const auto c = static_cast<unsigned char>(s[i + k]);
            ok = (c & 0xC0) == 0x80;
            cp = (cp << 6) | (c & 0x3F);
        }
        if (!ok) {
            out.push_back(b);
            ++i;
        } else {
            out.push_back(cp);
            i += len;
        }
    }
    return out;
}

inline char32_t PlainForm(char32_t c) {
    switch (c) {
        case 0x2018:
        case 0x2019:
            return U'\'';
        case 0x201C:
        case 0x201D:
            return U'"';
        case 0x2010:
        case 0x2013:
        case 0x2014:
            return U'-';
        default:
            return c;
    }
}

// A word of three or more rule characters: a separator drawn with the
// keyboard, as receipts print them.
inline bool IsRule(const std::u32string& word) {
    return word.size() >= 3 && std::all_of(word.begin(), word.end(), [](char32_t c) {
               return c == U'-' || c == U'_' || c == U'=' || c == U'~' || c == U'*' || c == U'.';
           });
}

inline std::u32string NormaliseText(std::string_view text) {
    std::u32string out, word;
    auto endWord = [&] {
        if (!word.empty() && !IsRule(word)) out += (out.empty() ? U"" : U" ") + word;
        word.clear();
    };
    for (char32_t c : DecodeUtf8(text)) {
        if (c == U' ' || c == U'\t' || c == U'\n' || c == U'\r' || c == U'\f' || c == U'\v' ||
            c == 0xA0) {
            endWord();
        } else if (c == 0xFB01) {
            word += U"fi";
        } else if (c == 0xFB02) {
            word += U"fl";
        } else {
            word.push_back(PlainForm(c));
        }
    }
    endWord();
    return out;
}

inline std::u32string NormaliseLines(const std::vector<std::string>& lines) {
    std::string joined;
    for (const std::string& l : lines) joined += l + "\n";
    return NormaliseText(joined);
}

// Two rows of the dynamic programme, so memory grows with the shorter text.
inline size_t EditDistance(const std::u32string& a, const std::u32string& b) {
    const std::u32string& s = a.size() < b.size() ? a : b;  // along the row
    const std::u32string& t = a.size() < b.size() ? b : a;
    std::vector<size_t> prev(s.size() + 1), cur(s.size() + 1);
    for (size_t j = 0; j <= s.size(); ++j) prev[j] = j;
    for (size_t i = 1; i <= t.size(); ++i) {
        cur[0] = i;
        for (size_t j = 1; j <= s.size(); ++j) {
            const size_t sub = prev[j - 1] + (t[i - 1] == s[j - 1] ? 0 : 1);
            cur[j] = std::min({sub, prev[j] + 1, cur[j - 1] + 1});
        }
        std::swap(prev, cur);
    }
    return prev[s.size()];
}

// Empty when the truth holds no text to measure against.
inline std::optional<double> CharacterErrorRate(const std::vector<std::string>& truthLines,
                                                std::string_view recognised) {
    const std::u32string truth = NormaliseLines(truthLines);
    if (truth.empty()) return std::nullopt;
    return static_cast<double>(EditDistance(truth, NormaliseText(recognised))) /
           static_cast<double>(truth.size());
}

}  // namespace scrivo_eval
