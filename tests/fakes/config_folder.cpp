#include "fakes/config_folder.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace tovrel::test {

namespace {

class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = std::filesystem::temp_directory_path() / "tovrel-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
        path = name;
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::filesystem::path path;
};

} // namespace

const std::filesystem::path &configFolder()
{
    static const TemporaryFolder FOLDER;
    return FOLDER.path;
}

void emptyConfigFolder()
{
    for (const auto &entry : std::filesystem::directory_iterator(configFolder())) {
        std::filesystem::remove_all(entry.path());
    }
}

void writeFile(const std::filesystem::path &path, const std::string &contents)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << contents;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

} // namespace tovrel::test
