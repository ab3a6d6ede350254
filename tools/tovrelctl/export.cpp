/** The command that writes the whole configuration to a file. */
#include "command_line/command_line.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/files.h"
#include "tovrelctl/output.h"
#include "tovrelctl/service.h"

namespace tovrelctl {

int runExport(GlobalOptions options, const Words &words)
{
    command_line::CommandLine line(
        "tovrelctl", "export", "FILE",
        "Writes the whole configuration to a file, as JSON; \"-\" is standard output.",
        "\"tovrelctl import FILE --replace\" brings it back.");
    const std::string file = onlyOne(parse(line, options, words), "FILE");
    Service service = options.connect();
    const Json document = service.configuration();
    if (file == STANDARD_STREAM) {
        printJson(document.get());
    } else {
        replaceFile(file, dump(document.get(), true) + '\n');
    }
    return EXIT_DONE;
}

} // namespace tovrelctl
