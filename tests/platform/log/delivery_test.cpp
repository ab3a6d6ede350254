/** Where messages arrive: the journal when it is there, otherwise syslog. */
#include "system_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using testing::StartsWith;

/** Facility "daemon" as the syslog protocol has it, with a priority. */
std::string daemonPriority(int priority)
{
    return "<" + std::to_string(3 * 8 + priority) + ">";
}

struct PriorityCase {
    const char *name;
    const char *level;
    int priority;
};

std::ostream &operator<<(std::ostream &out, const PriorityCase &tested)
{
    return out << tested.name;
}

class Delivery : public testing::TestWithParam<PriorityCase> {};

} // namespace

TEST_P(Delivery, ToTheJournalHasMessagePriorityAndIdentity)
{
    const SystemLog log;
    for (const char *way : {"old", "structured"}) {
        EXPECT_THAT(log.run(Present::JOURNAL_AND_SYSLOG, {"it", way, GetParam().level, "a text"}),
                    IsEmpty());
        EXPECT_THAT(journalFields(log.journal.receive()),
                    ElementsAre(Pair("MESSAGE", "a text"),
                                Pair("PRIORITY", std::to_string(GetParam().priority)),
                                Pair("SYSLOG_IDENTIFIER", "it")));
    }
    EXPECT_TRUE(log.journal.isEmpty());
    EXPECT_TRUE(log.syslog.isEmpty());
}

TEST_P(Delivery, ToSyslogHasMessagePriorityAndIdentity)
{
    const SystemLog log;
    for (const char *way : {"old", "structured"}) {
        EXPECT_THAT(log.run(Present::SYSLOG, {"it", way, GetParam().level, "100 % text"}),
                    IsEmpty());
        EXPECT_THAT(log.syslog.receive(), MatchesRegex(daemonPriority(GetParam().priority) +
                                                       ".* it\\[[0-9]+\\]: 100 % text"));
    }
    EXPECT_TRUE(log.syslog.isEmpty());
    EXPECT_TRUE(log.journal.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Levels, Delivery,
    testing::Values(PriorityCase{"Critical", "8", 3}, PriorityCase{"Warning", "16", 4},
                    PriorityCase{"Message", "32", 5}, PriorityCase{"Info", "64", 6},
                    PriorityCase{"Debug", "128", 7}, PriorityCase{"Failure", "256", 3}),
    [](const auto &tested) { return tested.param.name; });

TEST(DeliveryToTheJournal, HasTheDomainAsAField)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::JOURNAL_AND_SYSLOG, {"it", "old", "16", "text", "GLib"}),
                IsEmpty());
    const auto fields = journalFields(log.journal.receive());
    EXPECT_THAT(fields, testing::Contains(Pair("GLIB_DOMAIN", "GLib")));
    EXPECT_THAT(fields, testing::Contains(Pair("MESSAGE", "text")));
}

TEST(DeliveryToTheJournal, CannotBeGivenFieldsByAMessage)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::JOURNAL_AND_SYSLOG, {"it", "old", "64", "text\nPRIORITY=0"}),
                IsEmpty());
    EXPECT_THAT(journalFields(log.journal.receive()),
                ElementsAre(Pair("MESSAGE", "text\\nPRIORITY=0"), Pair("PRIORITY", "6"),
                            Pair("SYSLOG_IDENTIFIER", "it")));
}

TEST(DeliveryToTheJournal, TakesTheLongestMessage)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::JOURNAL_AND_SYSLOG, {"it", "long", "64", "3000000"}), IsEmpty());
    EXPECT_EQ(journalFields(log.journal.receive())["MESSAGE"],
              std::string(32768, 'x') + "... (2967232 bytes more)");
}

TEST(DeliveryToSyslog, TakesTheLongestMessage)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::SYSLOG, {"it", "long", "64", "3000000"}), IsEmpty());
    EXPECT_THAT(log.syslog.receive(),
                testing::EndsWith(std::string(32768, 'x') + "... (2967232 bytes more)"));
}

TEST(DeliveryToSyslog, HasTheDomainBeforeTheMessage)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::SYSLOG, {"it", "old", "16", "text", "GLib"}), IsEmpty());
    EXPECT_THAT(log.syslog.receive(), testing::EndsWith(": GLib: text"));
}

TEST(DeliveryToSyslog, KeepsAMessageOneLine)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::SYSLOG, {"it", "old", "64", "a\n<0>b"}), IsEmpty());
    EXPECT_THAT(log.syslog.receive(), testing::EndsWith(": a\\n<0>b"));
    EXPECT_TRUE(log.syslog.isEmpty());
}

TEST(DeliveryToTheJournal, OfManyThreadsLosesNothing)
{
    const SystemLog log;
    EXPECT_THAT(log.run(Present::JOURNAL_AND_SYSLOG, {"it", "threads", "64", "2"}), IsEmpty());
    for (int message = 0; message < 8; ++message) {
        EXPECT_THAT(log.journal.receive(), StartsWith("MESSAGE=thread "));
    }
    EXPECT_TRUE(log.journal.isEmpty());
}
