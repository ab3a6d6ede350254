/** Expressions and declarations as callers of the library build them. */
#include "event_handles.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

namespace event_test {
namespace {

std::string xmlOf(const ExpressionPtr &expression)
{
    const std::unique_ptr<char, ReleaseWith<std::free>> text(
        subscribe_expression_serialize_xml(expression.get()));
    return text ? text.get() : "";
}

TEST(Expression, ReadsAsXmlInTheOrderOfItsConditions)
{
    const ExpressionPtr expression = whereValue();
    EXPECT_EQ(xmlOf(expression), "<subscribe></subscribe>");
    EXPECT_TRUE(subscribe_expression_add_key_value(expression.get(), "topic0", "a<b>&\"c\"\n\x01"));
    EXPECT_TRUE(subscribe_expression_set_name_space(expression.get(), "topic0", "tns1"));
    EXPECT_TRUE(subscribe_expression_add_not_key(expression.get(), "topic1"));
    EXPECT_TRUE(subscribe_expression_set_name_space(expression.get(), "topic0", "tnsnorq"));
    EXPECT_EQ(xmlOf(expression),
              "<subscribe>"
              "<keyValue key=\"topic0\" value=\"a&lt;b&gt;&amp;&quot;c&quot;&#10;\xEF\xBF\xBD\"/>"
              "<nameSpace key=\"topic0\" nameSpace=\"tnsnorq\"/>"
              "<notKey key=\"topic1\"/></subscribe>");
}

TEST(Expression, RefusesWhatNoEventCanHaveAndASecondValueOfAKey)
{
    const ExpressionPtr expression = whereValue("key", "");
    const std::string tooLong(EVENT_MAX_NAME + 1, 'x');
    const std::string most(EVENT_MAX_NAME, 'x');
    const std::string tooLarge(EVENT_MAX_SIZE + 1, 'x');
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), "key", "other"));
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), "", "value"));
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), "k", "\xff"));
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), "\xff", "value"));
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), tooLong.c_str(), "value"));
    EXPECT_FALSE(subscribe_expression_add_key_value(expression.get(), "k", tooLarge.c_str()));
    EXPECT_FALSE(subscribe_expression_set_name_space(expression.get(), "k", tooLong.c_str()));
    EXPECT_FALSE(subscribe_expression_add_not_key(expression.get(), tooLong.c_str()));
    EXPECT_EQ(xmlOf(expression), "<subscribe><keyValue key=\"key\" value=\"\"/></subscribe>");
    EXPECT_TRUE(subscribe_expression_add_not_key(expression.get(), most.c_str()));
}

TEST(Expression, HoldsAsManyConditionsAsAnEventMayHaveKeys)
{
    const ExpressionPtr expression = whereValue();
    for (int index = 0; index < EVENT_MAX_KEYS; ++index) {
        ASSERT_TRUE(subscribe_expression_add_not_key(expression.get(),
                                                     ("k" + std::to_string(index)).c_str()));
    }
    EXPECT_FALSE(subscribe_expression_add_not_key(expression.get(), "one more"));
    EXPECT_TRUE(subscribe_expression_add_not_key(expression.get(), "k0")); // there already
}

TEST(DeclarationBuilding, EachStepIsChecked)
{
    ErrorSlot error;
    EXPECT_EQ(event_declaration_new(2, error.out()), nullptr);
    EXPECT_EQ(error.code(), EVENT_ERROR_INVALID);
    const DeclarationPtr declaration(event_declaration_new(0, error.out()));
    ASSERT_TRUE(declaration);
    event_declaration_t *raw = declaration.get();
    const std::string tooLong(EVENT_MAX_NAME + 1, 'x');
    const auto fails = [&](int result) {
        return result == 0 && error.code() == EVENT_ERROR_INVALID;
    };

    EXPECT_TRUE(event_declaration_add_key(raw, "open", EVENT_VALUE_INT, error.out()));
    EXPECT_TRUE(fails(event_declaration_add_key(raw, "open", EVENT_VALUE_INT, error.out())));
    EXPECT_TRUE(fails(event_declaration_add_key(raw, "", EVENT_VALUE_INT, error.out())));
    EXPECT_TRUE(fails(event_declaration_add_key(raw, "\xff", EVENT_VALUE_INT, error.out())));
    EXPECT_TRUE(
        fails(event_declaration_add_key(raw, tooLong.c_str(), EVENT_VALUE_INT, error.out())));
    EXPECT_TRUE(
        fails(event_declaration_add_key_value(raw, "open", event_value_string("x"), error.out())));
    EXPECT_TRUE(
        fails(event_declaration_add_key_value(raw, "v", event_value_string("\xff"), error.out())));
    EXPECT_TRUE(
        fails(event_declaration_add_key_value(raw, "v", event_value_double(NAN), error.out())));
    EXPECT_TRUE(event_declaration_add_key_value(raw, "v", event_value_string(""), error.out()));

    EXPECT_TRUE(event_declaration_set_name_space(raw, "v", "tns1"));
    EXPECT_TRUE(event_declaration_set_name_space(raw, "v", nullptr));
    EXPECT_FALSE(event_declaration_set_name_space(raw, "none", "tns1"));
    EXPECT_FALSE(event_declaration_set_name_space(raw, "v", tooLong.c_str()));
    EXPECT_TRUE(event_declaration_set_nice_names(raw, "v", nullptr, "value"));
    EXPECT_FALSE(event_declaration_set_nice_names(raw, "none", "a", "b"));
    EXPECT_FALSE(event_declaration_set_nice_names(raw, "v", "\xff", "b"));
    EXPECT_FALSE(event_declaration_add_key_tag(raw, "none", "tag"));
    EXPECT_FALSE(event_declaration_add_key_tag(raw, "v", ""));
    for (int index = 0; index < EVENT_MAX_TAGS; ++index) {
        EXPECT_TRUE(event_declaration_add_key_tag(raw, "v", std::to_string(index).c_str()));
    }
    EXPECT_FALSE(event_declaration_add_key_tag(raw, "v", "one more"));
    EXPECT_TRUE(event_declaration_add_key_tag(raw, "v", "0")); // there already

    EXPECT_FALSE(event_declaration_set_property(raw, "none", 0, error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_KEY);
    EXPECT_TRUE(fails(event_declaration_set_property(raw, "open", 1, error.out())));
    EXPECT_TRUE(event_declaration_set_property(raw, "open", 0, error.out()));
    EXPECT_TRUE(event_declaration_set_property(raw, "open", 0, error.out()));
    EXPECT_TRUE(fails(event_declaration_set_property(raw, "v", 0, error.out())));
}

TEST(DeclarationBuilding, HasRoomForTheDocumentedNumberOfKeys)
{
    const DeclarationPtr declaration(event_declaration_new(0, nullptr));
    for (int index = 0; index < EVENT_MAX_KEYS; ++index) {
        ASSERT_TRUE(event_declaration_add_key(
            declaration.get(), ("k" + std::to_string(index)).c_str(), EVENT_VALUE_INT, nullptr));
    }
    EXPECT_FALSE(event_declaration_add_key(declaration.get(), "more", EVENT_VALUE_INT, nullptr));
}

TEST(ApiMisuse, ANullObjectIsACriticalLineAndAFailureNeverACrash)
{
    const test_support::LogCapture logs;
    EXPECT_FALSE(subscribe_expression_add_key_value(nullptr, "k", "v"));
    EXPECT_EQ(subscribe_expression_serialize_xml(nullptr), nullptr);
    EXPECT_FALSE(event_declaration_add_key(nullptr, "k", EVENT_VALUE_INT, nullptr));
    EXPECT_EQ(event_get_value(nullptr, "k"), nullptr);
    EXPECT_EQ(event_get_tags_at(nullptr, 0), nullptr);
    EXPECT_LT(event_producer_declare(nullptr, nullptr), 0);
    EXPECT_EQ(event_producer_prepare_event(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_FALSE(event_producer_send_event(nullptr, nullptr, nullptr));
    EXPECT_LT(event_consumer_subscribe(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_FALSE(event_consumer_unsubscribe(nullptr, 0, 0));
    EXPECT_EQ(logs.count(G_LOG_LEVEL_CRITICAL, ""), 10);
    event_free(nullptr);
    event_declaration_free(nullptr);
    event_producer_free(nullptr);
    event_consumer_free(nullptr);
    subscribe_expression_free(nullptr);
    EXPECT_EQ(logs.lines().size(), 10U);
}

TEST(ApiMisuse, WrongArgumentsOfClientsAreRefusedWithAnErrorLine)
{
    const test_support::LogCapture logs;
    const std::string tooLong(EVENT_MAX_NAME + 1, 'x');
    EXPECT_EQ(event_producer_new("", nullptr, -1, 0), nullptr);
    EXPECT_EQ(event_producer_new("p", nullptr, -2, 0), nullptr);
    EXPECT_EQ(event_producer_new("p", nullptr, -1, 1), nullptr);
    EXPECT_EQ(event_producer_new(tooLong.c_str(), nullptr, -1, 0), nullptr);
    EXPECT_EQ(event_producer_new("\xff", nullptr, -1, 0), nullptr);
    EXPECT_EQ(event_consumer_new(""), nullptr);
    EXPECT_EQ(event_consumer_new(tooLong.c_str()), nullptr);
    EXPECT_EQ(logs.count(256, "failed"), 7);
}

} // namespace
} // namespace event_test
