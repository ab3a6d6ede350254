/** A message bus of the test's own, announced to this process and its children as the system bus.
 */
#pragma once

#include "support/child_process.h"
#include "support/temp_directory.h"

#include <memory>
#include <string>
#include <vector>

namespace test_support {

/**
 * Runs a dbus-daemon on a socket in a fresh folder and points DBUS_SYSTEM_BUS_ADDRESS at it for
 * its own life. To be made and destroyed while the process has no other thread that reads the
 * environment.
 */
class PrivateBus {
public:
    /**
     * Starts the bus and waits until it can be connected to. Everybody may own every name and call
     * everything.
     *
     * @param serviceFolders folders with D-Bus service files for activation
     */
    explicit PrivateBus(std::vector<std::string> serviceFolders = {});
    ~PrivateBus();
    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    /** The D-Bus address. */
    [[nodiscard]] const std::string &address() const { return busAddress; }
    /** A folder for files of the test, removed with the bus. */
    [[nodiscard]] const TempDirectory &folder() const { return directory; }

    /** Kills the bus: every connection is lost. */
    void stop();
    /** Starts it again at the same address. */
    void start();

private:
    TempDirectory directory;
    std::string busAddress;
    std::string formerAddress;
    bool hadAddress = false;
    std::unique_ptr<ChildProcess> daemon;
};

} // namespace test_support
