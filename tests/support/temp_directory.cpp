#include "support/temp_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace test_support {

TempDirectory::TempDirectory()
    : location((std::filesystem::temp_directory_path() / "test-XXXXXX").string())
{
    if (mkdtemp(location.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
}

TempDirectory::~TempDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(location, ignored);
}

} // namespace test_support
