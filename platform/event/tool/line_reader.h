/** Lines of text from a descriptor, as they come. */
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace norq::tool {

/** Cuts what is read into lines. A line longer than the limit is an error, not a memory leak. */
class LineReader {
public:
    /** Longest line in bytes: an event of the largest size with every character escaped fits. */
    static constexpr std::size_t LONGEST = 1024UL * 1024;

    explicit LineReader(int descriptor) : source(descriptor) {}

    /**
     * Reads once, which blocks unless there is something to read, and hands every line that is
     * complete to `take`, without its line feed; at the end of input also a last line without one.
     *
     * @return false at the end of input
     * Throws Failure when reading fails or a line is too long.
     */
    bool readOnce(const std::function<void(const std::string &)> &take);

private:
    void takeLines(const std::function<void(const std::string &)> &take);

    int source;
    std::string buffer;
};

} // namespace norq::tool
