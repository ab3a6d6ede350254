#include "fakes/fake_config_paths.h"

#include "events/publication_paths.h"
#include "mqtt/config_paths.h"

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

namespace tovrel {

const char *subscriptionsFile() noexcept
{
    static const std::string PATH = test::configFolder() / "subscriptions_v2.conf";
    return PATH.c_str();
}

const char *legacySubscriptionsFile() noexcept
{
    static const std::string PATH = test::configFolder() / "subscriptions.conf";
    return PATH.c_str();
}

const char *publicationFile() noexcept
{
    static const std::string PATH = test::configFolder() / "event_to_mqtt_v2.conf";
    return PATH.c_str();
}

const char *legacyPublicationFile() noexcept
{
    static const std::string PATH = test::configFolder() / "event_to_mqtt.conf";
    return PATH.c_str();
}

} // namespace tovrel
