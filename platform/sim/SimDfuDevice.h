#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/UsbControlTransfer.h"

namespace tidemix::platform::sim
{

// Faults of a simulated device's firmware update. Block numbers count the
// download requests that carry data, from 0; -1 turns a fault off.
struct SimDfuFaults
{
    int stallAtBlock = -1;       // that block's download stalls; the device enters dfuERROR
    int errorAtBlock = -1;       // that block is taken, then the status reads dfuERROR with errorStatus
    uint8_t errorStatus = 0x03;  // errWRITE
    int unplugAtBlock = -1;      // the device leaves as that block arrives and stays away
    bool staysAwayAfterDetach = false;
    bool staysAwayAfterManifest = false;
};

// How a simulated device's firmware update takes its time. The waits are
// the test's to choose, so that nothing real-time slows a test down.
struct SimDfuTiming
{
    // A device that never comes back on its own: it waits for the bus's ReturnHeldDevices().
    static constexpr std::chrono::milliseconds kHeld{-1};

    // From leaving the bus (after a detach or a manifestation) to arriving again.
    std::chrono::milliseconds returnDelay{0};
    int busyPolls = 1;           // status polls that read dfuDNBUSY after each block
    int manifestPolls = 1;       // status polls that read dfuMANIFEST before the device leaves
    uint32_t pollTimeoutMs = 5;  // the bwPollTimeout the status reports
};

// The USB DFU 1.1 state machine of one simulated device, in run-time mode
// (appIDLE, which only detaches) or in DFU mode (download, manifestation,
// upload). It answers the class requests to its interface; the bus does the
// leaving and coming back that an answer asks for. Not thread-safe: the bus
// calls it under its lock.
class SimDfuDevice
{
public:
    enum State : uint8_t
    {
        kAppIdle = 0,
        kAppDetach = 1,
        kDfuIdle = 2,
        kDnloadSync = 3,
        kDnBusy = 4,
        kDnloadIdle = 5,
        kManifestSync = 6,
        kManifest = 7,
        kManifestWaitReset = 8,
        kUploadIdle = 9,
        kError = 10,
    };

    enum Status : uint8_t
    {
        kOk = 0x00,
        kErrAddress = 0x08,
        kErrNotDone = 0x09,
        kErrUnknown = 0x0E,
        kErrStalledPkt = 0x0F,
    };

    // What the bus does once the request is answered.
    enum class Leave
    {
        No,
        Detach,    // leaves, comes back in DFU mode
        Manifest,  // leaves, comes back in run-time mode with the new firmware
        Unplug,    // leaves as the request arrives and stays away
    };

    struct Answer
    {
        UsbTransferResult result;
        Leave leave = Leave::No;
    };

    SimDfuDevice(bool dfuMode, uint8_t interfaceNumber, SimDfuFaults faults, SimDfuTiming timing,
                 std::vector<uint8_t> firmware);

    // True for a DFU class request to this device's DFU interface.
    bool Takes(const UsbControlSetup& setup) const;
    Answer Handle(const UsbControlSetup& setup, uint8_t* data);

    uint8_t CurrentState() const { return state_; }
    uint8_t CurrentStatus() const { return status_; }
    // The image of the last complete download, else what the device came with.
    const std::vector<uint8_t>& Firmware() const { return firmware_; }
    // The version in an image's bytes 6, 8 and 10, as 0xMmp; -1 if it is too short.
    static int ImageVersion(const std::vector<uint8_t>& image);

private:
    Answer Reply(const UsbControlSetup& setup, uint8_t* data, const uint8_t* bytes, size_t count);
    Answer Stall(uint8_t status);
    Answer GetStatus(const UsbControlSetup& setup, uint8_t* data);
    Answer Download(const UsbControlSetup& setup, const uint8_t* data);
    Answer Upload(const UsbControlSetup& setup, uint8_t* data);
    void Restart();

    uint8_t interface_;
    SimDfuFaults faults_;
    SimDfuTiming timing_;
    uint8_t state_;
    uint8_t status_ = kOk;
    uint16_t nextBlock_ = 0;
    int blocksTaken_ = 0;  // for the faults, not wrapped
    int pollsLeft_ = 0;
    bool failNextPoll_ = false;
    size_t uploadOffset_ = 0;
    std::vector<uint8_t> received_;
    std::vector<uint8_t> firmware_;
};

}  // namespace tidemix::platform::sim
