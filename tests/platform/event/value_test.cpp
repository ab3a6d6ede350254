/** Values: their text forms, and what is refused. */
#include "event/core/event_content.h"
#include "event/core/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace norq::event {
namespace {

TEST(Value, NumbersReadAsTheShortestTextThatGivesThemBack)
{
    EXPECT_EQ(Value::ofInteger(0).text(), "0");
    EXPECT_EQ(Value::ofInteger(std::numeric_limits<std::int64_t>::min()).text(),
              "-9223372036854775808");
    EXPECT_EQ(Value::ofNumber(0.1).text(), "0.1");
    EXPECT_EQ(Value::ofNumber(-0.0).text(), "-0");
    EXPECT_EQ(Value::ofNumber(1e300).text(), "1e+300");
    EXPECT_EQ(Value::ofNumber(1.0 / 3).text(), "0.3333333333333333");
    EXPECT_EQ(Value::ofBoolean(true).text(), "1");
    EXPECT_EQ(Value::ofBoolean(false).text(), "0");
}

TEST(Value, ATextStandsForAValueOnlyInTheFormThatTheValueHas)
{
    struct Case {
        event_value_type type;
        const char *text;
        bool valid;
    };
    const std::vector<Case> cases = {
        {EVENT_VALUE_INT, "12", true},        {EVENT_VALUE_INT, "-9223372036854775808", true},
        {EVENT_VALUE_INT, "", false},         {EVENT_VALUE_INT, "012", false},
        {EVENT_VALUE_INT, "+1", false},       {EVENT_VALUE_INT, " 1", false},
        {EVENT_VALUE_INT, "1 ", false},       {EVENT_VALUE_INT, "9223372036854775808", false},
        {EVENT_VALUE_INT, "-0", false},       {EVENT_VALUE_INT, "1.0", false},
        {EVENT_VALUE_BOOLEAN, "1", true},     {EVENT_VALUE_BOOLEAN, "0", true},
        {EVENT_VALUE_BOOLEAN, "true", false}, {EVENT_VALUE_BOOLEAN, "", false},
        {EVENT_VALUE_DOUBLE, "0.1", true},    {EVENT_VALUE_DOUBLE, "1", true},
        {EVENT_VALUE_DOUBLE, "-0", true},     {EVENT_VALUE_DOUBLE, "1.0", false},
        {EVENT_VALUE_DOUBLE, "inf", false},   {EVENT_VALUE_DOUBLE, "nan", false},
        {EVENT_VALUE_DOUBLE, "1e400", false}, {EVENT_VALUE_DOUBLE, "0x1p0", false},
        {EVENT_VALUE_STRING, "", true},       {EVENT_VALUE_STRING, "any", true},
    };
    for (const Case &given : cases) {
        const auto value = Value::parse(given.type, given.text);
        EXPECT_EQ(value.has_value(), given.valid) << given.type << " '" << given.text << "'";
        if (value) {
            EXPECT_EQ(value->text(), given.text);
            EXPECT_EQ(value->type(), given.type);
        }
    }
}

TEST(Value, WhatCallersPassIsChecked)
{
    std::optional<Value> value;
    EXPECT_FALSE(Value::fromApi(event_value_double(std::nan("")), value));
    EXPECT_FALSE(Value::fromApi(event_value_double(HUGE_VAL), value));
    EXPECT_FALSE(Value::fromApi(event_value_string(nullptr), value));
    EXPECT_FALSE(Value::fromApi(event_value_string("\xff"), value));
    EXPECT_FALSE(Value::fromApi(event_value_string("\xed\xa0\x80"), value)); // a surrogate
    EXPECT_FALSE(
        Value::fromApi(event_value_string(std::string(EVENT_MAX_SIZE + 1, 'x').c_str()), value));
    event_value_t untyped = event_value_int(1);
    untyped.type = EVENT_VALUE_STRING;
    untyped.as.string = nullptr;
    EXPECT_FALSE(Value::fromApi(untyped, value));
    EXPECT_FALSE(value.has_value());
    EXPECT_TRUE(Value::fromApi(event_value_string("\xF0\x9F\x98\x80"), value));
    EXPECT_EQ(value->size(), 4U);
}

TEST(Value, ItsBytesOnTheWireAreThoseThatAConditionIsComparedWith)
{
    Declaration declaration;
    ASSERT_TRUE(declaration.addOpenKey("i", EVENT_VALUE_INT));
    ASSERT_TRUE(declaration.addOpenKey("b", EVENT_VALUE_BOOLEAN));
    ASSERT_TRUE(declaration.addOpenKey("d", EVENT_VALUE_DOUBLE));
    ASSERT_TRUE(declaration.addOpenKey("s", EVENT_VALUE_STRING));
    EventContent content;
    content.declaration = std::make_shared<const Declaration>(declaration);
    content.open = {Value::ofInteger(-5), Value::ofBoolean(true), Value::ofNumber(2.5),
                    Value::ofText("text")};
    std::string body;
    writeBody(body, content);
    std::vector<std::string_view> values;
    ASSERT_TRUE(scanBody(body, declaration, values));
    ASSERT_EQ(values.size(), content.open.size());
    for (std::size_t index = 0; index < values.size(); ++index) {
        EXPECT_EQ(values[index], bytesOf(*content.open[index]));
    }
}

} // namespace
} // namespace norq::event
