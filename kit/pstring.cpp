#include "pstring.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace {

constexpr uint32_t kMaxLength = 255;

// Length of a C string, but never looks further than the 255 bytes a prefixed string can hold.
uint32_t BoundedLength(const char* s) {
    uint32_t n = 0;
    while (n < kMaxLength && s[n] != '\0') ++n;
    return n;
}

// Appends a C string, cut where the result would pass 255 characters.
void AppendText(unsigned char* s, const char* text) {
    for (; *text != '\0' && s[0] < kMaxLength; ++text) s[++s[0]] = static_cast<unsigned char>(*text);
}

// Appends the digits of a magnitude, most significant first, optionally with commas every three.
void AppendDecimal(unsigned char* s, uint32_t magnitude, bool grouped) {
    char digits[10];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    while (count > 0) {
        PStrAppendChar(s, static_cast<unsigned char>(digits[--count]));
        if (grouped && count > 0 && count % 3 == 0) PStrAppendChar(s, ',');
    }
}

// The magnitude goes through uint32_t so that INT32_MIN has one.
unsigned char* SignedDecimal(int32_t num, bool grouped) {
    unsigned char* s = PStrNext();
    s[0] = 0;
    if (num < 0) PStrAppendChar(s, '-');
    AppendDecimal(s, num < 0 ? 0u - static_cast<uint32_t>(num) : static_cast<uint32_t>(num), grouped);
    return s;
}

// Position 0 means the start; anything past the end means just after the last character.
uint32_t ClampPosition(uint32_t index, uint32_t length) {
    if (index == 0) return 1;
    return std::min(index, length + 1);
}

// The calendar day of a moment in local time.
bool SameDay(const tm& day, time_t moment) {
    tm other{};
    if (localtime_r(&moment, &other) == nullptr) return false;
    return other.tm_year == day.tm_year && other.tm_mon == day.tm_mon && other.tm_mday == day.tm_mday;
}

}  // namespace

// ---- Queue ----

static unsigned char pStrQueue[20][256];
static int32_t pStrQueueIndex;

unsigned char* PStrNext() {
    if (pStrQueueIndex >= 20) pStrQueueIndex = 0;
    return pStrQueue[pStrQueueIndex++];
}

// ---- Conversions and copies ----

uint32_t CStrLength(const char* theString) { return static_cast<uint32_t>(std::strlen(theString)); }

unsigned char* PStrC2P(char* cStr) {
    uint32_t n = BoundedLength(cStr);
    std::memmove(cStr + 1, cStr, n);
    auto* p = reinterpret_cast<unsigned char*>(cStr);
    p[0] = static_cast<unsigned char>(n);
    return p;
}

char* PStrP2C(unsigned char* pStr) { return PStrPToC(pStr, reinterpret_cast<char*>(pStr)); }

unsigned char* PStrCToP(const char* cStr, unsigned char* pStr) {
    if (pStr == nullptr) pStr = PStrNext();
    CopyStr(pStr, cStr);
    return pStr;
}

char* PStrPToC(unsigned char* pStr, char* cStr) {
    if (cStr == nullptr) cStr = reinterpret_cast<char*>(PStrNext());
    uint32_t n = pStr[0];
    std::memmove(cStr, pStr + 1, n);  // the two may share a buffer
    cStr[n] = '\0';
    return cStr;
}

unsigned char* PS(const char* cStr) { return PStrCToP(cStr, nullptr); }

unsigned char* PStrCpy(unsigned char* dst, unsigned char* src) {
    if (dst == nullptr) dst = PStrNext();
    CopyPStr(dst, src);
    return dst;
}

void CopyStr(unsigned char* dst, const char* src) {
    uint32_t n = BoundedLength(src);
    std::memmove(dst + 1, src, n);
    dst[0] = static_cast<unsigned char>(n);
}

void CopyPStr(unsigned char* dst, const unsigned char* src) { std::memmove(dst, src, src[0] + 1u); }

char* CS(unsigned char* pStr) { return PStrPToC(pStr, nullptr); }

int32_t CStrIn(unsigned char ch, const char* theString) {
    for (int32_t i = 0; theString[i] != '\0'; ++i)
        if (static_cast<unsigned char>(theString[i]) == ch) return i;
    return -1;
}

void CStrCpy(char* dst, const char* src) { std::memmove(dst, src, std::strlen(src) + 1); }

// ---- Numbers, durations and dates ----

unsigned char* PStrType(uint32_t theType) {
    unsigned char* s = PStrNext();
    s[0] = 4;
    for (int i = 0; i < 4; ++i) s[1 + i] = static_cast<unsigned char>(theType >> (24 - 8 * i));
    return s;
}

unsigned char* PStrNum(int32_t theNum) { return SignedDecimal(theNum, false); }

unsigned char* PStrLongStr(int32_t num) { return SignedDecimal(num, false); }

unsigned char* PStrULongStr(uint32_t num) {
    unsigned char* s = PStrNext();
    s[0] = 0;
    AppendDecimal(s, num, false);
    return s;
}

unsigned char* PStrNumericalStr(int32_t theNum) { return SignedDecimal(theNum, true); }

unsigned char* PStrKStr(uint32_t theNum) {
    // Shifted by ten bits the value fits a signed 32-bit number.
    unsigned char* s = PStrNumericalStr(static_cast<int32_t>(theNum >> 10));
    PStrAppendChar(s, 'K');
    return s;
}

unsigned char* PStrKSStr(int32_t theNum) {
    unsigned char* s = PStrNumericalStr(theNum / 1024);
    PStrAppendChar(s, 'K');
    return s;
}

unsigned char* PStrFloatStr(double theNum, int32_t theDigits) {
    // Every double prints exactly within 1100 decimals, so capping the precision there changes
    // nothing, and keeps a huge count away from the formatter.
    constexpr int64_t kExactDigits = 1100;
    char text[256] = "";
    if (theDigits < 0)
        std::snprintf(text, sizeof text, "%#1.*lf", static_cast<int>(std::min(-int64_t{theDigits}, kExactDigits)), theNum);
    else
        std::snprintf(text, sizeof text, "%1.*lf", static_cast<int>(std::min(int64_t{theDigits}, kExactDigits)), theNum);
    unsigned char* s = PStrCToP(text, nullptr);
    if (theDigits < 0) return s;  // the caller asked for the point and every decimal

    uint32_t n = s[0];
    uint32_t point = PStrIn('.', s);
    if (point != 0) {
        while (n >= point && (s[n] == '0' || s[n] == '.')) --n;
        s[0] = static_cast<unsigned char>(n);
    }
    if (n == 2 && s[1] == '-' && s[2] == '0') {  // a negative value that rounded away
        s[0] = 1;
        s[1] = '0';
    }
    return s;
}

unsigned char* PStrTimeStr(int32_t seconds) {
    unsigned char* text = PStrNext();
    text[0] = 0;
    if (seconds < 0) PStrAppendChar(text, '-');
    uint32_t s = seconds < 0 ? 0u - static_cast<uint32_t>(seconds) : static_cast<uint32_t>(seconds);
    uint32_t m = s / 60;
    s %= 60;
    uint32_t h = m / 60;
    m %= 60;
    uint32_t d = h / 24;
    h %= 24;

    struct Part {
        uint32_t value;
        const char* unit;
    };
    auto append = [text](std::initializer_list<Part> parts) {
        for (const Part& part : parts) {
            AppendDecimal(text, part.value, false);
            AppendText(text, part.unit);
        }
    };
    if (d >= 1) append({{d, "D "}, {h, "H "}, {m, "M "}, {s, "S"}});
    else if (h >= 1) append({{h, "Hr "}, {m, "Min "}, {s, "Sec"}});
    else if (m >= 1) append({{m, " Min.  "}, {s, " Sec."}});
    else append({{s, s == 1 ? " Second" : " Seconds"}});
    return text;
}

unsigned char* PStrDateStr(uint32_t theSecond, uint32_t curSecond) {
    // 1 and 0 are the callers' ways of saying "now".
    if (curSecond == 1) curSecond = static_cast<uint32_t>(std::time(nullptr));
    if (theSecond == 0) theSecond = curSecond != 0 ? curSecond : static_cast<uint32_t>(std::time(nullptr));

    const time_t when = static_cast<time_t>(theSecond);
    const time_t now = static_cast<time_t>(curSecond);
    tm local{};
    localtime_r(&when, &local);

    int hour = local.tm_hour % 12;
    char text[64];
    std::snprintf(text, sizeof text, "%d:%02d:%02d%s", hour == 0 ? 12 : hour, local.tm_min, local.tm_sec,
                  local.tm_hour < 12 ? "AM" : "PM");
    unsigned char* s = PStrCToP(text, nullptr);

    constexpr time_t kDay = 86400;
    if (SameDay(local, now)) {
        AppendText(s, " Today");
    } else if (SameDay(local, now + kDay)) {
        AppendText(s, " Tomorrow");
    } else if (SameDay(local, now - kDay)) {
        AppendText(s, " Yesterday");
    } else {
        std::snprintf(text, sizeof text, " %d/%d/%02d", local.tm_mon + 1, local.tm_mday, (local.tm_year + 1900) % 100);
        AppendText(s, text);
    }
    return s;
}

// ---- Comparing, searching, editing ----

int32_t PStrCompare(unsigned char* a, unsigned char* b) {
    uint32_t shorter = std::min(a[0], b[0]);
    for (uint32_t i = 1; i <= shorter; ++i)
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    return int32_t{a[0]} - int32_t{b[0]};
}

unsigned char* PStrAppend(unsigned char* dst, unsigned char* src) {
    if (dst == nullptr) return PStrCpy(nullptr, src);
    uint32_t n = dst[0];
    uint32_t added = std::min<uint32_t>(src[0], kMaxLength - n);
    std::memmove(dst + 1 + n, src + 1, added);  // src may be dst itself
    dst[0] = static_cast<unsigned char>(n + added);
    return dst;
}

unsigned char* PStrAppendChar(unsigned char* theStr, unsigned char theChar) {
    if (theStr[0] < kMaxLength) theStr[++theStr[0]] = theChar;
    return theStr;
}

unsigned char* PStrConcat(unsigned char* firstStr, ...) {
    unsigned char* s = PStrNext();
    s[0] = 0;
    if (firstStr == nullptr) return s;  // an empty list
    CopyPStr(s, firstStr);
    va_list args;
    va_start(args, firstStr);
    while (unsigned char* next = va_arg(args, unsigned char*)) PStrAppend(s, next);
    va_end(args);
    return s;
}

uint32_t PStrIn(unsigned char ch, unsigned char* theString) {
    for (uint32_t i = 1; i <= theString[0]; ++i)
        if (theString[i] == ch) return i;
    return 0;
}

uint32_t PStrPos(unsigned char* subStr, unsigned char* theString) {
    // An empty pattern is reported as absent: nothing was found.
    uint32_t k = subStr[0];
    uint32_t n = theString[0];
    if (k == 0 || k > n) return 0;
    for (uint32_t i = 1; i + k - 1 <= n; ++i)
        if (std::memcmp(theString + i, subStr + 1, k) == 0) return i;
    return 0;
}

unsigned char* PStrSub(unsigned char* source, uint32_t index, uint32_t count) {
    unsigned char* s = PStrNext();
    uint32_t n = source[0];
    uint32_t start = ClampPosition(index, n);
    uint32_t taken = std::min(count, n + 1 - start);
    std::memmove(s + 1, source + start, taken);  // source may itself be a queue string
    s[0] = static_cast<unsigned char>(taken);
    return s;
}

void PStrDelete(unsigned char* dest, uint32_t index, uint32_t count) {
    uint32_t n = dest[0];
    uint32_t start = ClampPosition(index, n);
    uint32_t removed = std::min(count, n + 1 - start);
    std::memmove(dest + start, dest + start + removed, n + 1 - start - removed);
    dest[0] = static_cast<unsigned char>(n - removed);
}

unsigned char* PStrOmit(unsigned char* str, uint32_t index, uint32_t count) {
    unsigned char* s = PStrCpy(nullptr, str);
    PStrDelete(s, index, count);
    return s;
}

void PStrInsert(unsigned char* source, unsigned char* dest, uint32_t index) {
    unsigned char inserted[256];  // source may be dest itself
    CopyPStr(inserted, source);
    uint32_t k = inserted[0];
    uint32_t n = std::min<uint32_t>(dest[0], kMaxLength - k);  // drop the end of dest, never the insertion
    uint32_t at = ClampPosition(index, n);
    std::memmove(dest + at + k, dest + at, n + 1 - at);
    std::memcpy(dest + at, inserted + 1, k);
    dest[0] = static_cast<unsigned char>(n + k);
}

unsigned char* PStrInclude(unsigned char* source, unsigned char* str, uint32_t index) {
    unsigned char* s = PStrCpy(nullptr, str);
    PStrInsert(source, s, index);
    return s;
}

void PStrUpperCase(unsigned char* theString) {
    for (uint32_t i = 1; i <= theString[0]; ++i)
        if (theString[i] >= 'a' && theString[i] <= 'z') theString[i] = static_cast<unsigned char>(theString[i] - 'a' + 'A');
}

unsigned char* PStrUpCase(unsigned char* theString) {
    unsigned char* s = PStrCpy(nullptr, theString);
    PStrUpperCase(s);
    return s;
}

void PStrStrip(unsigned char* theString) {
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= theString[0]; ++i)
        if (theString[i] != ' ') theString[++kept] = theString[i];
    theString[0] = static_cast<unsigned char>(kept);
}

char* PrintPStr(unsigned char* pStr) { return PStrPToC(pStr, nullptr); }

const char* PrintBoolean(unsigned char b) { return b != 0 ? "1" : "0"; }

uint32_t MakeType(const char* str) {
    // A shorter string gives zero bytes after its end rather than whatever lies beyond the NUL.
    char bytes[4] = {};
    for (int i = 0; i < 4 && str[i] != '\0'; ++i) bytes[i] = str[i];
    uint32_t type;
    std::memcpy(&type, bytes, sizeof type);
    return type;
}
