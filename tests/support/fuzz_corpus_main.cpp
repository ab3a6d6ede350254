/** Runs a fuzz target over the files named on the command line; fails when there are none. */
#include "support/fuzz.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char **argv)
{
    for (int number = 1; number < argc; ++number) {
        std::ifstream file(argv[number], std::ios::binary);
        test_support::require(file.is_open(), argv[number]);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(content.data()),
                               content.size());
    }
    return argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
