#include "tovrelctl/commands.h"

#include <clocale>

/**
 * tovrelctl: configures the service over the system bus. Everything happens in the command that the
 * first word names (commands.h).
 */
int main(int argc, char *argv[])
{
    // for the texts of the help
    std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    return tovrelctl::runTool({argv + 1, argv + argc});
}
