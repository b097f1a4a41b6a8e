// Dialog item helpers. See dialog_items.h.
#include "dialog_items.h"

#include <cmath>
#include <cstdio>

#include "host_services.h"
#include "pstring.h"

// ---- Module state ----
unsigned char errorFlag = 0;
unsigned char hideErrorFlag = 0;
unsigned char inBackground = 0;
unsigned char aEmptyPStr[256] = {0};   // a full slot, so a stray write stays inside it

void InitUtils() {
    errorFlag = 0;
    hideErrorFlag = 0;
    inBackground = 0;
}

void FinishUtils() {}

namespace {

constexpr int kTextCapacity = 256;          // host text buffers: 255 characters and the NUL
constexpr int kNumberCapacity = 51;         // GetTheINum reads at most 50 characters
constexpr int kSelectAllEnd = 10000;        // past the end of any edit text
constexpr IFFType kResourceFileType = MakeIFF("rsrc");

// A precision that prints every digit a double can have; larger ones only add zeros.
constexpr int32_t kMaxPrecision = 1100;

KV_Control* Find(const KV_Dialog* theDialog, int id) {
    return KV_FindControlByID(theDialog, id);
}

// Reads NUL-terminated text of at most capacity - 1 characters. `size` is what the host's
// ...Size service reported (characters without the NUL); the buffer is always left terminated.
void ReadHostText(char* buffer, int capacity, int size, void (*read)(const KV_Control*, char*, int*),
                  const KV_Control* theControl) {
    int numChars = size < 0 ? 1 : (size >= capacity ? capacity : size + 1);
    buffer[0] = 0;
    read(theControl, buffer, &numChars);
    buffer[capacity - 1] = 0;
}

// Parses a signed decimal; out-of-range values saturate instead of wrapping.
int32_t ParseInt32(const char* text) {
    long long value = 0;
    if (sscanf(text, "%lld", &value) != 1) return 0;
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

template <typename T>
void Store(T* dst, T value, unsigned char* flag) {
    if (dst == nullptr) return;
    if (!(*dst == value) && flag != nullptr) *flag = 1;
    *dst = value;
}

}  // namespace

// ---- Numbers and text ----

void Num2Str(int32_t digits, double x, unsigned char* s) {
    if (s == nullptr) return;
    char* text = reinterpret_cast<char*>(s);
    if (digits >= 0) {
        int precision = digits > kMaxPrecision ? kMaxPrecision : static_cast<int>(digits);
        snprintf(text, kTextCapacity, "%1.*f", precision, x);
    } else {
        int precision = digits < -kMaxPrecision ? kMaxPrecision : static_cast<int>(-digits);
        snprintf(text, kTextCapacity, "%#1.*f", precision, x);
    }
    PStrC2P(text);
}

unsigned char* RealTrimStr(double theNum, short theDigits) {
    unsigned char* s = PStrNext();
    Num2Str(theDigits, theNum, s);
    if (theDigits < 0) return s;
    uint32_t point = PStrIn('.', s);
    if (point != 0) {
        uint32_t n = s[0];
        while (n >= point && (s[n] == '0' || s[n] == '.')) --n;
        s[0] = static_cast<unsigned char>(n);
    }
    if (s[0] == 2 && s[1] == '-' && s[2] == '0') {
        s[0] = 1;
        s[1] = '0';
    }
    return s;
}

double Str2Num(unsigned char* s) {
    if (s == nullptr) return 0.0;
    char text[kTextCapacity];
    PStrPToC(s, text);
    double value = 0.0;
    if (sscanf(text, "%lf", &value) != 1) return 0.0;
    return value;
}

int32_t Str2Int(unsigned char* s) {
    if (s == nullptr) return 0;
    char text[kTextCapacity];
    PStrPToC(s, text);
    return ParseInt32(text);
}

unsigned char* CharStr(unsigned char c) {
    unsigned char* s = PStrNext();
    s[0] = 1;
    s[1] = c;
    return s;
}

unsigned char* NumStr(int32_t n) { return PStrNum(n); }

// ---- Change-tracking setters ----

void SetFlag(uint32_t* theFlagFields, int32_t theFlag, unsigned char theState) {
    if (theFlagFields == nullptr) return;
    uint32_t bit = 1u << (static_cast<uint32_t>(theFlag) & 31u);
    *theFlagFields = theState ? (*theFlagFields | bit) : (*theFlagFields & ~bit);
}

void SetIntegerFlag(uint16_t* theFlagFields, int32_t theFlag, unsigned char value) {
    if (theFlagFields == nullptr) return;
    uint32_t word = *theFlagFields;
    SetFlag(&word, theFlag, value);          // bits 16 to 31 have no place in the word
    *theFlagFields = static_cast<uint16_t>(word);
}

void SetBooleanFlag(uint32_t* dst, int32_t theFlag, unsigned char src, unsigned char* flag) {
    if (dst == nullptr) return;
    bool old = (*dst >> (static_cast<uint32_t>(theFlag) & 31u)) & 1u;
    if (old != (src != 0) && flag != nullptr) *flag = 1;
    SetFlag(dst, theFlag, src);
}

void SetLongInt(int32_t* dst, int32_t src, unsigned char* flag) { Store(dst, src, flag); }
void SetDouble(double* dst, double src, unsigned char* flag) { Store(dst, src, flag); }
void SetBoolean(unsigned char* dst, unsigned char src, unsigned char* flag) { Store(dst, src, flag); }
void SetByte(char* dst, short src, unsigned char* flag) { Store(dst, static_cast<char>(src), flag); }
void SetInteger(short* dst, short src, unsigned char* flag) { Store(dst, src, flag); }
void SetReal(float* dst, float src, unsigned char* flag) { Store(dst, src, flag); }
void SetExtended(double* dst, double src, unsigned char* flag) { Store(dst, src, flag); }

void SetRGBColor(RGB_Color* dst, RGB_Color* src, unsigned char* flag) {
    if (dst == nullptr || src == nullptr) return;
    Store(&dst->red, src->red, flag);
    Store(&dst->green, src->green, flag);
    Store(&dst->blue, src->blue, flag);
}

void SetTheARGB(ARGB* dst, ARGB* src, unsigned char* flag) {
    if (dst == nullptr || src == nullptr) return;
    Store(&dst->a, src->a, flag);
    Store(&dst->r, src->r, flag);
    Store(&dst->g, src->g, flag);
    Store(&dst->b, src->b, flag);
}

// ---- Controls by ID ----

void SetColorButtonIDARGB(const KV_Dialog* theDialog, int id, const ARGB* color) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr || color == nullptr) return;
    KV_SetColorButtonColor(c, color->r, color->g, color->b, color->a);
}

void GetColorButtonIDARGB(const KV_Dialog* theDialog, int id, ARGB* color) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr || color == nullptr) return;
    // Start from the current colour so that a component the host leaves alone stays as it was.
    int red = color->r, green = color->g, blue = color->b, alpha = color->a;
    KV_GetColorButtonColor(c, &red, &green, &blue, &alpha);
    color->r = static_cast<uint8_t>(red);
    color->g = static_cast<uint8_t>(green);
    color->b = static_cast<uint8_t>(blue);
    color->a = static_cast<uint8_t>(alpha);
}

void SetUserControlIDFunctions(KV_Dialog* theDialog, int id, KV_UserDrawFunction draw,
                               KV_UserClickFunction click) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    KV_SetUserControlDraw(c, draw);
    KV_SetUserControlClick(c, click);
}

void SetControlIDHitFunction(KV_Dialog* theDialog, int id, KV_ControlHitFunction hit) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlHitFunction(c, hit);
}

void SetControlIDVisible(KV_Dialog* theDialog, int id, int visible) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlVisible(c, visible);
}

void SetControlIDTitle(KV_Dialog* theDialog, int id, const char* title) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlTitle(c, title != nullptr ? title : "");
}

void SetEditTextIDString(KV_Dialog* theDialog, int id, const char* text) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetEditTextString(c, text != nullptr ? text : "");
}

void SetButton(const KV_Dialog* theDialog, int id, int value) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlValue(c, value);
}

int GetButton(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    return c != nullptr ? KV_GetControlValue(c) : 0;
}

int ToggleButton(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return 0;
    int value = KV_GetControlValue(c) == 0 ? 1 : 0;
    KV_SetControlValue(c, value);
    return value;
}

void SetButtonName(const KV_Dialog* theDialog, int id, unsigned char* name) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    char title[kTextCapacity] = "";
    if (name != nullptr) PStrPToC(name, title);
    KV_SetControlTitle(c, title);
}

void GetButtonName(const KV_Dialog* theDialog, int id, unsigned char* name) {
    if (name == nullptr) return;
    name[0] = 0;
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    char* text = reinterpret_cast<char*>(name);
    ReadHostText(text, kTextCapacity, KV_GetControlTitleSize(c), KV_GetControlTitle, c);
    PStrC2P(text);
}

void SelectItem(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    KV_SetKeyControl(c);
    if (KV_GetControlType(c) == cKV_EditText) KV_SetEditTextSelection(c, 0, kSelectAllEnd);
}

void SetTheIText(const KV_Dialog* theDialog, int id, unsigned char* text) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    char string[kTextCapacity] = "";
    if (text != nullptr) PStrPToC(text, string);
    KV_SetEditTextString(c, string);
}

void GetTheIText(const KV_Dialog* theDialog, int id, unsigned char* text) {
    if (text == nullptr) return;
    text[0] = 0;
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    char* string = reinterpret_cast<char*>(text);
    ReadHostText(string, kTextCapacity, KV_GetEditTextStringSize(c), KV_GetEditTextString, c);
    PStrC2P(string);
}

void SetTheIReal(const KV_Dialog* theDialog, int theItemID, double theNum, short theDigits) {
    SetTheIText(theDialog, theItemID, RealTrimStr(theNum, theDigits));
}

double GetTheIReal(const KV_Dialog* theDialog, int id) {
    unsigned char* text = PStrNext();
    GetTheIText(theDialog, id, text);
    double value = Str2Num(text);
    // Negative zero, infinities and NaN would leak into settings as values no field can show.
    if (value == 0.0 || !std::isfinite(value)) return 0.0;
    return value;
}

void SetTheINum(const KV_Dialog* theDialog, int id, int32_t n) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return;
    char text[16];
    snprintf(text, sizeof text, "%ld", static_cast<long>(n));
    KV_SetEditTextString(c, text);
}

int32_t GetTheINum(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    if (c == nullptr) return 0;
    char text[kNumberCapacity];
    ReadHostText(text, kNumberCapacity, KV_GetEditTextStringSize(c), KV_GetEditTextString, c);
    return ParseInt32(text);
}

void SetTheIPopUp(const KV_Dialog* theDialog, int id, short value) {
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlValue(c, value);
}

int GetTheIPopUp(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    return c != nullptr ? static_cast<int16_t>(KV_GetControlValue(c)) : 0;
}

int GetTheIType(const KV_Dialog* theDialog, int id) {
    KV_Control* c = Find(theDialog, id);
    return c != nullptr ? static_cast<int>(KV_GetControlType(c)) : 0;
}

void SetTheIRect(const KV_Dialog* theDialog, int id, const KV_Rect* rect) {
    if (rect == nullptr) return;
    if (KV_Control* c = Find(theDialog, id)) KV_SetControlBounds(c, rect);
}

void GetTheIRect(const KV_Dialog* theDialog, int id, KV_Rect* rect) {
    if (rect == nullptr) return;
    if (KV_Control* c = Find(theDialog, id)) KV_GetControlBounds(c, rect);
}

// ---- Standard message dialogs ----

namespace {

// Replaces "^0".."^3" in one title; an inserted parameter is never scanned again.
void ReplaceParams(unsigned char* s, unsigned char* const params[4]) {
    for (uint32_t i = 1; i < s[0];) {
        unsigned char next = s[i + 1];
        if (s[i] == '^' && next >= '0' && next <= '3') {
            unsigned char* param = params[next - '0'];
            PStrDelete(s, i, 2);
            PStrInsert(param, s, i);
            i += param[0];
        } else {
            ++i;
        }
    }
}

}  // namespace

void SetParamText(KV_Dialog* iDialog, const unsigned char* text0, const unsigned char* text1,
                  const unsigned char* text2, const unsigned char* text3) {
    // Private copies: the string library takes its sources as non-const.
    PStr255 copies[4];
    const unsigned char* texts[4] = {text0, text1, text2, text3};
    unsigned char* params[4];
    for (int k = 0; k < 4; ++k) {
        CopyPStr(copies[k], texts[k] != nullptr ? texts[k] : aEmptyPStr);
        params[k] = copies[k];
    }
    int count = KV_CountControls(iDialog);
    for (int index = 0; index < count; ++index) {
        KV_Control* c = KV_FindControlByIndex(iDialog, index);
        if (c == nullptr || KV_GetControlType(c) != cKV_StaticText) continue;
        PStr255 title;
        char* text = reinterpret_cast<char*>(title);
        ReadHostText(text, kTextCapacity, KV_GetControlTitleSize(c), KV_GetControlTitle, c);
        PStrC2P(text);
        ReplaceParams(title, params);
        KV_SetControlTitle(c, PStrP2C(title));
    }
}

int StandardDialog(KV_ResourceFile* theResFile, short dialogID, const unsigned char* text0,
                   const unsigned char* text1, const unsigned char* text2, const unsigned char* text3) {
    KV_Dialog* dialog = KV_MakeDialog(theResFile, dialogID);
    if (dialog == nullptr) return 0;
    SetParamText(dialog, text0, text1, text2, text3);
    int result = KV_ExecuteDialog(dialog);
    KV_DestroyDialog(dialog);
    return result;
}

void Error(KV_ResourceFile* theResFile, unsigned char* message, int32_t code) {
    if (!errorFlag && !hideErrorFlag) {
        PStr255 text;
        CopyPStr(text, message != nullptr ? message : aEmptyPStr);
        PStrAppend(text, PS(": "));
        PStrAppend(text, PStrNum(code));
        StandardDialog(theResFile, kStopDialogID, text, aEmptyPStr, aEmptyPStr, aEmptyPStr);
    }
    errorFlag = 1;
}

void StandardError(KV_ResourceFile* theResFile, unsigned char* message) {
    // An empty message reports nothing, so it does not silence a later real error either.
    if (message == nullptr || message[0] == 0) return;
    if (!errorFlag && !hideErrorFlag) {
        StandardDialog(theResFile, kStopDialogID, message, aEmptyPStr, aEmptyPStr, aEmptyPStr);
    }
    errorFlag = 1;
}

int Stop(KV_ResourceFile* theResFile, unsigned char* message) {
    return StandardDialog(theResFile, kStopDialogID, message, aEmptyPStr, aEmptyPStr, aEmptyPStr);
}

int Caution(KV_ResourceFile* theResFile, unsigned char* message) {
    return StandardDialog(theResFile, kCautionDialogID, message, aEmptyPStr, aEmptyPStr, aEmptyPStr);
}

int Message(KV_ResourceFile* theResFile, unsigned char* message) {
    return StandardDialog(theResFile, kMessageDialogID, message, aEmptyPStr, aEmptyPStr, aEmptyPStr);
}

int Warning(KV_ResourceFile* theResFile, unsigned char* message) {
    return StandardDialog(theResFile, kWarningDialogID, message, aEmptyPStr, aEmptyPStr, aEmptyPStr);
}

KV_ResourceFile* OpenResourceFile(const char* name) {
    if (name == nullptr) return nullptr;
    KV_DirectoryRef* home = KV_GetHomeDirectory();
    if (home == nullptr) return nullptr;
    KV_ResourceFile* file = nullptr;
    KV_FileRef* ref = KV_MakeFileRef(home, name, kResourceFileType, "rsc");
    if (ref != nullptr) {
        file = KV_OpenResourceFile(ref);
        KV_DestroyFileRef(ref);
    }
    KV_DestroyDirectoryRef(home);
    return file;
}
