#include "plugin_client.h"

#include "pstring.h"

namespace {

const char* ResultText(int32_t code) {
    switch (code) {
        case kNoError: return "No plug-in error";
        case kMemoryError: return "Plug-in could not allocate needed memory";
        case kUnsupportedCommand: return "Unsupported plug-in command was received";
        case kIncompatibleRecord: return "Incompatible plug-in parameter record was received";
        case kUserCanceled: return "The user canceled the plug-in operation";
        case kOutOfSequence: return "A plug-in command was received out of sequence";
        case kMissingResource: return "Plug-in could not get a required resource";
        case kUnsupportedFeature: return "A requested plug-in feature or mode is not supported";
        default: return "";
    }
}

// Sends a record through theInfo's callback; records start with the host reference.
template <typename Record>
int32_t CallHost(PluginInfoPtr theInfo, IFFType selector, Record* record) {
    if (theInfo == nullptr || theInfo->theHostProc == nullptr) return kIncompatibleRecord;
    record->theReference = theInfo->theHostReference;
    return theInfo->theHostProc(selector, int32_t(sizeof(Record)), record);
}

}  // namespace

void DescribePluginError(int32_t theResultCode, PStrPtr theString) { CopyStr(theString, ResultText(theResultCode)); }

int32_t CallPluginRoutine(IFFType command, int32_t parameterSize, void* parameters, KVPluginRoutine theRoutine) {
    return theRoutine(command, parameterSize, parameters);
}

void KVPluginMalloc(PluginInfoPtr theInfo, int32_t* theResult, uint32_t theSize, void** thePtr) {
    if (*theResult != kNoError) return;
    HostMemMallocRec rec{};
    rec.theSize = theSize;
    rec.thePtr = *thePtr;
    *theResult = CallHost(theInfo, kHostMemMalloc, &rec);
    *thePtr = rec.thePtr;
}

void KVPluginFree(PluginInfoPtr theInfo, int32_t* theResult, void* thePtr) {
    if (*theResult != kNoError) return;
    HostMemFreeRec rec{};
    rec.thePtr = thePtr;
    *theResult = CallHost(theInfo, kHostMemFree, &rec);
}

void KVPluginStatusSetup(PluginInfoPtr theInfo, HostStatusRec* theStatus, const unsigned char* theUnit,
                         const unsigned char* theHeading, int32_t theMin, int32_t theMax, float thePos,
                         int32_t theValue, int32_t* theResult) {
    theStatus->theReference = theInfo != nullptr ? theInfo->theHostReference : nullptr;
    theStatus->theStatusPos = thePos;
    CopyPStr(theStatus->theStatusUnit, theUnit);
    CopyPStr(theStatus->theStatusInfo, theHeading);
    theStatus->theStatusMin = theMin;
    theStatus->theStatusMax = theMax;
    theStatus->theStatusValue = theValue;
    theStatus->theStatusTick = 0;
    KVPluginStatusUpdate(theInfo, theStatus, thePos, theValue, theResult);
}

void KVPluginStatusUpdate(PluginInfoPtr theInfo, HostStatusRec* theStatus, float thePos, int32_t theValue,
                          int32_t* theResult) {
    if (*theResult != kNoError) return;
    theStatus->theStatusValue = theValue;
    theStatus->theStatusPos = thePos;
    *theResult = CallHost(theInfo, kHostStatus, theStatus);
}

void KVPluginStatusCheck(PluginInfoPtr, HostStatusRec*, int32_t*) {}

void KVPluginStatusFinish(PluginInfoPtr theInfo, HostStatusRec* theStatus, int32_t* theResult) {
    if (*theResult == kNoError && theStatus->theStatusTick != 0)
        KVPluginStatusUpdate(theInfo, theStatus, 1.0f, theStatus->theStatusMax, theResult);
}
