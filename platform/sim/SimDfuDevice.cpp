#include "platform/sim/SimDfuDevice.h"

#include <algorithm>

namespace tidemix::platform::sim
{
namespace
{
constexpr uint8_t kOut = 0x21;  // class, interface, host to device
constexpr uint8_t kIn = 0xA1;   // class, interface, device to host

enum Request : uint8_t
{
    kDetach = 0,
    kDnload = 1,
    kUpload = 2,
    kGetStatus = 3,
    kClrStatus = 4,
    kGetState = 5,
    kAbort = 6,
};
}  // namespace

SimDfuDevice::SimDfuDevice(bool dfuMode, uint8_t interfaceNumber, SimDfuFaults faults, SimDfuTiming timing,
                           std::vector<uint8_t> firmware)
    : interface_(interfaceNumber),
      faults_(faults),
      timing_(timing),
      state_(dfuMode ? kDfuIdle : kAppIdle),
      firmware_(std::move(firmware))
{
}

bool SimDfuDevice::Takes(const UsbControlSetup& setup) const
{
    if (setup.index != interface_)
    {
        return false;
    }
    if (setup.requestType == kOut)
    {
        return setup.request == kDetach || setup.request == kDnload || setup.request == kClrStatus ||
               setup.request == kAbort;
    }
    return setup.requestType == kIn &&
           (setup.request == kUpload || setup.request == kGetStatus || setup.request == kGetState);
}

int SimDfuDevice::ImageVersion(const std::vector<uint8_t>& image)
{
    if (image.size() < 11)
    {
        return -1;
    }
    return ((image[6] & 0x0F) << 8) | ((image[8] & 0x0F) << 4) | (image[10] & 0x0F);
}

SimDfuDevice::Answer SimDfuDevice::Handle(const UsbControlSetup& setup, uint8_t* data)
{
    if (state_ == kAppIdle || state_ == kAppDetach)
    {
        // Run-time mode knows only the detach and the two status requests,
        // and a refusal there doesn't change its state.
        switch (setup.request)
        {
            case kDetach:
                if (setup.requestType == kOut && setup.length == 0 && state_ == kAppIdle)
                {
                    state_ = kAppDetach;
                    return {{UsbStatus::Ok, 0}, Leave::Detach};
                }
                break;
            case kGetStatus:
                return GetStatus(setup, data);
            case kGetState:
                return Reply(setup, data, &state_, 1);
            default:
                break;
        }
        return {{UsbStatus::Stall, 0}, Leave::No};
    }

    switch (setup.request)
    {
        case kDnload:
            return Download(setup, data);
        case kUpload:
            return Upload(setup, data);
        case kGetStatus:
            return GetStatus(setup, data);
        case kGetState:
            return Reply(setup, data, &state_, 1);
        case kClrStatus:
            if (state_ == kError)
            {
                Restart();
                return {{UsbStatus::Ok, 0}, Leave::No};
            }
            break;
        case kAbort:
            if (state_ == kDfuIdle || state_ == kDnloadIdle || state_ == kUploadIdle)
            {
                Restart();
                return {{UsbStatus::Ok, 0}, Leave::No};
            }
            break;
        default:
            break;
    }
    return Stall(kErrStalledPkt);
}

SimDfuDevice::Answer SimDfuDevice::Reply(const UsbControlSetup& setup, uint8_t* data, const uint8_t* bytes,
                                         size_t count)
{
    count = std::min<size_t>(count, setup.length);
    std::copy(bytes, bytes + count, data);
    return {{UsbStatus::Ok, count}, Leave::No};
}

SimDfuDevice::Answer SimDfuDevice::Stall(uint8_t status)
{
    state_ = kError;
    status_ = status;
    return {{UsbStatus::Stall, 0}, Leave::No};
}

SimDfuDevice::Answer SimDfuDevice::GetStatus(const UsbControlSetup& setup, uint8_t* data)
{
    Leave leave = Leave::No;
    uint32_t pollTimeout = 0;
    switch (state_)
    {
        case kDnloadSync:
        case kDnBusy:
            if (failNextPoll_)
            {
                failNextPoll_ = false;
                state_ = kError;
                status_ = faults_.errorStatus;
            }
            else if (pollsLeft_ > 0)
            {
                --pollsLeft_;
                state_ = kDnBusy;
                pollTimeout = timing_.pollTimeoutMs;
            }
            else
            {
                state_ = kDnloadIdle;
            }
            break;
        case kManifestSync:
        case kManifest:
            if (pollsLeft_ > 0)
            {
                --pollsLeft_;
                state_ = kManifest;
                pollTimeout = timing_.pollTimeoutMs;
            }
            else
            {
                // Manifestation done: the device says so once, then resets
                // itself onto the bus as the new firmware.
                firmware_ = received_;
                state_ = kDfuIdle;
                leave = Leave::Manifest;
            }
            break;
        default:
            break;
    }
    const uint8_t answer[6] = {status_,
                               static_cast<uint8_t>(pollTimeout & 0xFF),
                               static_cast<uint8_t>((pollTimeout >> 8) & 0xFF),
                               static_cast<uint8_t>((pollTimeout >> 16) & 0xFF),
                               state_,
                               0};
    Answer reply = Reply(setup, data, answer, sizeof(answer));
    reply.leave = leave;
    return reply;
}

SimDfuDevice::Answer SimDfuDevice::Download(const UsbControlSetup& setup, const uint8_t* data)
{
    if (setup.requestType != kOut || (state_ != kDfuIdle && state_ != kDnloadIdle))
    {
        return Stall(kErrStalledPkt);
    }
    if (setup.length == 0)
    {
        // The end of the image; an image without a single block isn't one.
        if (state_ == kDfuIdle)
        {
            return Stall(kErrNotDone);
        }
        state_ = kManifestSync;
        pollsLeft_ = timing_.manifestPolls;
        return {{UsbStatus::Ok, 0}, Leave::No};
    }
    if (setup.value != nextBlock_)
    {
        return Stall(kErrAddress);
    }
    const int block = blocksTaken_;
    if (block == faults_.unplugAtBlock)
    {
        return {{UsbStatus::NoDevice, 0}, Leave::Unplug};
    }
    if (block == faults_.stallAtBlock)
    {
        return Stall(kErrStalledPkt);
    }
    failNextPoll_ = block == faults_.errorAtBlock;
    received_.insert(received_.end(), data, data + setup.length);
    ++nextBlock_;
    ++blocksTaken_;
    state_ = kDnloadSync;
    pollsLeft_ = timing_.busyPolls;
    return {{UsbStatus::Ok, setup.length}, Leave::No};
}

SimDfuDevice::Answer SimDfuDevice::Upload(const UsbControlSetup& setup, uint8_t* data)
{
    if (setup.requestType != kIn || setup.length == 0 || (state_ != kDfuIdle && state_ != kUploadIdle))
    {
        return Stall(kErrStalledPkt);
    }
    if (state_ == kDfuIdle)
    {
        uploadOffset_ = 0;
    }
    const size_t left = firmware_.size() - std::min(uploadOffset_, firmware_.size());
    const size_t count = std::min<size_t>(left, setup.length);
    std::copy(firmware_.begin() + static_cast<std::ptrdiff_t>(uploadOffset_),
              firmware_.begin() + static_cast<std::ptrdiff_t>(uploadOffset_ + count), data);
    uploadOffset_ += count;
    // A short block ends the upload.
    state_ = count < setup.length ? kDfuIdle : kUploadIdle;
    return {{UsbStatus::Ok, count}, Leave::No};
}

void SimDfuDevice::Restart()
{
    state_ = kDfuIdle;
    status_ = kOk;
    nextBlock_ = 0;
    blocksTaken_ = 0;
    pollsLeft_ = 0;
    failNextPoll_ = false;
    uploadOffset_ = 0;
    received_.clear();
}

}  // namespace tidemix::platform::sim
