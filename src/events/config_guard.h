/** Ties a configuration object to the mutex of the one who owns it as the live configuration. */
#pragma once

#include <mutex>

namespace tovrel {

/**
 * The mutex that guards changes of a live configuration, or none for a private copy.
 *
 * The live configuration is read and changed by the main thread and copied by worker threads.
 * Every change therefore takes this lock; the main thread's own reads need none, because nobody
 * else changes anything. Copying a configuration never copies its guard: a copy is private.
 */
class ConfigGuard {
public:
    ConfigGuard() = default;
    ConfigGuard(const ConfigGuard &) noexcept {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is assigned
    ConfigGuard &operator=(const ConfigGuard &) noexcept { return *this; }
    ~ConfigGuard() = default;

    /** `owner` must outlive the configuration; null makes it a private one again. */
    void set(std::mutex *owner) noexcept { mutex = owner; }
    [[nodiscard]] std::mutex *get() const noexcept { return mutex; }

    /** Locks the mutex if there is one, for as long as the result lives. */
    [[nodiscard]] std::unique_lock<std::mutex> lock() const
    {
        return mutex == nullptr ? std::unique_lock<std::mutex>() : std::unique_lock(*mutex);
    }

private:
    std::mutex *mutex = nullptr;
};

} // namespace tovrel
