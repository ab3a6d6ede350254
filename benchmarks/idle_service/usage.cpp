#include "usage.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace {

std::string folderOf(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

/** The numbers of lines that read "Name:  number ...". */
std::map<std::string, long> numbersIn(const std::string &path)
{
    std::ifstream file(path);
    std::map<std::string, long> numbers;
    std::string line;
    while (std::getline(file, line)) {
        const std::size_t colon = line.find(':');
        const std::size_t digit = line.find_first_of("0123456789", colon);
        if (colon != std::string::npos && digit != std::string::npos) {
            numbers.emplace(line.substr(0, colon), std::stol(line.substr(digit)));
        }
    }
    if (numbers.empty()) {
        throw std::runtime_error("cannot read " + path);
    }
    return numbers;
}

long librariesOf(pid_t process)
{
    std::ifstream file(folderOf(process) + "/maps");
    std::set<std::string> paths;
    std::string line;
    while (std::getline(file, line)) {
        const std::size_t path = line.find('/');
        if (path != std::string::npos && line.find(".so", path) != std::string::npos) {
            paths.insert(line.substr(path));
        }
    }
    return static_cast<long>(paths.size());
}

} // namespace

Memory memoryOf(pid_t process)
{
    const auto numbers = numbersIn(folderOf(process) + "/smaps_rollup");
    Memory memory;
    memory.rss = numbers.at("Rss");
    memory.pss = numbers.at("Pss");
    memory.privateKib = numbers.at("Private_Clean") + numbers.at("Private_Dirty");
    memory.anonymous = numbers.at("Anonymous");
    memory.libraries = librariesOf(process);
    return memory;
}

std::map<std::string, long> wakeUpsOf(pid_t process)
{
    std::map<std::string, long> counts;
    for (const auto &task : std::filesystem::directory_iterator(folderOf(process) + "/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        const auto numbers = numbersIn(task.path() / "status");
        counts.emplace(name + " " + task.path().filename().string(),
                       numbers.at("voluntary_ctxt_switches"));
    }
    return counts;
}

std::map<std::string, long> difference(std::map<std::string, long> after,
                                       const std::map<std::string, long> &before)
{
    for (auto &[thread, count] : after) {
        const auto found = before.find(thread);
        count -= found == before.end() ? 0 : found->second;
    }
    std::erase_if(after, [](const auto &entry) { return entry.second == 0; });
    return after;
}
