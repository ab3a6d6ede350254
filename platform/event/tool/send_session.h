/** The run of "norq-event send": repeats, holds, and takes new values from standard input. */
#pragma once

#include "event/tool/event_sender.h"
#include "event/tool/handles.h"
#include "event/tool/interruption.h"
#include "event/tool/line_reader.h"
#include "event/tool/send_options.h"

#include <string>

namespace norq::tool {

/** Everything happens on the thread of run(), in a main loop of its own. */
class SendSession {
public:
    /** Declares the event; throws Failure. */
    explicit SendSession(const SendOptions &given);

    /** Sends until there is nothing more to do; gives the exit status. */
    int run();

private:
    static gboolean onTimer(void *self) noexcept;
    static gboolean onInput(int descriptor, GIOCondition condition, void *self) noexcept;

    /** Sends the next of the events that were asked for; false when it was the last. */
    bool sendNext();
    void startRepeating();
    void finishRepeating();
    /** Takes one line of new values and sends; a bad line changes nothing. */
    void takeLine(const std::string &line);
    void fail(const std::string &text);
    void quit();

    SendOptions options;
    EventSender sender;
    MainLoop loop;
    Interruption interruption;
    LineReader input;
    unsigned int remaining;
    unsigned int lineNumber = 0;
    bool failed = false;
};

} // namespace norq::tool
