/** A fresh folder that goes with its content. */
#pragma once

#include <string>

namespace test_support {

/** Makes a folder of its own in the system's folder for temporary files, removes it at the end. */
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory &) = delete;
    TempDirectory &operator=(const TempDirectory &) = delete;

    /** Absolute path, without a slash at the end. */
    [[nodiscard]] const std::string &path() const { return location; }
    /** Path of a file in it. */
    [[nodiscard]] std::string file(const std::string &name) const { return location + "/" + name; }

private:
    std::string location;
};

} // namespace test_support
