#pragma once

#include <cstdint>
#include <string>

#include "microphones/DRMXAudioInputAccess.h"
#include "microphones/DRMXMicrophoneConfigurationRequest.h"
#include "microphones/DRMXMicrophoneHelperBase.h"
#include "microphones/IOKitUsb.h"
#include "portable-core/DRAVResult.h"

// The control object of one connected microphone: its block, and the device
// it reads the block from and writes it to. The device is opened at
// construction (unless it is in DFU mode, which the firmware update opens)
// and closed at destruction. No lock: everything runs on the caller's
// thread, and a request blocks it for at most its timeout.
template <typename T>
class DRMXMicrophoneHelper : public DRMXMicrophoneHelperBase<T>
{
public:
    DRMXMicrophoneHelper(uint32_t locationId, uint16_t vendorId, uint16_t productId, std::string serialNumber)
        : vendorId(vendorId),
          productId(productId),
          locationId(locationId),
          serialNumber(std::move(serialNumber))
    {
        if (auto ref = IOKit::GetDeviceRefAtLocation(vendorId, productId, locationId))
        {
            usbDevice = IOKit::GetDeviceInterfaceRefForDeviceRefAndOpenDevice(*ref, !IsDFUInterface());
        }
    }

    ~DRMXMicrophoneHelper() override { IOKit::CloseDevice(usbDevice); }

    DRMXMicrophoneHelper(const DRMXMicrophoneHelper&) = delete;
    DRMXMicrophoneHelper& operator=(const DRMXMicrophoneHelper&) = delete;

    // Bytes read into data; 0 without a device or when the request fails.
    virtual unsigned int RetrieveConfiguration(unsigned char* data, unsigned int size, unsigned char selector,
                                               bool useCommonRequest)
    {
        return DRMXMicrophoneConfigurationRequest::Retrieve(usbDevice.get(), data, size, selector,
                                                            useCommonRequest);
    }

    // Bytes written from data; 0 without a device or when the request fails.
    virtual unsigned int TransferConfiguration(unsigned char* data, unsigned int size, unsigned char selector,
                                               bool useCommonRequest)
    {
        return DRMXMicrophoneConfigurationRequest::Transfer(usbDevice.get(), data, size, selector,
                                                            useCommonRequest);
    }

    virtual tidemix::platform::UsbDeviceHandle* GetUSBDeviceInterface() const { return usbDevice.get(); }

    virtual bool IsDFUInterface() { return DRMXMicrophoneConfigurationRequest::IsDFUProductId(productId); }

    // Open, and the device still there: a device unplugged since is treated
    // as never opened, so no request goes to a handle whose device is gone.
    bool IsMicrophoneConnected() override { return usbDevice != nullptr && usbDevice->IsAttached(); }

    DRAVResult ReadMicrophoneConfiguration(int& bytesRead) override
    {
        bytesRead = 0;
        DRAVResult result(kDRAVResultErrNotInitialized);
        if (IsMicrophoneConnected())
        {
            bytesRead = static_cast<int>(
                RetrieveConfiguration(this->block.Data(), T::kSize, 0, this->useCommonRequest));
            result = FinishRequest(bytesRead);
        }
        result.LogError("ReadMicrophoneConfiguration");
        return result;
    }

    DRAVResult WriteMicrophoneConfiguration() override
    {
        DRAVResult result(kDRAVResultErrNotInitialized);
        if (IsMicrophoneConnected())
        {
            const int written = static_cast<int>(
                TransferConfiguration(this->block.Data(), T::kSize, 0, this->useCommonRequest));
            result = FinishRequest(written);
        }
        result.LogError("SetMicrophoneSettings");
        result.LogError("WriteMicrophoneConfiguration");
        return result;
    }

    std::string GetSerialNumber() const override { return serialNumber; }

    static bool RequestAccessToAudioInputDevices() { return __RequestAccessToAudioInputDevices(); }

    uint16_t GetVendorId() const { return vendorId; }
    uint16_t GetProductId() const { return productId; }
    uint32_t GetLocationId() const { return locationId; }

private:
    // A stall or timeout moves 0 bytes and is no failure: callers look at
    // the count. Only a device that went away during the request fails.
    DRAVResult FinishRequest(int count)
    {
        if (count < 0)
        {
            return kDRAVResultErrNoData;
        }
        if (count == 0 && !IsMicrophoneConnected())
        {
            return kDRAVResultErrNotInitialized;
        }
        return kDRAVResultOk;
    }

    uint16_t vendorId;
    uint16_t productId;
    uint32_t locationId;
    IOKit::DeviceInterface usbDevice;
    std::string serialNumber;
};
