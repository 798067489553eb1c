#pragma once

// Owners for sd-bus objects and file descriptors, shared by the linux
// backend's logind and RealtimeKit clients. Only platform/linux includes this.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace tidemix::platform::linuxos
{

struct SdBusCloser
{
    // Flushes what is queued (a last release of a lock) before closing.
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct SdBusMessageUnref
{
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
struct SdBusSlotUnref
{
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SdBusPtr = std::unique_ptr<sd_bus, SdBusCloser>;
using SdBusMessagePtr = std::unique_ptr<sd_bus_message, SdBusMessageUnref>;
using SdBusSlotPtr = std::unique_ptr<sd_bus_slot, SdBusSlotUnref>;

// An sd_bus_error that frees itself.
class SdBusError
{
public:
    SdBusError() = default;
    ~SdBusError() { sd_bus_error_free(&error_); }
    SdBusError(const SdBusError&) = delete;
    SdBusError& operator=(const SdBusError&) = delete;

    sd_bus_error* get() { return &error_; }
    // The bus's message when there is one, else the errno text of `code`.
    std::string Describe(int code) const;

private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// An owned file descriptor.
class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
        {
            reset(other.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
        {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// A connection to the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set), or null
// with the reason.
SdBusPtr OpenSystemBus(std::string* whyNot);

// How long one call to logind or RealtimeKit may take before it counts as failed.
constexpr uint64_t kBusCallTimeoutUsec = 2'000'000;

// Calls logind's Inhibit(what, who, why, mode) and returns the lock's file
// descriptor (closing it releases the lock); invalid, with the reason, when
// logind does not answer with one.
UniqueFd TakeInhibitor(sd_bus* bus, const char* what, const char* why, const char* mode, std::string* whyNot);

}  // namespace tidemix::platform::linuxos
