// UTF-8 <-> UTF-16: round trips over every scalar value, whole-character
// truncation, measuring with a null destination and the U+FFFD policy.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "scrivo/platform.h"

namespace {

using U16 = std::vector<MWChar>;

// Both directions measure first (null destination), then convert; the
// returned counts include the terminator.
U16 ToUtf16(const std::string& s) {
    U16 out(static_cast<size_t>(MUTF8ToUnicode(s.c_str(), nullptr, 0)));
    EXPECT_EQ(MUTF8ToUnicode(s.c_str(), out.data(), static_cast<int32_t>(out.size())),
              static_cast<int32_t>(out.size()));
    out.pop_back();
    return out;
}

std::string ToUtf8(U16 s) {
    s.push_back(0);
    std::string out(static_cast<size_t>(MUnicodeToUTF8(s.data(), nullptr, 0)), '\0');
    EXPECT_EQ(MUnicodeToUTF8(s.data(), out.data(), static_cast<int32_t>(out.size())),
              static_cast<int32_t>(out.size()));
    out.pop_back();
    return out;
}

const std::string kMixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
const U16 kMixed16 = {0x61, 0xE9, 0x20AC, 0xD83D, 0xDE00, 0x7A, 0};

TEST(Utf, ConvertsEveryScalarValueAndNeverCutsACharacter) {
    U16 all;
    for (char32_t cp = 1; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        if (cp < 0x10000) {
            all.push_back(static_cast<MWChar>(cp));
        } else {
            all.push_back(static_cast<MWChar>(0xD800 + ((cp - 0x10000) >> 10)));
            all.push_back(static_cast<MWChar>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        }
    }
    const std::string utf8 = ToUtf8(all);
    EXPECT_EQ(utf8.size(), 127u + 1920u * 2 + 61440u * 3 + 1048576u * 4);
    EXPECT_EQ(ToUtf16(utf8), all);
    EXPECT_EQ(ToUtf16(kMixed), U16(kMixed16.begin(), kMixed16.end() - 1));

    MWChar w[8];
    // Room for 4 units: a, é, € fit; the surrogate pair of 😀 would be cut.
    EXPECT_EQ(MUTF8ToUnicode(kMixed.c_str(), w, 5), 4);
    EXPECT_EQ(U16(w, w + 4), (U16{0x61, 0xE9, 0x20AC, 0}));
    EXPECT_EQ(MUTF8ToUnicode(kMixed.c_str(), w, 6), 6);  // pair fits exactly
    char b[16];
    const int32_t whole[] = {1, 2, 2, 4, 4, 4, 7, 7, 7, 7, 11, 12};  // character ends
    for (int32_t cap = 1; cap <= 12; ++cap) {
        EXPECT_EQ(MUnicodeToUTF8(kMixed16.data(), b, cap), whole[cap - 1]) << cap;
        EXPECT_EQ(std::string(b), kMixed.substr(0, static_cast<size_t>(whole[cap - 1] - 1)));
    }
    b[0] = 'x';
    EXPECT_EQ(MUnicodeToUTF8(kMixed16.data(), b, 0), 1);
    EXPECT_EQ(b[0], 'x');
    EXPECT_EQ(MUTF8ToUnicode(nullptr, w, 8), 1);
    EXPECT_EQ(w[0], 0);
}

TEST(Utf, MalformedInputBecomesReplacementCharacters) {
    const MWChar R = 0xFFFD;
    const std::pair<std::string, U16> cases[] = {
        {"\xC0\xAF", {R, R}},                                        // overlong '/'
        {"\xE0\x80\xAF", {R, R, R}},                                 // overlong, three bytes
        {"\xF0\x8F\xBF\xBF", {R, R, R, R}},                          // overlong U+FFFF
        {"\xED\xA0\x80", {R, R, R}},                                 // encoded surrogate
        {"\xF4\x90\x80\x80", {R, R, R, R}},                          // above U+10FFFF
        {"\xF5\x80", {R, R}},                                        // never a lead byte
        {"\x80\x41", {R, 'A'}},                                      // stray continuation byte
        {"\xE2\x82\x41", {R, 'A'}},                                  // truncated, the A survives
        {"\xF0\x9F\x98", {R}},                                       // truncated by the terminator
        {"\xED\x9F\xBF\xF4\x8F\xBF\xBF", {0xD7FF, 0xDBFF, 0xDFFF}},  // the limits
    };
    for (const auto& [in, want] : cases) EXPECT_EQ(ToUtf16(in), want) << testing::PrintToString(in);
    EXPECT_EQ(ToUtf8({0xD800, 'A', 0xDC00}), "\xEF\xBF\xBD\x41\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8({0xDBFF}), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8({0xD800, 0xD800, 0xDC00}), "\xEF\xBF\xBD\xF0\x90\x80\x80");

    // Whatever the bytes, decoding gives text that survives a round trip.
    std::mt19937 rng(7);
    for (int i = 0; i < 2000; ++i) {
        std::string junk(rng() % 12, '\0');
        for (auto& c : junk) c = static_cast<char>(1 + rng() % 255);
        const U16 once = ToUtf16(junk);
        EXPECT_EQ(ToUtf16(ToUtf8(once)), once);
    }
}

}  // namespace
