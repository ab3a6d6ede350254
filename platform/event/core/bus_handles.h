/** Owning types for the handles of sd-bus and sd-event, and for file descriptors. */
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <memory>
#include <utility>

namespace norq::event {

/** Deleter that calls one C function. */
template <auto Release>
struct ReleaseWith {
    template <typename Handle>
    void operator()(Handle *handle) const noexcept
    {
        Release(handle);
    }
};

/** A bus connection. Closing it waits for nothing: what is still to be written is lost. */
using Bus = std::unique_ptr<sd_bus, ReleaseWith<sd_bus_close_unref>>;
using BusMessage = std::unique_ptr<sd_bus_message, ReleaseWith<sd_bus_message_unref>>;
/** A match, pending call or object; ends with the handle. */
using BusSlot = std::unique_ptr<sd_bus_slot, ReleaseWith<sd_bus_slot_unref>>;
using BusTrack = std::unique_ptr<sd_bus_track, ReleaseWith<sd_bus_track_unref>>;
using EventLoop = std::unique_ptr<sd_event, ReleaseWith<sd_event_unref>>;
/** A source of an event loop; disabled with the handle, even while it is being dispatched. */
using EventSource = std::unique_ptr<sd_event_source, ReleaseWith<sd_event_source_disable_unref>>;

/** The error of a bus call. */
class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error); }
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;

    /** For the call that fills it in. */
    sd_bus_error *out() { return &error; }
    [[nodiscard]] const sd_bus_error *get() const { return &error; }
    [[nodiscard]] const char *text() const { return error.message == nullptr ? "" : error.message; }

private:
    sd_bus_error error{};
};

/** A file descriptor; -1 when it holds none. */
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : number(descriptor) {}
    Descriptor(Descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        reset(std::exchange(other.number, -1));
        return *this;
    }
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return number; }
    explicit operator bool() const { return number >= 0; }
    /** Closes what it holds and takes over another one. */
    void reset(int descriptor = -1)
    {
        if (number >= 0) {
            close(number);
        }
        number = descriptor;
    }

private:
    int number = -1;
};

/**
 * Receives an out-parameter of a C call: `call(Out(handle))`. The handle has it at the end of the
 * full expression, not earlier.
 */
template <typename Owner>
class Out {
public:
    explicit Out(Owner &target) : owner(target) {}
    Out(const Out &) = delete;
    Out &operator=(const Out &) = delete;
    ~Out() { owner.reset(raw); }

    operator typename Owner::pointer *() { return &raw; }

private:
    Owner &owner;
    typename Owner::pointer raw = nullptr;
};

} // namespace norq::event
