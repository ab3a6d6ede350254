/** The command that reads a configuration from a file. */
#include "command_line/command_line.h"
#include "command_line/output.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/document_changes.h"
#include "tovrelctl/document_check.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/files.h"
#include "tovrelctl/findings.h"
#include "tovrelctl/import_steps.h"
#include "tovrelctl/output.h"
#include "tovrelctl/printable.h"
#include "tovrelctl/service.h"

#include <exception>
#include <optional>
#include <utility>

namespace tovrelctl {

namespace {

using Changes = std::vector<Change>;

/** Four times what the service takes in one request: blanks and line breaks do not go there. */
constexpr std::size_t MOST_BYTES = 4UL * 1024 * 1024;

Json readDocument(const std::string &file)
{
    const std::string text = readWhole(file, MOST_BYTES);
    const std::string name = file == STANDARD_STREAM ? "standard input" : file;
    json_error_t failure;
    Json document(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &failure));
    if (!document) {
        throw Failure(name + ": line " + std::to_string(failure.line) + ": " + failure.text);
    }
    try {
        checkDocument(document.get());
    } catch (const Failure &finding) {
        throw Failure(name + ": " + finding.what());
    }
    return document;
}

Json changeValue(const json_t *value)
{
    return value != nullptr ? owned(json_copy(const_cast<json_t *>(value))) : owned(json_null());
}

void printJsonChanges(const Changes &changes, bool applied)
{
    Json list = owned(json_array());
    for (const Change &change : changes) {
        Json entry = owned(json_object());
        put(entry.get(), "what", textValue(change.what));
        put(entry.get(), "before", changeValue(change.before.get()));
        put(entry.get(), "after", changeValue(change.after.get()));
        append(list.get(), std::move(entry));
    }
    Json result = owned(json_object());
    put(result.get(), "applied", owned(json_boolean(applied)));
    put(result.get(), "changes", std::move(list));
    printJson(result.get());
}

void printChanges(const GlobalOptions &options, const Changes &changes, bool applied)
{
    if (options.json) {
        printJsonChanges(changes, applied);
        return;
    }
    std::string text;
    for (const Change &change : changes) {
        text += printable(describe(change)) + "\n";
    }
    command_line::print(text + std::to_string(changes.size()) +
                        (applied ? " changed\n" : " would change; nothing was done\n"));
}

/** The service would refuse what is beyond its limits, but is not asked in a dry run. */
void checkLimits(const json_t *after)
{
    const auto check = [](const json_t *items, const std::string &words) {
        const std::size_t count = json_array_size(items);
        if (count > MOST_ITEMS) {
            throw Failure("there would be " + std::to_string(count) + " " + words +
                          ", and tovrel takes 256");
        }
    };
    check(json_object_get(after, "subscription"), "subscriptions");
    check(json_object_get(json_object_get(after, "publication"), "eventFilter"), "filters");
}

/** Tells what an import that failed has changed all the same. */
void tellState(const GlobalOptions &options, Service &service, const Json &before, Failure &failure)
{
    std::optional<Changes> changes;
    try {
        changes = differences(before.get(), service.configuration().get());
    } catch (const Failure &) {
        failure.addAdvice("What was changed cannot be told now. Later: tovrelctl show");
        return;
    }
    if (changes->empty()) {
        failure.addAdvice("Nothing was changed.");
        return;
    }
    try {
        printChanges(options, *changes, true);
    } catch (const std::exception &) {
        failure.addAdvice("What was changed cannot be told here: tovrelctl show");
        return;
    }
    failure.addAdvice("Only what is listed was changed.");
}

/** Tells what an import has changed, or would, and what of that cannot be used. */
void report(const GlobalOptions &options, const Json &before, const Json &after, bool applied)
{
    printChanges(options, differences(before.get(), after.get()), applied);
    warn(findingsOnDocument(additions(before.get(), after.get()).get()));
}

void apply(const GlobalOptions &options, Service &service, const Json &before, const Json &document,
           bool replace)
{
    try {
        if (replace) {
            importReplacing(service, before, document);
        } else {
            importChanges(service, before, predict(before.get(), document.get(), false));
        }
    } catch (Failure &failure) {
        tellState(options, service, before, failure);
        throw;
    }
}

} // namespace

int runImport(GlobalOptions options, const Words &words)
{
    bool replace = false;
    bool dryRun = false;
    command_line::CommandLine line(
        "tovrelctl", "import", "FILE",
        "Reads a configuration from a file, \"-\" is standard input, and says what\n"
        "changes: \"+\" new, \"~\" changed, \"-\" gone.",
        "Without --replace, what the file does not mention stays as it is.");
    line.flag("replace", "Reset first what the file does not mention", replace);
    line.flag("dry-run", "Only say what would change", dryRun);
    const Json document = readDocument(onlyOne(parse(line, options, words), "FILE"));

    Service service = options.connect();
    const Json before = service.configuration();
    if (dryRun) {
        const Json after = predict(before.get(), document.get(), replace);
        checkLimits(after.get());
        report(options, before, after, false);
        return EXIT_DONE;
    }
    apply(options, service, before, document, replace);
    report(options, before, service.configuration(), true);
    return EXIT_DONE;
}

} // namespace tovrelctl
