#include "environment.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace benchmarks {

std::string fromSandbox(const char *name)
{
    const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): there is one thread
    if (value == nullptr) {
        throw std::runtime_error("run this inside scripts/sandbox --no-service");
    }
    return value;
}

pid_t processOfSandbox(const std::string &service)
{
    std::ifstream file(fromSandbox("SANDBOX_DIR") + "/" + service + ".pid");
    pid_t process = 0;
    if (!(file >> process)) {
        throw std::runtime_error("the sandbox's " + service + " does not run");
    }
    return process;
}

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string machineLine()
{
    std::string average;
    std::ifstream("/proc/loadavg") >> average;
    return std::to_string(std::thread::hardware_concurrency()) +
           " processors, load average at the start " + average;
}

} // namespace benchmarks
