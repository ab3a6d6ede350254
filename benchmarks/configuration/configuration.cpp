/**
 * What the service's configuration methods cost, beside empty calls on the same bus in the same
 * moment, and where the time of an import goes. docs/benchmarks.md says what each figure means.
 *
 * usage: scripts/sandbox --no-service BUILD/benchmarks/configuration [--quick | --only TEXT]
 *
 * With --only, the operations whose names contain the text, and no import step by step.
 *
 * The configuration is kept in memory first, as in every sandbox, and then in the folder for
 * temporary files (TMPDIR), which is expected to be on a disk.
 *
 * Exit status: 0; 1 when an answer was not the one expected, or the measurement failed.
 */
#include "empty_service.h"
#include "end_to_end/process.h"
#include "environment.h"
#include "measurement.h"
#include "operations.h"
#include "service.h"
#include "support/temp_directory.h"
#include "support/wait_until.h"

#include <norq/confutils.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using namespace configuration;

constexpr const char *FOLDER = "/etc/tovrel";
constexpr std::array<const char *, 2> FILES{"/etc/tovrel/event_to_mqtt_v2.conf",
                                            "/etc/tovrel/subscriptions_v2.conf"};

void printHead(const std::string &title)
{
    std::printf("\n%s\n  %-33s %8s %8s %9s %8s %8s %8s   %s\n", title.c_str(), "", "ms", "best",
                "a second", "x empty", "x size", "rest ms",
                "CPU ms: tovrel    bus  events  device  broker");
}

void print(const Operation &operation, const Result &result)
{
    std::printf("  %-33s %8.3f %8.3f %9.0f %8.1f %8.1f %8.2f   %14.3f %6.3f %7.3f %7.3f %7.3f\n",
                operation.name.c_str(), result.median, result.best, result.rate,
                result.median / result.empty, result.median / result.sameSize, result.rest,
                result.cpu[SERVICE], result.cpu[BUS], result.cpu[EVENT_SERVICE],
                result.cpu[DEVICE_SERVICES], result.cpu[BROKER]);
    std::fflush(stdout);
}

Result measureAndPrint(sd_bus *bus, const Service &service, const Operation &operation,
                       const Options &options)
{
    const Result result = measure(bus, service, operation, options);
    print(operation, result);
    return result;
}

/** Makes the configuration what it is to be. */
void set(sd_bus *bus, const Service &service, const Operation &import)
{
    const auto message = import.make(bus, 0);
    import.check(benchmarks::call(bus, message.get()).get());
    static_cast<void>(service.waitUntilAtRest());
}

/** Begins anew, without a configuration. */
Service startEmpty(sd_bus *bus)
{
    for (const char *file : FILES) {
        std::filesystem::remove(file);
    }
    return Service(bus);
}

/** Has the service keep its files in a folder for temporary files, for as long as this lives. */
class FolderOnDisk {
public:
    FolderOnDisk()
    {
        std::filesystem::remove_all(FOLDER);
        std::filesystem::create_directory_symlink(folder.path(), FOLDER);
    }
    ~FolderOnDisk()
    {
        std::error_code ignored;
        std::filesystem::remove(FOLDER, ignored);
        std::filesystem::create_directory(FOLDER, ignored);
    }
    FolderOnDisk(const FolderOnDisk &) = delete;
    FolderOnDisk &operator=(const FolderOnDisk &) = delete;

private:
    test_support::TempDirectory folder;
};

std::string folderKind()
{
    constexpr decltype(statfs::f_type) TMPFS = 0x01021994;
    struct statfs kind {};
    if (statfs(FOLDER, &kind) != 0) {
        throw std::runtime_error("there is no /etc/tovrel");
    }
    return kind.f_type == TMPFS ? "files in memory" : "files on a disk";
}

void measureAll(sd_bus *bus, int items, const Options &options)
{
    const Service service = startEmpty(bus);
    set(bus, service, importing("", items, true, Items::CONCRETE));
    const std::string count = std::to_string(items);
    printHead(count + " + " + count + " items, " + folderKind());
    for (const Operation &operation : allOperations(items)) {
        if (operation.name.find(options.only) != std::string::npos) {
            measureAndPrint(bus, service, operation, options);
        }
    }
}

/** Saving as the service does it, by this process: two files of the size of the service's. */
double timeOfSaving(const Options &options)
{
    const auto end = Clock::now() + options.time;
    double best = 0;
    do {
        const auto start = Clock::now();
        for (const char *file : FILES) {
            const std::string text(std::filesystem::file_size(file), 'x');
            const std::string copy = std::string(file) + ".copy";
            if (!confutils_set_file_contents_with_sync_mode(
                    copy.c_str(), text.data(), static_cast<gssize>(text.size()), 0640, nullptr)) {
                throw std::runtime_error("cannot save " + copy);
            }
        }
        const std::chrono::duration<double, std::milli> spent = Clock::now() - start;
        best = best == 0 ? spent.count() : std::min(best, spent.count());
    } while (Clock::now() < end);
    return best;
}

/** Where the time of an import goes: imports that do more and more of it. */
void takeImportApart(sd_bus *bus, const Options &options)
{
    if (!options.only.empty()) {
        return;
    }
    const int items = options.items;
    printHead("an import, step by step, " + folderKind());
    {
        const Service service = startEmpty(bus);
        set(bus, service, importing("", 1, true, Items::CONCRETE));
        measureAndPrint(bus, service,
                        importing("refused at its last item", items, false, Items::LAST_BAD),
                        options);
    }
    for (const auto &[name, kind] : {std::pair("of undeclared items (a/+)", Items::WILDCARDS),
                                     std::pair("of declared items (a/b)", Items::CONCRETE)}) {
        const Service service = startEmpty(bus);
        const Operation import = importing(name, items, true, kind);
        set(bus, service, import);
        measureAndPrint(bus, service, import, options);
    }
    std::printf("  %-33s %17.3f\n", "the two files saved, by itself", timeOfSaving(options));
}

Options readOptions(int argc, char **argv)
{
    Options options;
    if (argc == 2 && std::strcmp(argv[1], "--quick") == 0) {
        options = {std::chrono::milliseconds(1), 16, 1, 1, ""};
    } else if (argc == 3 && std::strcmp(argv[1], "--only") == 0) {
        options.only = argv[2];
    } else if (argc > 1) {
        throw std::runtime_error(std::string("unknown option: ") + argv[1]);
    }
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const Options options = readOptions(argc, argv);
        std::printf("%s\n", benchmarks::machineLine().c_str());
        benchmarks::allowOwnName();
        const end_to_end::Role emptyService(serveEmptyMethods);
        const benchmarks::Bus bus = benchmarks::openBus();
        if (!test_support::waitUntil(
                [&] { return benchmarks::isOwned(bus.get(), benchmarks::OWN_NAME); })) {
            throw std::runtime_error("the empty service did not start");
        }
        measureAll(bus.get(), 1, options);
        measureAll(bus.get(), options.items, options);
        takeImportApart(bus.get(), options);

        const FolderOnDisk onDisk;
        measureAll(bus.get(), 1, options);
        takeImportApart(bus.get(), options);
        return EXIT_SUCCESS;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
