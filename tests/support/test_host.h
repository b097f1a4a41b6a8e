// A recording host for the unit tests: owns the two records, answers the callback's memory,
// channel and progress selectors, and logs every call so tests can assert the exact sequences.
//
// Blocks always move on ALOC (new block, contents copied, old one freed), so a plug-in that keeps
// a stale pointer is caught by the sanitizer build.
#ifndef VELLUX_TESTS_TEST_HOST_H
#define VELLUX_TESTS_TEST_HOST_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vellux/plugin_records.h"

class TestHost {
public:
    struct Call {
        IFFType selector = 0;
        int32_t size = 0;
        int32_t controlSize = 0;    // ALOC: sizes asked for
        int32_t pluginSize = 0;
        int32_t channelID = 0;      // ACHN, GCHN, SCHN
        int32_t frame = 0;          // GCHN, SCHN
        std::string name;           // ACHN
        float statusPos = 0.0f;     // STAT
        int32_t statusValue = 0;
    };
    struct Channel {
        int32_t id;
        IFFType type;
        std::string name;
        std::vector<uint8_t> defaultValue;
        std::map<int32_t, std::vector<uint8_t>> keys;
    };

    TestHost();
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    // ---- The records ----
    PluginInfoRec Info() const;                     // the header of the next command block
    void SetControl(const void* bytes, int32_t size);
    void SetControlSize(int32_t size);              // a zero-filled block of that size
    uint8_t* control() const { return control_; }
    int32_t controlSize() const { return controlSize_; }
    uint8_t* plugin() const { return plugin_; }
    int32_t pluginSize() const { return pluginSize_; }
    bool withCallback = true;                       // false: headers carry a null callback

    // Sends a command with a real block of the record's own size (or `size` when given).
    template <typename Record>
    int32_t Send(IFFType command, Record& block, int32_t size = int32_t(sizeof(Record))) {
        block.theInfo = Info();
        return SendRaw(command, size, &block);
    }
    int32_t SendRaw(IFFType command, int32_t size, void* block);

    // ---- Answers ----
    int32_t freeSize = 1 << 20;
    int32_t rchnAnswer = 0;
    int32_t statAnswer = 0;
    int32_t statTick = 0;                           // written into theStatusTick on every STAT
    int32_t allocateShortfall = 0;                  // ALOC gives the working record this much less
    // Answer `code` to the n-th (1-based) call of `selector` from now on, without doing the work.
    void FailCall(IFFType selector, int n, int32_t code);
    // Replace the GCHN answer: called with the record after the host filled it in.
    std::function<void(HostGetChannelRec&)> onGetChannel;

    // ---- What happened ----
    std::vector<Call> calls;
    std::vector<IFFType> Selectors() const;          // the selectors in call order
    int Count(IFFType selector) const;
    void ClearLog() { calls.clear(); }
    std::vector<std::unique_ptr<Channel>> channels;
    Channel* FindChannel(int32_t id);
    int resets = 0;                                 // RCHN received
    int liveMallocs = 0;                            // MMAL minus MFRE

private:
    static int32_t Callback(IFFType selector, int32_t size, void* record);
    int32_t Answer(IFFType selector, int32_t size, void* record);
    int32_t Allocate(HostAllocateRec& rec);
    int32_t GetChannel(HostGetChannelRec& rec);
    static void Resize(uint8_t** block, int32_t* size, int32_t wanted);

    uint8_t* control_ = nullptr;
    int32_t controlSize_ = 0;
    uint8_t* plugin_ = nullptr;
    int32_t pluginSize_ = 0;
    struct Failure { IFFType selector; int remaining; int32_t code; };
    std::vector<Failure> failures_;
    std::vector<uint8_t> channelValue_;
};

std::string PStrText(const unsigned char* pstr);   // a length-prefixed string as std::string

#endif  // VELLUX_TESTS_TEST_HOST_H
