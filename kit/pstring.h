// Length-prefixed strings: the text form of every host record.
//
// A length-prefixed string is a length byte n (0 to 255) followed by n characters; nothing marks
// the end. Characters are bytes with no encoding of their own; positions are 1-based.
//
// Common principles:
// - Results never pass 255 characters: whatever would grow past that is cut.
// - Positions and counts past the end of a string are cut to the end; nothing reports an error.
// - "Queue string": a temporary 256-byte slot from a rotating queue of 20 (PStrNext). It stays
//   intact only until 20 further slots are taken; callers copy what they keep. Functions with an
//   optional destination write into a queue string when that destination is null.
// - Numbers that the original design kept in `long` are 32-bit here (int32_t / uint32_t).
#ifndef VELLUX_KIT_PSTRING_H
#define VELLUX_KIT_PSTRING_H

#include <cstdint>

// ---- Queue ----
unsigned char* PStrNext();                                           // next of the 20 slots, not cleared

// ---- Conversions and copies ----
uint32_t CStrLength(const char* theString);                          // bytes before the NUL
unsigned char* PStrC2P(char* cStr);                                  // NUL-terminated -> prefixed, in place
char* PStrP2C(unsigned char* pStr);                                  // prefixed -> NUL-terminated, in place
unsigned char* PStrCToP(const char* cStr, unsigned char* pStr);      // copy into pStr or a queue string
char* PStrPToC(unsigned char* pStr, char* cStr);                     // copy into cStr (n + 1 bytes) or a queue string
unsigned char* PS(const char* cStr);                                 // queue string of a C string
unsigned char* PStrCpy(unsigned char* dst, unsigned char* src);      // copy into dst or a queue string
void CopyStr(unsigned char* dst, const char* src);                   // C string -> prefixed dst
void CopyPStr(unsigned char* dst, const unsigned char* src);         // prefixed copy
char* CS(unsigned char* pStr);                                       // queue copy as a C string
int32_t CStrIn(unsigned char ch, const char* theString);             // 0-based index of ch, or -1
void CStrCpy(char* dst, const char* src);                            // C string copy with its NUL

// ---- Numbers, durations and dates ----
unsigned char* PStrType(uint32_t theType);                           // the four bytes of a code, MSB first
unsigned char* PStrNum(int32_t theNum);                              // decimal
unsigned char* PStrLongStr(int32_t num);                             // decimal (same as PStrNum)
unsigned char* PStrULongStr(uint32_t num);                           // unsigned decimal
unsigned char* PStrNumericalStr(int32_t theNum);                     // decimal with thousands commas
unsigned char* PStrKStr(uint32_t theNum);                            // thousands-comma kilobytes + "K"
unsigned char* PStrKSStr(int32_t theNum);                            // same, signed (division toward zero)
unsigned char* PStrFloatStr(double theNum, int32_t theDigits);       // trimmed like RealTrimStr
unsigned char* PStrTimeStr(int32_t seconds);                         // "1D 2H 3M 4S", "2Hr 3Min 4Sec", ...
unsigned char* PStrDateStr(uint32_t theSecond, uint32_t curSecond);  // "9:05:07PM Today", "... 3/14/98"

// ---- Comparing, searching, editing ----
int32_t PStrCompare(unsigned char* a, unsigned char* b);             // -1/1 at first difference, else length difference
unsigned char* PStrAppend(unsigned char* dst, unsigned char* src);   // dst += src (queue copy of src when dst null)
unsigned char* PStrAppendChar(unsigned char* theStr, unsigned char theChar);
unsigned char* PStrConcat(unsigned char* firstStr, ...);             // queue string; list ends at a null pointer
uint32_t PStrIn(unsigned char ch, unsigned char* theString);         // 1-based position, 0 when absent
uint32_t PStrPos(unsigned char* subStr, unsigned char* theString);   // 1-based position, 0 when absent
unsigned char* PStrSub(unsigned char* source, uint32_t index, uint32_t count);
void PStrDelete(unsigned char* dest, uint32_t index, uint32_t count);
unsigned char* PStrOmit(unsigned char* str, uint32_t index, uint32_t count);
void PStrInsert(unsigned char* source, unsigned char* dest, uint32_t index);
unsigned char* PStrInclude(unsigned char* source, unsigned char* str, uint32_t index);
void PStrUpperCase(unsigned char* theString);                        // a-z -> A-Z in place
unsigned char* PStrUpCase(unsigned char* theString);                 // same on a queue copy
void PStrStrip(unsigned char* theString);                            // remove every blank in place
char* PrintPStr(unsigned char* pStr);                                // queue C string, for printing
const char* PrintBoolean(unsigned char b);                           // "1" or "0"
uint32_t MakeType(const char* str);                                  // first four bytes in machine order

#endif  // VELLUX_KIT_PSTRING_H
