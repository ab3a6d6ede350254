/** A stand-in for the system's log sockets, and a process that sees nothing but these. */
#pragma once

#include "support/temp_directory.h"

#include <map>
#include <string>
#include <vector>

/** A datagram socket that keeps what arrives. */
class LogSocket {
public:
    /** Binds at a path, which must not exist. */
    explicit LogSocket(const std::string &path);
    ~LogSocket();
    LogSocket(const LogSocket &) = delete;
    LogSocket &operator=(const LogSocket &) = delete;

    /**
     * The next message; waits for it, fails the test and gives an empty text when none comes. The
     * content of a file that is passed instead of a text is what counts.
     */
    [[nodiscard]] std::string receive() const;
    /** Whether nothing is waiting. */
    [[nodiscard]] bool isEmpty() const;

private:
    int fd;
};

/** Which of the system's log sockets a process finds. */
enum class Present { JOURNAL_AND_SYSLOG, SYSLOG };

/** The two sockets of a system. */
struct SystemLog {
    test_support::TempDirectory journalFolder;
    test_support::TempDirectory syslogFolder;
    LogSocket journal{journalFolder.file("socket")};
    LogSocket syslog{syslogFolder.file("log")};

    /** Runs the logging child where only these sockets exist; returns its standard error. */
    [[nodiscard]] std::string run(Present present, const std::vector<std::string> &arguments) const;
};

/** The fields of a message in the journal's protocol. */
std::map<std::string, std::string> journalFields(const std::string &datagram);
