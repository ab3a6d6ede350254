/** The parts of the command-line tool that need no event service. */
#include "event/tool/declaration_text.h"
#include "event/tool/event_text.h"
#include "event/tool/failure.h"
#include "event/tool/item.h"
#include "event/tool/line_reader.h"
#include "event/tool/send_options.h"
#include "event/tool/topic.h"
#include "event/tool/watch_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <optional>

using namespace norq::tool;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Words = std::vector<std::string>;

/** What the error of a wrong text says; empty when there is none. */
template <typename Parse>
std::string errorOf(Parse parse)
{
    try {
        parse();
    } catch (const UsageError &error) {
        return error.what();
    }
    return "";
}

std::string itemText(const Item &item)
{
    return item.key + '|' + item.nameSpace + '|' + std::to_string(item.type) + '|' +
           (item.value ? "set" : "unset");
}

/** Both ends of a pipe. */
class Pipe {
public:
    Pipe()
    {
        if (pipe(ends.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
    }
    ~Pipe()
    {
        close(ends[0]);
        finish();
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    [[nodiscard]] int source() const { return ends[0]; }
    void write(const std::string &text) const
    {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void finish()
    {
        if (ends[1] >= 0) {
            close(ends[1]);
        }
        ends[1] = -1;
    }

private:
    std::array<int, 2> ends{-1, -1};
};

/** Reads until the end of the input. */
Words linesOf(Pipe &input)
{
    Words lines;
    LineReader reader(input.source());
    input.finish();
    while (reader.readOnce([&lines](const std::string &line) { lines.push_back(line); })) {
    }
    return lines;
}

} // namespace

TEST(ToolTopic, hasLevelsThatInheritTheNamespace)
{
    EXPECT_THAT(parseTopic("tns1:Device/tnsnorq:Beta/Gamma"),
                ElementsAre(TopicLevel{"tns1", "Device"}, TopicLevel{"tnsnorq", "Beta"},
                            TopicLevel{"tnsnorq", "Gamma"}));
    EXPECT_THAT(parseTopic("A/tns1:B/:C/D"),
                ElementsAre(TopicLevel{std::nullopt, "A"}, TopicLevel{"tns1", "B"},
                            TopicLevel{"", "C"}, TopicLevel{"", "D"}));
    EXPECT_THAT(parseTopic("tns1:a:b"), ElementsAre(TopicLevel{"tns1", "a:b"}));
}

TEST(ToolTopic, refusesALevelWithoutName)
{
    for (const char *text : {"", "/", "A/", "/A", "A//B", "tns1:", "A/tns1:/B"}) {
        EXPECT_EQ(errorOf([text] { parseTopic(text); }),
                  "topic '" + std::string(text) + "': a level has no name");
    }
}

TEST(ToolTopic, endsAsFilterInTwoSlashesAndADotForEverythingBelow)
{
    const TopicFilter exact = parseTopicFilter("tns1:A/B");
    EXPECT_FALSE(exact.withSubtopics);
    EXPECT_EQ(exact.levels, parseTopic("tns1:A/B"));

    const TopicFilter below = parseTopicFilter("tns1:A/B//.");
    EXPECT_TRUE(below.withSubtopics);
    EXPECT_EQ(below.levels, exact.levels);

    EXPECT_EQ(parseTopicFilter("//."), (TopicFilter{{}, true}));
    EXPECT_NE(errorOf([] { parseTopicFilter(""); }), "");
    EXPECT_EQ(parseTopicFilter("A/.").levels.size(), 2U);
}

TEST(ToolItem, hasKeyNamespaceTypeAndValue)
{
    EXPECT_EQ(itemText(parseItem("k=v")), "k||4|set");
    EXPECT_EQ(itemText(parseItem("k@ns:int=1")), "k|ns|1|set");
    EXPECT_EQ(itemText(parseItem("k:bool=true")), "k||2|set");
    EXPECT_EQ(itemText(parseItem("k:double=1")), "k||3|set");
    EXPECT_EQ(itemText(parseItem("k@ns:string=")), "k|ns|4|set");
    EXPECT_EQ(itemText(parseItem("k:bool")), "k||2|unset");
    EXPECT_STREQ(parseItem("k=a=b@c:int").value->get().as.string, "a=b@c:int");
}

TEST(ToolItem, takesOddKeysBehindBackslashes)
{
    EXPECT_EQ(itemText(parseItem(R"(a\@b\:c\=d\\=v)")), R"(a@b:c=d\||4|set)");
    EXPECT_EQ(itemText(parseItem(R"(k@urn\:x\:int=v)")), "k|urn:x:int|4|set");
    EXPECT_STREQ(parseItem(R"(k=a\b)").value->get().as.string, R"(a\b)");
}

TEST(ToolItem, refusesAnUnknownType)
{
    EXPECT_EQ(errorOf([] { parseItem("k:float=1"); }),
              "'k:float=1': unknown type 'float', expected int, bool, double or string");
}

TEST(ToolItem, takesTheValuesOfItsType)
{
    EXPECT_EQ(parseItem("k:int=-9223372036854775808").value->get().as.integer, INT64_MIN);
    EXPECT_EQ(parseItem("k:int=9223372036854775807").value->get().as.integer, INT64_MAX);
    EXPECT_EQ(parseItem("k:bool=1").value->get().as.boolean, 1);
    EXPECT_EQ(parseItem("k:bool=false").value->get().as.boolean, 0);
    EXPECT_EQ(parseItem("k:double=-2.5e3").value->get().as.number, -2500.0);
    EXPECT_STREQ(parseItem("k=").value->get().as.string, "");
}

TEST(ToolItem, refusesValuesOfAnotherType)
{
    for (const char *text : {"k:int=", "k:int=1.5", "k:int=0x10", "k:int= 1", "k:int=1 ",
                             "k:int=9223372036854775808"}) {
        EXPECT_THAT(errorOf([text] { parseItem(text); }), HasSubstr("is not an integer")) << text;
    }
    for (const char *text : {"k:bool=", "k:bool=2", "k:bool=TRUE", "k:bool=yes"}) {
        EXPECT_THAT(errorOf([text] { parseItem(text); }), HasSubstr("is not a boolean")) << text;
    }
    for (const char *text : {"k:double=", "k:double=nan", "k:double=inf", "k:double=1e999",
                             "k:double=1,5", "k:double=1x"}) {
        EXPECT_THAT(errorOf([text] { parseItem(text); }), HasSubstr("is not a finite number"))
            << text;
    }
}

TEST(ToolPair, isCutAtTheFirstEqualsSign)
{
    EXPECT_EQ(parsePair("a=b=c", "KEY=TAG"), std::make_pair(std::string("a"), std::string("b=c")));
    EXPECT_EQ(parsePair("=", "KEY=TAG"), std::make_pair(std::string(), std::string()));
    EXPECT_EQ(errorOf([] { parsePair("ab", "KEY=TAG"); }), "'ab': expected KEY=TAG");
}

TEST(ToolLineReader, givesEachLineAndALastOneWithoutLineFeed)
{
    Pipe input;
    input.write("one\n\nthree\nfour");
    EXPECT_THAT(linesOf(input), ElementsAre("one", "", "three", "four"));
}

TEST(ToolLineReader, givesNothingForAnEmptyInput)
{
    Pipe input;
    EXPECT_THAT(linesOf(input), ElementsAre());
}

TEST(ToolLineReader, joinsALineThatComesInPieces)
{
    Pipe input;
    LineReader reader(input.source());
    Words lines;
    const auto take = [&lines](const std::string &line) { lines.push_back(line); };
    input.write("on");
    EXPECT_TRUE(reader.readOnce(take));
    EXPECT_THAT(lines, ElementsAre());
    input.write("e\ntwo");
    EXPECT_TRUE(reader.readOnce(take));
    EXPECT_THAT(lines, ElementsAre("one"));
    input.finish();
    EXPECT_FALSE(reader.readOnce(take));
    EXPECT_THAT(lines, ElementsAre("one", "two"));
}

TEST(ToolLineReader, refusesALineWithoutEnd)
{
    Pipe input;
    LineReader reader(input.source());
    const std::string piece(4096, 'x');
    const auto take = [](const std::string &) { FAIL() << "a line was given"; };
    std::size_t written = 0;
    EXPECT_THROW(
        while (written <= 2 * LineReader::LONGEST) {
            input.write(piece);
            written += piece.size();
            reader.readOnce(take);
        },
        Failure);
    EXPECT_GT(written, LineReader::LONGEST);
}

TEST(ToolEventText, isOneLineWithValuesAsInJson)
{
    EXPECT_EQ(eventLine(R"({"UtcTime":"T","Topic":"tns1:A/B","PropertyOperation":"Changed",)"
                        R"("Source":{"i":1},"Key":{"k":"x"},"Data":{"b":true,"d":0.1,"s":"a b"}})"),
              R"(T tns1:A/B Changed Source(i=1) Key(k="x") Data(b=true d=0.1 s="a b"))");
}

TEST(ToolEventText, leavesOutWhatIsEmpty)
{
    EXPECT_EQ(eventLine(R"({"UtcTime":"T","Topic":"A","Source":{},"Data":{}})"), "T A");
}

TEST(ToolEventText, quotesWhatWouldNotBeOneWord)
{
    EXPECT_EQ(eventLine(R"({"UtcTime":"T","Topic":"a b","Source":{},"Data":{"x y":1,"":2}})"),
              R"(T "a b" Data("x y"=1 ""=2))");
    EXPECT_EQ(eventLine(R"({"UtcTime":"T","Topic":"","Source":{},"Data":{"a\nb":"\n"}})"),
              R"(T "" Data("a\nb"="\n"))");
}

TEST(ToolEventText, writesNumbersThatReadBackTheSame)
{
    EXPECT_EQ(eventLine(R"({"UtcTime":"T","Topic":"A","Source":{},)"
                        R"("Data":{"a":0.1,"b":0.30000000000000004,"c":9223372036854775807}})"),
              "T A Data(a=0.1 b=0.30000000000000004 c=9223372036854775807)");
}

TEST(ToolEventText, refusesAnotherText)
{
    for (const char *text :
         {"", "[]", "{}", R"({"UtcTime":"T"})", R"({"UtcTime":1,"Topic":"A"})"}) {
        EXPECT_THROW(eventLine(text), Failure) << text;
    }
}

TEST(ToolDeclarationText, hasABlockForEachDeclaration)
{
    EXPECT_EQ(
        declarationLines(R"([{"client":"tovrel","id":3,"internal":false,"property":true,)"
                         R"("held":true,"keys":[)"
                         R"({"key":"topic0","type":"string","value":"A","namespace":"tns1"},)"
                         R"({"key":"topic1","type":"string","value":"B","namespace":"tns1"},)"
                         R"({"key":"i","type":"int","value":1,"tags":["onvif-source","x y"]},)"
                         R"({"key":"s","type":"boolean","state":true,"namespace":"n"}]},)"
                         R"({"client":"a b","id":0,"internal":true,"property":false,)"
                         R"("held":false,"keys":[{"key":"topic0","type":"string"}]}])"),
        "tovrel 3: tns1:A/B (property, held)\n"
        "  i int = 1 [onvif-source \"x y\"]\n"
        "  s@n boolean, state\n"
        "\"a b\" 0: \"\" (internal)\n"
        "  topic0 string\n");
}

TEST(ToolDeclarationText, isEmptyWithoutDeclarations)
{
    EXPECT_EQ(declarationLines("[]"), "");
}

TEST(ToolDeclarationText, refusesAnotherText)
{
    EXPECT_THROW(declarationLines("{}"), Failure);
    EXPECT_THROW(declarationLines("["), Failure);
}

TEST(ToolSendOptions, putTheTopicBeforeTheItemsAndFixIt)
{
    const SendOptions options =
        parseSendOptions({"--topic", "tns1:A/B", "x:int=1", "topic2=C", "y=2", "--fixed", "y"});
    ASSERT_EQ(options.items.size(), 5U);
    EXPECT_EQ(options.items[0].key, "topic0");
    EXPECT_EQ(options.items[1].nameSpace, "tns1");
    const auto isFixed = [&options](std::size_t index) { return options.items[index].fixed; };
    EXPECT_TRUE(isFixed(0) && isFixed(1) && !isFixed(2) && isFixed(3) && isFixed(4));
    EXPECT_EQ(options.count, 1U);
    EXPECT_FALSE(options.readInput);
}

TEST(ToolSendOptions, readInputOnlyWhileHolding)
{
    EXPECT_TRUE(parseSendOptions({"--hold", "x:int"}).readInput);
    EXPECT_FALSE(parseSendOptions({"--hold", "--no-input", "x=1"}).readInput);
}

TEST(ToolSendOptions, sayWhatIsWrong)
{
    const auto error = [](const Words &words) {
        return errorOf([&words] { parseSendOptions(words); });
    };
    EXPECT_EQ(error({}), "an event needs a --topic or a KEY=VALUE");
    EXPECT_EQ(error({"x:int"}), "key 'x' has no value: write KEY=VALUE");
    EXPECT_EQ(error({"--hold", "--no-input", "x"}), "key 'x' has no value: write KEY=VALUE");
    EXPECT_EQ(error({"--hold", "--fixed", "x", "x"}), "key 'x' has no value: write KEY=VALUE");
    EXPECT_EQ(error({"--no-input", "x=1"}), "--no-input is for --hold");
    EXPECT_EQ(error({"x=1", "--tag", "y=t"}), "--tag: the event has no key 'y'");
    EXPECT_EQ(error({"x=1", "--property", "y"}), "--property: the event has no key 'y'");
    EXPECT_EQ(error({"x=1", "--fixed", "y"}), "--fixed: the event has no key 'y'");
    EXPECT_EQ(error({"x=1", "--count", "-1"}),
              "--count: '-1' is not a number from 0 to 1000000000");
    EXPECT_EQ(error({"x=1", "--topic", "a", "--topic", "b"}), "--topic is given more than once");
    EXPECT_THAT(error({"x=1", "--bogus"}), HasSubstr("--bogus"));
    EXPECT_THAT(error({"x=1", "--count"}), HasSubstr("--count"));
}

TEST(ToolWatchOptions, selectEverythingByDefault)
{
    const WatchOptions options = parseWatchOptions({});
    EXPECT_TRUE(options.topic.withSubtopics && options.topic.levels.empty());
    EXPECT_TRUE(options.initial && !options.json && !options.count && !options.timeout);
}

TEST(ToolWatchOptions, takeConditionsAndLimits)
{
    const WatchOptions options = parseWatchOptions(
        {"--topic", "tns1:A", "--match", "a=1", "--match", "b=", "--namespace", "a=n", "--absent",
         "c", "--json", "--count", "3", "--timeout=9", "--initial=no"});
    EXPECT_EQ(options.topic, (TopicFilter{{{"tns1", "A"}}, false}));
    EXPECT_THAT(options.matches, ElementsAre(std::make_pair("a", "1"), std::make_pair("b", "")));
    EXPECT_THAT(options.nameSpaces, ElementsAre(std::make_pair("a", "n")));
    EXPECT_THAT(options.absent, ElementsAre("c"));
    EXPECT_TRUE(options.json && !options.initial);
    EXPECT_EQ(options.count, 3U);
    EXPECT_EQ(options.timeout, 9U);
}

TEST(ToolWatchOptions, sayWhatIsWrong)
{
    const auto error = [](const Words &words) {
        return errorOf([&words] { parseWatchOptions(words); });
    };
    EXPECT_EQ(error({"x"}), "'x': no argument is expected here");
    EXPECT_EQ(error({"--match", "x"}), "'x': expected KEY=VALUE");
    EXPECT_EQ(error({"--namespace", "x"}), "'x': expected KEY=NS");
    EXPECT_EQ(error({"--initial", "maybe"}), "--initial: 'maybe' is neither yes nor no");
    EXPECT_EQ(error({"--timeout", "soon"}), "--timeout: 'soon' is not a number from 0 to 1000000");
}
