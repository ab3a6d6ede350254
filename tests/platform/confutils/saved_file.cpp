#include "saved_file.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

SavedFile::SavedFile(const std::string &content)
{
    writePlainly(path(), content);
}

std::string SavedFile::content() const
{
    return readWhole(path());
}

int SavedFile::mode() const
{
    struct stat status {};
    return lstat(path().c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

std::vector<std::string> SavedFile::otherNames() const
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder())) {
        if (entry.path() != path()) {
            names.push_back(entry.path().filename());
        }
    }
    return names;
}

void writePlainly(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    if (!file || chmod(path.c_str(), CONFIGURATION_MODE) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string readWhole(const std::string &path)
{
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        return ABSENT;
    }
    return {std::istreambuf_iterator<char>(file.rdbuf()), std::istreambuf_iterator<char>()};
}
