/** Commands that carry the whole configuration to a file and back. */
#include "command_line/command_line.h"
#include "command_line/usage_error.h"
#include "interfaces/c_handles.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/document.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/output.h"
#include "tovrelctl/service.h"
#include "tovrelctl/table.h"

#include <unistd.h>

#include <cstdio>

namespace tovrelctl {

namespace {

using command_line::CommandLine;
using command_line::UsageError;
using tovrel::ErrorHandle;
using tovrel::OutParameter;

/** The service takes no longer request. */
constexpr std::size_t MOST_BYTES = 1048576;

Json currentDocument(Service &service)
{
    return service.request({.operation = "get", .omitReadOnly = true});
}

std::string fileArgument(CommandLine &line, const std::vector<std::string> &words)
{
    const std::vector<std::string> files = line.parse(words);
    if (files.size() != 1) {
        throw UsageError("exactly one FILE is expected");
    }
    return files.front();
}

void writeFile(const std::string &file, const std::string &text)
{
    ErrorHandle error;
    if (!g_file_set_contents_full(file.c_str(), text.data(), static_cast<gssize>(text.size()),
                                  G_FILE_SET_CONTENTS_CONSISTENT, 0640, OutParameter(error))) {
        throw Failure(tovrel::errorText(error));
    }
}

/** Standard input to its end; one byte more than is allowed is enough to know. */
std::string readInput()
{
    std::string text;
    std::string part(65536, '\0');
    for (std::size_t got = 0;
         text.size() <= MOST_BYTES && (got = std::fread(part.data(), 1, part.size(), stdin)) > 0;) {
        text.append(part, 0, got);
    }
    return text;
}

std::string readFile(const std::string &file)
{
    if (file == "-") {
        return readInput();
    }
    ErrorHandle error;
    tovrel::GText text;
    gsize length = 0;
    if (!g_file_get_contents(file.c_str(), OutParameter(text), &length, OutParameter(error))) {
        throw Failure(tovrel::errorText(error));
    }
    return {text.get(), length};
}

Json readDocument(const std::string &file)
{
    const std::string text = readFile(file);
    if (text.size() > MOST_BYTES) {
        throw Failure(file + ": larger than the service takes, 1 MiB");
    }
    json_error_t failure;
    Json document(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &failure));
    if (!document) {
        throw Failure(file + ": line " + std::to_string(failure.line) + ": " + failure.text);
    }
    try {
        checkDocument(document.get());
    } catch (const Failure &finding) {
        throw Failure(file + ": " + finding.what());
    }
    return document;
}

Json changeValue(const std::optional<std::string> &text)
{
    return text ? textValue(*text) : owned(json_null());
}

void printChanges(const GlobalOptions &options, const std::vector<Change> &changes, bool applied)
{
    if (options.json) {
        Json list = owned(json_array());
        for (const Change &change : changes) {
            Json entry = owned(json_object());
            put(entry.get(), "what", textValue(change.what));
            put(entry.get(), "before", changeValue(change.before));
            put(entry.get(), "after", changeValue(change.after));
            append(list.get(), std::move(entry));
        }
        Json result = owned(json_object());
        put(result.get(), "applied", owned(json_boolean(applied)));
        put(result.get(), "changes", std::move(list));
        printJson(result.get());
        return;
    }
    std::string text;
    for (const Change &change : changes) {
        const char *const sign = !change.before ? "+ " : change.after ? "~ " : "- ";
        text += sign + change.what + ": " + printable(change.before.value_or("")) +
                (change.before && change.after ? " -> " : "") +
                printable(change.after.value_or("")) + "\n";
    }
    print(text + std::to_string(changes.size()) +
          (applied ? " changed\n" : " would change; nothing was done\n"));
}

/** Imports; what a replacing import left behind when it failed is put right again. */
void import(Service &service, const Json &document, const Json &before, bool replace)
{
    try {
        service.request({.operation = "import", .data = share(document.get()), .replace = replace});
    } catch (const Refused &refusal) {
        if (replace) {
            service.request({.operation = "import", .data = share(before.get()), .replace = true});
        }
        throw Failure(std::string("nothing was imported: ") + refusal.what());
    }
}

} // namespace

int runExport(const GlobalOptions & /*options*/, const std::vector<std::string> &words)
{
    CommandLine line("tovrelctl", "export", "FILE",
                     "Writes the whole configuration to a file; \"-\" is standard output.",
                     "\"tovrelctl import FILE --replace\" brings it back.");
    const std::string file = fileArgument(line, words);
    Service service;
    const std::string text = dump(currentDocument(service).get(), true) + '\n';
    file == "-" ? print(text) : writeFile(file, text);
    return EXIT_DONE;
}

int runImport(const GlobalOptions &options, const std::vector<std::string> &words)
{
    bool replace = false;
    bool dryRun = false;
    CommandLine line("tovrelctl", "import", "FILE",
                     "Reads a configuration from a file, \"-\" is standard input, and says what\n"
                     "changes: \"+\" new, \"~\" changed, \"-\" gone.",
                     "Without --replace, what the file does not mention stays as it is.");
    line.flag("replace", "Reset first what the file does not mention", replace);
    line.flag("dry-run", "Only say what would change", dryRun);
    const std::string file = fileArgument(line, words);
    const Json document = readDocument(file);
    Service service;
    const Json before = currentDocument(service);
    if (dryRun) {
        const Json after = predict(before.get(), document.get(), replace);
        printChanges(options, differences(before.get(), after.get()), false);
        return EXIT_DONE;
    }
    import(service, document, before, replace);
    printChanges(options, differences(before.get(), currentDocument(service).get()), true);
    return EXIT_DONE;
}

} // namespace tovrelctl
