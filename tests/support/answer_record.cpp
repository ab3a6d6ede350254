/**
 * Keeps every request that a test program makes to the configuration API library, with its answer,
 * for a check of all of them. Linked into a program it stands around the library's function.
 *
 * The record of a test is a file of its own, beside the program: PROGRAM.answers/SUITE.TEST. For
 * each answer it holds a line with the lengths of request and answer in bytes, and the two as they
 * are, with a line feed behind each.
 */
#include <norq/dbh.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>

namespace {

/** Of a longer request it is enough to show that it is too long. */
constexpr std::size_t MOST_BYTES = DBH_MAX_REQUEST_LENGTH + 1;

[[noreturn]] void fail(const std::string &what)
{
    std::cerr << "the record of answers: " << what << ": " << std::strerror(errno) << std::endl;
    std::abort();
}

std::string currentTest()
{
    const auto *test = testing::UnitTest::GetInstance()->current_test_info();
    if (test == nullptr) {
        return "outside of tests";
    }
    std::string name = std::string(test->test_suite_name()) + "." + test->name();
    std::replace(name.begin(), name.end(), '/', '.'); // of a test with parameters
    return name;
}

std::string fileOf(const std::string &test)
{
    const std::filesystem::path folder =
        std::filesystem::read_symlink("/proc/self/exe").string() + ".answers";
    std::filesystem::create_directories(folder);
    return folder / test;
}

/** One write for a whole entry: what other processes of this test add stays whole, too. */
void append(const std::string &path, int flags, const std::string &entry)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | flags, 0644);
    if (file < 0) {
        fail(path);
    }
    const auto written = write(file, entry.data(), entry.size());
    if (written != static_cast<ssize_t>(entry.size())) {
        fail(path);
    }
    close(file);
}

void record(const char *request, const char *answer)
{
    static std::mutex mutex; // tests ask on several threads
    static std::string recordedTest;
    const std::string asked(request, strnlen(request, MOST_BYTES));
    const std::string answered(answer);
    const std::string entry = std::to_string(asked.size()) + " " + std::to_string(answered.size()) +
                              "\n" + asked + "\n" + answered + "\n";
    const std::lock_guard lock(mutex);
    const std::string test = currentTest();
    append(fileOf(test), test == recordedTest ? 0 : O_TRUNC, entry);
    recordedTest = test;
}

} // namespace

extern "C" {

bool __real_dbh_request_handler_process_request(dbh_request_handler_t *handler, const char *request,
                                                char **response, dbh_error_t **error);

bool __wrap_dbh_request_handler_process_request(dbh_request_handler_t *handler, const char *request,
                                                char **response, dbh_error_t **error)
{
    const bool answered =
        __real_dbh_request_handler_process_request(handler, request, response, error);
    if (answered) {
        record(request, *response);
    }
    return answered;
}
}
