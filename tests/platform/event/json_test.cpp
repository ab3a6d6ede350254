/** Rendering events as JSON, through the library's public functions and without a service. */
#include "json_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

using json_test::documentedEvent;
using json_test::Event;
using json_test::EventBuilder;
using json_test::Options;
using json_test::render;

namespace {

struct ReleaseJson {
    void operator()(json_t *value) const { json_decref(value); }
};
using Json = std::unique_ptr<json_t, ReleaseJson>;

struct ReleaseText {
    void operator()(char *text) const { std::free(text); }
};
using CText = std::unique_ptr<char, ReleaseText>;

/** Parses strictly: no duplicate names, nothing behind the document. */
Json parse(const std::string &text)
{
    json_error_t problem;
    Json root(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &problem));
    EXPECT_TRUE(json_is_object(root.get())) << problem.text << " in " << text;
    return root;
}

std::string topicOf(const EventBuilder &event, const json_options_t *options = nullptr)
{
    const Json root = parse(render(event.build(), options));
    const char *topic = json_string_value(json_object_get(root.get(), "Topic"));
    return topic == nullptr ? "(none)" : topic;
}

std::string timeOf(std::int64_t microseconds)
{
    const Json root = parse(render(EventBuilder().level("tns1", "A").time(microseconds).build()));
    const char *time = json_string_value(json_object_get(root.get(), "UtcTime"));
    return time == nullptr ? "(none)" : time;
}

/** The names and values in one of the members "Source", "Key" and "Data", as JSON. */
std::string part(const EventBuilder &event, const char *name)
{
    const Json root = parse(render(event.build()));
    const json_t *items = json_object_get(root.get(), name);
    if (items == nullptr) {
        return "(none)";
    }
    char *text = json_dumps(items, JSON_COMPACT);
    std::string copy = text == nullptr ? "(unwritable)" : text;
    std::free(text);
    return copy;
}

/** The value of the only item, after a way through JSON. */
Json valueAfterRoundTrip(event_value_t value)
{
    const Json root = parse(render(EventBuilder().item("x", value).build()));
    return Json(json_incref(json_object_get(json_object_get(root.get(), "Data"), "x")));
}

/** The JSON block of the documentation, without its line feed. */
std::string documentedText()
{
    std::ifstream file(EVENT_JSON_DOCUMENT);
    std::ostringstream content;
    content << file.rdbuf();
    const std::string text = content.str();
    const std::string opening = "```json\n";
    const std::size_t start = text.find(opening);
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t first = start + opening.size();
    return text.substr(first, text.find('\n', first) - first);
}

} // namespace

TEST(EventJson, looksAsTheDocumentationShowsIt)
{
    ASSERT_NE(documentedText(), "");
    EXPECT_EQ(render(documentedEvent().build()), documentedText());
}

TEST(EventJson, isOneLineWhateverTheTextsHold)
{
    for (const json_test::Sample &sample : json_test::samples()) {
        const std::string text = render(sample.event.build());
        EXPECT_EQ(text.find('\n'), std::string::npos) << sample.name;
        EXPECT_NE(parse(text), nullptr) << sample.name;
    }
}

TEST(EventJson, isWrittenAsJanssonWouldWriteIt)
{
    std::string everyAscii;
    for (int character = 1; character < 0x80; ++character) {
        everyAscii += static_cast<char>(character);
    }
    std::vector<json_test::Sample> samples = json_test::samples();
    samples.push_back({"every ASCII character",
                       EventBuilder()
                           .level("tns1", everyAscii)
                           .item(everyAscii, event_value_string(everyAscii.c_str()))
                           .item("number", event_value_double(-1e-7), {"onvif-source"})});
    for (const json_test::Sample &sample : samples) {
        const std::string text = render(sample.event.build());
        const Json root = parse(text);
        const std::size_t digits = sample.name == "numbers" ? 17 : 15;
        const CText written(json_dumps(root.get(), JSON_COMPACT | JSON_REAL_PRECISION(digits)));
        EXPECT_EQ(text, written.get()) << sample.name;
    }
}

TEST(EventJson, hasEmptySourceAndDataButNoKeyWhenThereAreNoItems)
{
    EXPECT_EQ(
        render(EventBuilder().level("tns1", "Device").build()),
        R"({"UtcTime":"2026-11-21T08:00:00.250Z","Topic":"tns1:Device","Source":{},"Data":{}})");
}

TEST(EventJson, namesTheOperationOfPropertyEventsOnly)
{
    const EventBuilder stateless = EventBuilder().item("x", event_value_int(1));
    EXPECT_EQ(render(stateless.build()).find("PropertyOperation"), std::string::npos);
    EXPECT_THAT(render(EventBuilder(stateless).property("x").build()),
                testing::HasSubstr(R"("PropertyOperation":"Changed")"));
}

TEST(EventJsonTopic, namesTheNamespaceWhereItChanges)
{
    EXPECT_EQ(topicOf(EventBuilder().level("tns1", "A").level("tns1", "B").level("tnsnorq", "C")),
              "tns1:A/B/tnsnorq:C");
    EXPECT_EQ(topicOf(EventBuilder().level("other", "A").level("tns1", "B").level("other", "C")),
              "other:A/tns1:B/other:C");
}

TEST(EventJsonTopic, marksALevelWithoutNamespaceOnlyBehindOneThatHasOne)
{
    EXPECT_EQ(topicOf(EventBuilder().level("", "A").level("tns1", "B")), "A/tns1:B");
    EXPECT_EQ(topicOf(EventBuilder().level("tns1", "A").level("", "B").level("", "C")),
              "tns1:A/:B/C");
}

TEST(EventJsonTopic, isEmptyWithoutLevels)
{
    EXPECT_EQ(topicOf(EventBuilder().item("x", event_value_int(1))), "");
}

TEST(EventJsonTopic, endsAtTheFirstGapAndKeepsTheKeysBehindItAsData)
{
    const EventBuilder event = EventBuilder()
                                   .level("tns1", "A")
                                   .item("topic2", event_value_string("C"))
                                   .item("topic01", event_value_string("D"))
                                   .item("topic", event_value_string("E"));
    EXPECT_EQ(topicOf(event), "tns1:A");
    EXPECT_EQ(part(event, "Data"), R"({"topic2":"C","topic01":"D","topic":"E"})");
}

TEST(EventJsonTopic, isReadInTheOrderOfLevelsNotOfDeclaration)
{
    EXPECT_EQ(topicOf(EventBuilder()
                          .item("topic1", event_value_string("B"))
                          .item("topic0", event_value_string("A"))),
              "A/B");
}

TEST(EventJsonTopic, hasAsManyLevelsAsTheEvent)
{
    EventBuilder event;
    std::string expected = "tns1:L";
    event.level("tns1", "L");
    for (int level = 1; level < 200; ++level) {
        event.level("tns1", "L");
        expected += "/L";
    }
    EXPECT_EQ(topicOf(event), expected);
    EXPECT_EQ(part(event, "Data"), "{}");
}

TEST(EventJsonItems, goByTheirTags)
{
    const EventBuilder event = EventBuilder()
                                   .item("s", event_value_int(1), {"onvif-source"})
                                   .item("k", event_value_int(2), {"onvif-key"})
                                   .item("d", event_value_int(3), {"onvif-data"})
                                   .item("none", event_value_int(4))
                                   .item("foreign", event_value_int(5), {"other"})
                                   .item("s2", event_value_int(6), {"other", "onvif-source"});
    EXPECT_EQ(part(event, "Source"), R"({"s":1,"s2":6})");
    EXPECT_EQ(part(event, "Key"), R"({"k":2})");
    EXPECT_EQ(part(event, "Data"), R"({"d":3,"none":4,"foreign":5})");
}

TEST(EventJsonItems, standInEveryPlaceThatTheirTagsName)
{
    const EventBuilder event = EventBuilder()
                                   .item("sk", event_value_int(1), {"onvif-source", "onvif-key"})
                                   .item("ds", event_value_int(2), {"onvif-data", "onvif-source"});
    EXPECT_EQ(part(event, "Source"), R"({"sk":1,"ds":2})");
    EXPECT_EQ(part(event, "Key"), R"({"sk":1})");
    EXPECT_EQ(part(event, "Data"), R"({"ds":2})");
}

TEST(EventJsonItems, includeATopicKeyOnlyWhereItIsTagged)
{
    const EventBuilder event = EventBuilder()
                                   .item("topic0", event_value_string("A"))
                                   .item("topic1", event_value_string("B"), {"onvif-source"});
    EXPECT_EQ(topicOf(event), "A/B");
    EXPECT_EQ(part(event, "Source"), R"({"topic1":"B"})");
    EXPECT_EQ(part(event, "Data"), "{}");
}

TEST(EventJsonItems, leaveOutKeysThatAreNotSetYet)
{
    const EventBuilder event = EventBuilder().unset("x").item("y", event_value_int(1));
    EXPECT_EQ(part(event, "Data"), R"({"y":1})");
}

TEST(EventJsonItems, keepTheirTypes)
{
    const EventBuilder event = EventBuilder()
                                   .item("yes", event_value_boolean(1))
                                   .item("no", event_value_boolean(0))
                                   .item("int", event_value_int(-7))
                                   .item("real", event_value_double(2))
                                   .item("number text", event_value_string("1"))
                                   .item("boolean text", event_value_string("true"));
    EXPECT_EQ(part(event, "Data"),
              R"({"yes":true,"no":false,"int":-7,"real":2.0,"number text":"1",)"
              R"("boolean text":"true"})");
}

TEST(EventJsonRoundTrip, keepsIntegersToTheLastDigit)
{
    using Limits = std::numeric_limits<std::int64_t>;
    for (const std::int64_t number :
         {Limits::min(), Limits::min() + 1, std::int64_t{-1}, std::int64_t{0},
          std::int64_t{9007199254740993}, Limits::max()}) {
        const Json value = valueAfterRoundTrip(event_value_int(number));
        ASSERT_TRUE(json_is_integer(value.get()));
        EXPECT_EQ(json_integer_value(value.get()), number);
    }
}

TEST(EventJsonRoundTrip, keepsDoublesToTheLastBit)
{
    using Limits = std::numeric_limits<double>;
    for (const double number : {0.0,
                                -0.0,
                                0.1,
                                0.1 + 0.2,
                                1.0 / 3.0,
                                1e22,
                                1e23,
                                123456789012345680.0,
                                5e-324,
                                2.2250738585072011e-308,
                                9007199254740993.0,
                                4503599627370495.5,
                                0.3,
                                1e-7,
                                100.0,
                                Limits::max(),
                                Limits::lowest(),
                                Limits::min(),
                                Limits::denorm_min(),
                                Limits::epsilon()}) {
        const Json value = valueAfterRoundTrip(event_value_double(number));
        ASSERT_TRUE(json_is_real(value.get())) << number;
        EXPECT_EQ(std::bit_cast<std::uint64_t>(json_real_value(value.get())),
                  std::bit_cast<std::uint64_t>(number))
            << number;
    }
}

TEST(EventJsonRoundTrip, keepsDoublesOfEveryMagnitude)
{
    std::uint64_t bits = 0x0123456789abcdefU;
    for (int tries = 0; tries < 2000; ++tries) {
        bits = bits * 6364136223846793005U + 1442695040888963407U;
        const auto number = std::bit_cast<double>(bits & ~(std::uint64_t{1} << 62U));
        const Json value = valueAfterRoundTrip(event_value_double(number));
        EXPECT_EQ(json_real_value(value.get()), number);
    }
}

TEST(EventJsonRoundTrip, writesShortDecimalsShort)
{
    const Event event = EventBuilder()
                            .item("a", event_value_double(0.1))
                            .item("b", event_value_double(1e22))
                            .item("c", event_value_double(-2.5))
                            .build();
    EXPECT_THAT(render(event), testing::HasSubstr(R"("Data":{"a":0.1,"b":1e22,"c":-2.5})"));
}

TEST(EventJsonRoundTrip, keepsTextsOfEveryKind)
{
    std::string everyAscii;
    for (char character = 1; character < 0x7f; ++character) {
        everyAscii += character;
    }
    for (const std::string &text :
         {std::string(), std::string("plain"), everyAscii, std::string("\x7f\xc2\x80"),
          std::string("\xed\x9f\xbf\xee\x80\x80"), std::string("\xef\xbf\xbe\xef\xbf\xbf"),
          std::string("\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"), std::string("\xe2\x80\xa8\xe2\x80\xa9"),
          std::string(100000, '\x01'), std::string("\\u0000 </script>")}) {
        const Json value = valueAfterRoundTrip(event_value_string(text.c_str()));
        ASSERT_TRUE(json_is_string(value.get()));
        EXPECT_EQ(json_string_value(value.get()), text);
    }
}

TEST(EventJsonRoundTrip, keepsNamesOfEveryKind)
{
    for (const std::string &name :
         {std::string("a/b"), std::string("\"\\"), std::string("\n\t\x01"), std::string(" "),
          std::string("UtcTime"), std::string("\xf0\x9f\x98\x80"), std::string(255, 'n')}) {
        const Json root = parse(render(EventBuilder().item(name, event_value_int(1)).build()));
        const json_t *data = json_object_get(root.get(), "Data");
        EXPECT_EQ(json_object_size(data), 1U);
        EXPECT_EQ(json_integer_value(json_object_get(data, name.c_str())), 1) << name;
    }
}

TEST(EventJsonTime, isUtcWithMillisecondsThatAreCutNotRounded)
{
    EXPECT_EQ(timeOf(1), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(timeOf(1709251199999999), "2024-02-29T23:59:59.999Z");
    EXPECT_EQ(timeOf(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(timeOf(-62135596800000000), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(timeOf(253402300799999999), "9999-12-31T23:59:59.999Z");
}

TEST(EventJsonTime, staysWithinTheYearsThatTheNotationHas)
{
    EXPECT_EQ(timeOf(-62135596800000001), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(timeOf(253402300800000000), "9999-12-31T23:59:59.999Z");
    EXPECT_EQ(timeOf(std::numeric_limits<std::int64_t>::min()), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(timeOf(std::numeric_limits<std::int64_t>::max()), "9999-12-31T23:59:59.999Z");
}

TEST(EventJsonOptions, nameTheTwoNamespaces)
{
    const EventBuilder event =
        EventBuilder().level("tns1", "A").level("tnsnorq", "B").level("own", "C");
    const Options options(json_options_new());
    EXPECT_EQ(topicOf(event, options.get()), "tns1:A/tnsnorq:B/own:C");
    json_options_set_onvif_namespace(options.get(), "onvif");
    json_options_set_norq_namespace(options.get(), "norq");
    EXPECT_EQ(topicOf(event, options.get()), "onvif:A/norq:B/own:C");
    json_options_set_onvif_namespace(options.get(), nullptr);
    json_options_set_norq_namespace(options.get(), nullptr);
    EXPECT_EQ(topicOf(event, options.get()), "tns1:A/tnsnorq:B/own:C");
}

TEST(EventJsonOptions, thatGiveBothNamespacesOneNameMakeThemOne)
{
    const Options options(json_options_new());
    json_options_set_onvif_namespace(options.get(), "ns");
    json_options_set_norq_namespace(options.get(), "ns");
    EXPECT_EQ(topicOf(EventBuilder().level("tns1", "A").level("tnsnorq", "B"), options.get()),
              "ns:A/B");
}

TEST(EventJsonOptions, addTheSerialNumberOnlyWhenSet)
{
    const Event event = EventBuilder().level("tns1", "A").build();
    const Options options(json_options_new());
    EXPECT_EQ(render(event, options.get()), render(event));
    json_options_set_serialnumber(options.get(), "0123456789AB");
    EXPECT_THAT(render(event, options.get()),
                testing::EndsWith(R"(,"SerialNumber":"0123456789AB"})"));
    json_options_set_serialnumber(options.get(), nullptr);
    EXPECT_EQ(render(event, options.get()), render(event));
}

TEST(EventJsonOptions, cannotSpoilTheDocumentWithBadUtf8)
{
    const Options options(json_options_new());
    json_options_set_onvif_namespace(options.get(), "a\xff");
    json_options_set_serialnumber(options.get(), "\xc3(\"");
    const Json root = parse(render(EventBuilder().level("tns1", "A").build(), options.get()));
    EXPECT_STREQ(json_string_value(json_object_get(root.get(), "Topic")), "a\xef\xbf\xbd:A");
    EXPECT_STREQ(json_string_value(json_object_get(root.get(), "SerialNumber")), "\xef\xbf\xbd(\"");
}

TEST(EventJsonOptions, mayBeFreedAsNull)
{
    json_options_free(nullptr);
}
