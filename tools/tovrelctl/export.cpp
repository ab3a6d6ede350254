/** The command that writes the whole configuration to a file. */
#include "command_line/command_line.h"
#include "command_line/output.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/files.h"
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
    const std::string text = dump(service.configuration().get(), true) + '\n';
    if (file == STANDARD_STREAM) {
        command_line::print(text);
    } else {
        replaceFile(file, text);
    }
    return EXIT_DONE;
}

} // namespace tovrelctl
