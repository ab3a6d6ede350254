#include "support/private_bus.h"

#include "support/wait_until.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace test_support {
namespace {

constexpr const char *ADDRESS_VARIABLE = "DBUS_SYSTEM_BUS_ADDRESS";

void writeConfiguration(const std::string &path, const std::string &address,
                        const std::vector<std::string> &serviceFolders)
{
    std::ofstream file(path);
    file << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig>\n<type>custom</type>\n<listen>"
         << address << "</listen>\n<auth>EXTERNAL</auth>\n";
    for (const std::string &folder : serviceFolders) {
        file << "<servicedir>" << folder << "</servicedir>\n";
    }
    file << "<policy context=\"default\">\n<allow user=\"*\"/>\n<allow own=\"*\"/>\n"
            "<allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
            "<allow eavesdrop=\"true\"/>\n</policy>\n</busconfig>\n";
}

} // namespace

PrivateBus::PrivateBus(std::vector<std::string> serviceFolders)
    : busAddress("unix:path=" + directory.file("bus"))
{
    writeConfiguration(directory.file("bus.conf"), busAddress, serviceFolders);
    if (const char *former = std::getenv(ADDRESS_VARIABLE)) { // NOLINT(concurrency-mt-unsafe): one
        hadAddress = true;                                    // thread, as documented
        formerAddress = former;
    }
    setenv(ADDRESS_VARIABLE, busAddress.c_str(), 1); // NOLINT(concurrency-mt-unsafe): as above
    start();
}

PrivateBus::~PrivateBus()
{
    stop();
    if (hadAddress) {
        setenv(ADDRESS_VARIABLE, formerAddress.c_str(), 1); // NOLINT(concurrency-mt-unsafe): above
    } else {
        unsetenv(ADDRESS_VARIABLE); // NOLINT(concurrency-mt-unsafe): as above
    }
}

void PrivateBus::stop()
{
    daemon.reset();
}

void PrivateBus::start()
{
    unlink(directory.file("bus").c_str());
    daemon = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/usr/bin/dbus-daemon", "--nofork", "--print-address",
                                 "--config-file=" + directory.file("bus.conf")});
    const bool ready =
        waitUntil([this] { return daemon->standardOutput().find('\n') != std::string::npos; });
    if (!ready) {
        throw std::runtime_error("the private bus did not start: " + daemon->standardError());
    }
}

} // namespace test_support
