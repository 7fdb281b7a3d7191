// Narrow and wide string helpers: null handling, ASCII-only case changes,
// clamped number parsing and the 16-bit family.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "scrivo/platform.h"

namespace {

std::vector<MWChar> W(const char16_t* s) {
    return std::vector<MWChar>(s, s + std::char_traits<char16_t>::length(s) + 1);
}

TEST(Strings, NullsNumbersAndAsciiOnlyCase) {
    char buf[32];
    EXPECT_LT(MSCsNICmp("abcX", "ABCY", 4), 0);
    EXPECT_EQ(MSCsNICmp("abcX", "ABCY", 3), 0);
    EXPECT_STREQ(MSCsCat(MSCsCpy(buf, "k"), nullptr), "k");
    EXPECT_EQ(MSCsCmp(nullptr, nullptr), 0);
    EXPECT_LT(MSCsCmp(nullptr, ""), 0);
    EXPECT_GT(MSCsICmp("", nullptr), 0);
    for (const void* p :
         {(const void*)MSCsCpy(nullptr, "x"), (const void*)MSCsStr(nullptr, "a"),
          (const void*)MWCsCat(nullptr, W(u"a").data()), (const void*)MWCsMakeUpper(nullptr)})
        EXPECT_EQ(p, nullptr);
    EXPECT_EQ(MSCsLen(nullptr) + MWCsLen(nullptr) + static_cast<size_t>(MStol(nullptr)), 0u);
    EXPECT_EQ(MSSprintf(nullptr, "%d", 1), -1);
    EXPECT_EQ(MStoi("  -17xyz"), -17);
    EXPECT_EQ(MStoi("99999999999999"), INT_MAX);
    EXPECT_EQ(MStoi("-99999999999999"), INT_MIN);
    char s[] = "Page \xC3\x89t\xC3\xA9 7z";  // UTF-8 bytes must not change
    EXPECT_STREQ(MSCsMakeUpper(s), "PAGE \xC3\x89T\xC3\xA9 7Z");
    EXPECT_STREQ(MSCsMakeLower(s), "page \xC3\x89t\xC3\xA9 7z");

    MWChar w[32];
    EXPECT_EQ(MWCsLen(MWCsCat(MWCsCpy(w, W(u"Doc\u00C9").data()), W(u"_Page").data())), 9u);
    EXPECT_EQ(MWCsStr(w, W(u"Pag").data()), w + 5);
    EXPECT_EQ(MWCsStr(w, W(u"").data()), w);
    MWCsMakeUpper(w);
    EXPECT_EQ(std::vector<MWChar>(w, w + 10), W(u"DOC\u00C9_PAGE"));
    MWCsMakeLower(w);
    EXPECT_EQ(std::vector<MWChar>(w, w + 10), W(u"doc\u00C9_page"));  // only ASCII changes
    EXPECT_EQ(MWCsLen(MWCsCpy(w, nullptr)), 0u);
}

}  // namespace
