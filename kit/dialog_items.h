// Dialog item helpers: reach a dialog's control by its ID and get or set its value in the forms a
// plug-in uses (numbers as trimmed decimal text, check boxes as 0 or 1, pop-ups as small
// integers, colours as ARGB), change-tracking setters, number <-> text conversions, the standard
// message dialogs, and the module's start and finish.
//
// Common principles:
// - Every control is found with KV_FindControlByID; an absent control is tolerated everywhere:
//   setters do nothing, getters return 0 or the empty string.
// - Text in and out is length-prefixed (pstring.h) unless the parameter is `char`. Functions that
//   return a string return a queue string.
// - Change flags: every Set... setter takes a caller-owned flag and sets it to 1 when the stored
//   value changes; it never clears it, so one flag can collect many setters.
// - Parsing never fails: text that does not parse reads as 0. Text is cut at 255 characters.
// - Numbers that the original design kept in `long` are 32-bit here.
#ifndef VELLUX_KIT_DIALOG_ITEMS_H
#define VELLUX_KIT_DIALOG_ITEMS_H

#include <cstdint>

#include "host_service_types.h"
#include "vellux/plugin_records.h"

// ---- Module state ----
extern unsigned char errorFlag;       // an error was reported since InitUtils; later ones stay silent
extern unsigned char hideErrorFlag;   // error reports are suppressed
extern unsigned char inBackground;    // cleared at start; nothing reads it
extern unsigned char aEmptyPStr[];    // the empty length-prefixed string

void InitUtils();                     // clears the three module flags
void FinishUtils();                   // does nothing

// Standard message dialogs of the caller's resource file.
enum : short { kStopDialogID = 9000, kWarningDialogID = 9002, kMessageDialogID = 9003, kCautionDialogID = 9004 };

// ---- Numbers and text ----
void Num2Str(int32_t digits, double x, unsigned char* s);            // "%1.*f" (or "%#1.*f" for digits < 0) into s
unsigned char* RealTrimStr(double theNum, short theDigits);          // queue string, trailing zeros and point trimmed
double Str2Num(unsigned char* s);                                    // sscanf "%lf"; 0.0 when nothing parses
int32_t Str2Int(unsigned char* s);                                   // sscanf "%d"; 0 when nothing parses
unsigned char* CharStr(unsigned char c);                             // queue string of one character
unsigned char* NumStr(int32_t n);                                    // PStrNum

// ---- Change-tracking setters ----
void SetFlag(uint32_t* theFlagFields, int32_t theFlag, unsigned char theState);      // bit theFlag mod 32
void SetIntegerFlag(uint16_t* theFlagFields, int32_t theFlag, unsigned char value);  // same on 16 bits
void SetBooleanFlag(uint32_t* dst, int32_t theFlag, unsigned char src, unsigned char* flag);
void SetLongInt(int32_t* dst, int32_t src, unsigned char* flag);
void SetDouble(double* dst, double src, unsigned char* flag);        // NaN always counts as a change
void SetRGBColor(RGB_Color* dst, RGB_Color* src, unsigned char* flag);
void SetTheARGB(ARGB* dst, ARGB* src, unsigned char* flag);
void SetBoolean(unsigned char* dst, unsigned char src, unsigned char* flag);
void SetByte(char* dst, short src, unsigned char* flag);
void SetInteger(short* dst, short src, unsigned char* flag);
void SetReal(float* dst, float src, unsigned char* flag);
void SetExtended(double* dst, double src, unsigned char* flag);

// ---- Controls by ID ----
void SetColorButtonIDARGB(const KV_Dialog* theDialog, int id, const ARGB* color);
void GetColorButtonIDARGB(const KV_Dialog* theDialog, int id, ARGB* color);
void SetUserControlIDFunctions(KV_Dialog* theDialog, int id, KV_UserDrawFunction draw, KV_UserClickFunction click);
void SetControlIDHitFunction(KV_Dialog* theDialog, int id, KV_ControlHitFunction hit);
void SetControlIDVisible(KV_Dialog* theDialog, int id, int visible);
void SetControlIDTitle(KV_Dialog* theDialog, int id, const char* title);
void SetEditTextIDString(KV_Dialog* theDialog, int id, const char* text);
void SetButton(const KV_Dialog* theDialog, int id, int value);
int GetButton(const KV_Dialog* theDialog, int id);
int ToggleButton(const KV_Dialog* theDialog, int id);                // 0 -> 1, anything else -> 0
void SetButtonName(const KV_Dialog* theDialog, int id, unsigned char* name);
void GetButtonName(const KV_Dialog* theDialog, int id, unsigned char* name);
void SelectItem(const KV_Dialog* theDialog, int id);                 // key control; edit text: select all
void SetTheIText(const KV_Dialog* theDialog, int id, unsigned char* text);
void GetTheIText(const KV_Dialog* theDialog, int id, unsigned char* text);
void SetTheIReal(const KV_Dialog* theDialog, int theItemID, double theNum, short theDigits);
double GetTheIReal(const KV_Dialog* theDialog, int id);              // 0.0 for -0, infinities and NaN
void SetTheINum(const KV_Dialog* theDialog, int id, int32_t n);
int32_t GetTheINum(const KV_Dialog* theDialog, int id);              // atoi of at most 50 characters
void SetTheIPopUp(const KV_Dialog* theDialog, int id, short value);
int GetTheIPopUp(const KV_Dialog* theDialog, int id);                // value truncated to 16 bits, sign-extended
int GetTheIType(const KV_Dialog* theDialog, int id);                 // KV_ControlType, 0 when absent
void SetTheIRect(const KV_Dialog* theDialog, int id, const KV_Rect* rect);
void GetTheIRect(const KV_Dialog* theDialog, int id, KV_Rect* rect);

// ---- Standard message dialogs ----
void SetParamText(KV_Dialog* iDialog, const unsigned char* text0, const unsigned char* text1,
                  const unsigned char* text2, const unsigned char* text3);  // "^0".."^3" in static texts
int StandardDialog(KV_ResourceFile* theResFile, short dialogID, const unsigned char* text0,
                   const unsigned char* text1, const unsigned char* text2, const unsigned char* text3);
void Error(KV_ResourceFile* theResFile, unsigned char* message, int32_t code);  // at most once per InitUtils
void StandardError(KV_ResourceFile* theResFile, unsigned char* message);
int Stop(KV_ResourceFile* theResFile, unsigned char* message);
int Caution(KV_ResourceFile* theResFile, unsigned char* message);
int Message(KV_ResourceFile* theResFile, unsigned char* message);
int Warning(KV_ResourceFile* theResFile, unsigned char* message);
KV_ResourceFile* OpenResourceFile(const char* name);                 // in the host's home directory

#endif  // VELLUX_KIT_DIALOG_ITEMS_H
