#include "kit/pstring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

// A prefixed string built from test text, in its own 256-byte buffer.
struct P {
    unsigned char s[256] = {};
    explicit P(const std::string& text) {
        s[0] = static_cast<unsigned char>(std::min<size_t>(text.size(), 255));
        std::memcpy(s + 1, text.data(), s[0]);
    }
    operator unsigned char*() { return s; }
};

std::string Str(const unsigned char* p) { return std::string(reinterpret_cast<const char*>(p + 1), p[0]); }

}  // namespace

TEST(PString, QueueHandsOutTwentySlotsInTurn) {
    unsigned char* slots[21];
    for (auto& slot : slots) slot = PStrNext();
    EXPECT_EQ(slots[20], slots[0]);
    std::sort(slots, slots + 20);  // 20 distinct slots, 256 bytes apart
    for (int i = 1; i < 20; ++i) EXPECT_EQ(slots[i] - slots[i - 1], 256);
}

TEST(PString, ConversionsCutAt255AndStayInBounds) {
    char text[300];
    for (int i = 0; i < 299; ++i) text[i] = static_cast<char>('a' + i % 26);
    text[299] = '\0';
    const std::string first255 = std::string(text).substr(0, 255);
    EXPECT_EQ(Str(PS(text)), first255);
    char inPlace[300];
    std::memcpy(inPlace, text, sizeof inPlace);
    EXPECT_EQ(Str(PStrC2P(inPlace)), first255);
    EXPECT_EQ(inPlace[256], text[256]);  // nothing written past the prefixed string

    char round[4] = "abc";
    EXPECT_STREQ(PStrP2C(PStrC2P(round)), "abc");
    char out[6];
    EXPECT_STREQ(PStrPToC(P("hello"), out), "hello");
    P dst("old text");
    EXPECT_EQ(Str(PStrCpy(dst, P("new"))), "new");
    EXPECT_EQ(Str(PStrCpy(nullptr, dst)), "new");
    EXPECT_EQ(CStrIn('l', "hello"), 2);
    EXPECT_EQ(CStrIn('z', "hello"), -1);
}

TEST(PString, IntegersInDecimal) {
    EXPECT_EQ(Str(PStrNum(0)), "0");
    EXPECT_EQ(Str(PStrNum(INT32_MIN)), "-2147483648");
    EXPECT_EQ(Str(PStrULongStr(UINT32_MAX)), "4294967295");
    EXPECT_EQ(Str(PStrNumericalStr(-123)), "-123");
    EXPECT_EQ(Str(PStrNumericalStr(1000)), "1,000");
    EXPECT_EQ(Str(PStrNumericalStr(1234567)), "1,234,567");
    EXPECT_EQ(Str(PStrNumericalStr(-123456)), "-123,456");  // no comma after the sign
    EXPECT_EQ(Str(PStrKStr(UINT32_MAX)), "4,194,303K");
    EXPECT_EQ(Str(PStrKSStr(-2047)), "-1K");  // towards zero, not a shift
    EXPECT_EQ(Str(PStrType(0x41424344u)), "ABCD");
    uint32_t type = MakeType("ab");  // short text: zero bytes after its end
    EXPECT_EQ(std::memcmp(&type, "ab\0\0", 4), 0);
}

TEST(PString, FloatsTrimTrailingZeros) {
    EXPECT_EQ(Str(PStrFloatStr(1.77, 8)), "1.77");
    EXPECT_EQ(Str(PStrFloatStr(100.0, 3)), "100");
    EXPECT_EQ(Str(PStrFloatStr(-0.000000001, 8)), "0");
    EXPECT_EQ(Str(PStrFloatStr(-0.4, 0)), "0");
    EXPECT_EQ(Str(PStrFloatStr(0.5, -2)), "0.50");
    EXPECT_EQ(PStrFloatStr(1e300, 8)[0], 255);
    EXPECT_EQ(Str(PStrFloatStr(0.25, 2000)), "0.25");
}

TEST(PString, DurationsInWords) {
    EXPECT_EQ(Str(PStrTimeStr(93784)), "1D 2H 3M 4S");
    EXPECT_EQ(Str(PStrTimeStr(7384)), "2Hr 3Min 4Sec");
    EXPECT_EQ(Str(PStrTimeStr(3600)), "1Hr 0Min 0Sec");
    EXPECT_EQ(Str(PStrTimeStr(-61)), "-1 Min.  1 Sec.");
    EXPECT_EQ(Str(PStrTimeStr(0)), "0 Seconds");
    EXPECT_EQ(Str(PStrTimeStr(1)), "1 Second");
    EXPECT_EQ(Str(PStrTimeStr(-1)), "-1 Second");
    EXPECT_EQ(Str(PStrTimeStr(INT32_MIN)), "-24855D 3H 14M 8S");
}

TEST(PString, DatesRelativeToNow) {
    const char* oldZone = std::getenv("TZ");
    const std::string savedZone = oldZone ? oldZone : "";
    setenv("TZ", "UTC", 1);
    tzset();

    const uint32_t evening = 889909507, day = 86400;  // 1998-03-14 21:05:07
    EXPECT_EQ(Str(PStrDateStr(evening, evening - 3600)), "9:05:07PM Today");
    EXPECT_EQ(Str(PStrDateStr(evening, evening - day)), "9:05:07PM Tomorrow");
    EXPECT_EQ(Str(PStrDateStr(evening, evening + day)), "9:05:07PM Yesterday");
    EXPECT_EQ(Str(PStrDateStr(evening, evening + 2 * day)), "9:05:07PM 3/14/98");
    EXPECT_EQ(Str(PStrDateStr(0, evening)), "9:05:07PM Today");
    const uint32_t midnight = 1120435200;  // 2005-07-04 00:00:00
    EXPECT_EQ(Str(PStrDateStr(midnight - 1, midnight)), "11:59:59PM Yesterday");  // calendar days
    EXPECT_EQ(Str(PStrDateStr(midnight, 1)), "12:00:00AM 7/4/05");
    EXPECT_EQ(Str(PStrDateStr(midnight + 43199, 0)), "11:59:59AM 7/4/05");
    EXPECT_EQ(Str(PStrDateStr(midnight + 43200, 0)), "12:00:00PM 7/4/05");
    EXPECT_EQ(Str(PStrDateStr(midnight + 46862, 0)), "1:01:02PM 7/4/05");
    const std::string now = Str(PStrDateStr(0, 1));
    EXPECT_EQ(now.substr(now.size() - 6), " Today") << now;

    if (oldZone) setenv("TZ", savedZone.c_str(), 1);
    else unsetenv("TZ");
    tzset();
}

TEST(PString, CompareAndSearch) {
    EXPECT_EQ(PStrCompare(P("abc"), P("ab")), 1);
    EXPECT_EQ(PStrCompare(P("ab"), P("abc")), -1);
    EXPECT_EQ(PStrCompare(P("abcde"), P("ab")), 3);  // the length difference itself
    EXPECT_EQ(PStrCompare(P("\xff"), P("a")), 1);     // bytes compare unsigned
    EXPECT_EQ(PStrIn('c', P("abcc")), 3u);
    EXPECT_EQ(PStrPos(P("bc"), P("ab")), 0u);
    EXPECT_EQ(PStrPos(P("bc"), P("abcbc")), 2u);
    P shortened("abcd");
    shortened.s[0] = 3;  // a stale "d" lies just past the end
    EXPECT_EQ(PStrPos(P("cd"), shortened), 0u);
}

TEST(PString, SubstringsAndDeletionCutAtTheEnd) {
    P text("abcdef");
    EXPECT_EQ(Str(PStrSub(text, 2, 3)), "bcd");
    EXPECT_EQ(Str(PStrSub(text, 5, UINT32_MAX)), "ef");
    EXPECT_EQ(Str(PStrSub(text, 7, 1)), "");
    EXPECT_EQ(Str(PStrOmit(text, 2, 2)), "adef");
    PStrDelete(text, 7, 1);
    PStrDelete(text, 5, UINT32_MAX);
    EXPECT_EQ(Str(text), "abcd");
}

TEST(PString, InsertKeepsTheInsertionWhole) {
    const std::string old(250, 'o');
    P atStart(old), atEnd(old);
    PStrInsert(P("0123456789"), atStart, 1);
    EXPECT_EQ(Str(atStart), "0123456789" + old.substr(0, 245));
    PStrInsert(P("0123456789"), atEnd, 300);
    EXPECT_EQ(Str(atEnd), old.substr(0, 245) + "0123456789");

    P word("ace");
    PStrInsert(P("<"), word, 0);
    EXPECT_EQ(Str(word), "<ace");
    PStrInsert(word, word, 3);
    EXPECT_EQ(Str(word), "<a<acece");
    EXPECT_EQ(Str(PStrInclude(P("b"), word, 2)), "<ba<acece");
}

TEST(PString, AppendAndConcatenate) {
    P dst(std::string(250, 'a'));
    PStrAppend(dst, P("bcdefgh"));
    PStrAppendChar(dst, 'z');
    EXPECT_EQ(Str(dst), std::string(250, 'a') + "bcdef");
    P twice("ab");
    EXPECT_EQ(Str(PStrAppend(twice, twice)), "abab");
    EXPECT_EQ(Str(PStrAppend(nullptr, twice)), "abab");
    EXPECT_EQ(Str(PStrConcat(twice.s, nullptr)), "abab");
    EXPECT_EQ(Str(PStrConcat(P("a").s, P("bc").s, P("").s, P("d").s, nullptr)), "abcd");
}

TEST(PString, CaseAndBlanks) {
    P text(" a-Z{`z \xe9");
    EXPECT_EQ(Str(PStrUpCase(text)), " A-Z{`Z \xe9");
    EXPECT_EQ(Str(text), " a-Z{`z \xe9");  // the copy changed, not the original
    PStrStrip(text);
    EXPECT_EQ(Str(text), "a-Z{`z\xe9");
}
