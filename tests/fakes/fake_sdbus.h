/**
 * Stands in for the functions of sd-bus and sd-event that the service calls: puts every call on the
 * list of call_record.h, answers as scripted and fails on demand. Linked into the test program,
 * where it takes precedence over the real library. One thread.
 */
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tovrel::test {

class FakeSdBus {
public:
    /** A method table that was put on the bus. */
    struct Table {
        std::string path;
        std::string interface;
        const sd_bus_vtable *entries;
        void *userData;
    };

    /** A function that was handed over, to be called with `callHandler`. */
    struct Handler {
        sd_bus_message_handler_t function = nullptr;
        void *userData = nullptr;
    };

    /** The one fake of the test program. */
    static FakeSdBus &instance();

    /** Back to a bus on which everything succeeds and nobody answers anything but empty. */
    void reset() { *this = FakeSdBus(); }

    /**
     * What `function` returns from now on instead of its success. Adding a table and entering a
     * container are told apart by their target: "sd_bus_add_object_vtable <interface>",
     * "sd_bus_message_enter_container a" and "... e".
     */
    void answer(const std::string &function, int result) { results[function] = result; }

    /** Records a call; the scripted answer of the function, otherwise `success`. */
    int note(const std::string &function, const std::string &arguments, int success);

    /** Calls a handler the way the bus does, with neither message nor error of interest. */
    static int callHandler(const Handler &handler);

    std::vector<Table> tables;
    /** Of the last signal match. */
    Handler matched;
    /** Of the last release of a name. */
    Handler released;

    /** What a property read yields, from the C allocator; nothing: a null text. */
    std::optional<std::string> property = "";
    /** Message of the error that a failing method call leaves; nothing: no message. */
    std::optional<std::string> errorMessage;
    /** The entries of the reply to a method call. */
    std::vector<std::pair<std::string, std::string>> replyEntries;
    /** Which entry cannot be read; none by default. */
    std::optional<std::size_t> unreadableEntry;

    /** References to the reply that are held. */
    int replyReferences = 0;
    /** References to the event loop that are held. */
    int loopReferences = 0;
    /** Errors that were filled and not freed yet. */
    int errorsToFree = 0;
    /** The entry that the walk over the reply has reached. */
    std::size_t nextEntry = 0;

    /** The connection and the event loop that are handed out; never looked into. */
    sd_bus *bus();
    sd_event *loop();
    sd_bus_message *reply();

private:
    std::map<std::string, int> results;
};

} // namespace tovrel::test
