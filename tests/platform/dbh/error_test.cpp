#include "support/served_api.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/** A slot that frees its error. */
struct Slot {
    ~Slot() { dbh_api_error_free(error); }
    dbh_api_error_t *error = nullptr;
};

OwnedJson parse(const char *text)
{
    return OwnedJson(json_loads(text, JSON_DECODE_ANY, nullptr));
}

TEST(ApiError, HasItsCodeAndItsFormattedMessage)
{
    Slot slot;
    dbh_api_error_new(&slot.error, 7, "Too many: %d of %s", 3, "items");
    ASSERT_NE(slot.error, nullptr);
    EXPECT_EQ(dbh_api_error_code(slot.error), 7);
    EXPECT_STREQ(dbh_api_error_message(slot.error), "Too many: 3 of items");
}

TEST(ApiError, StaysTheFirstOne)
{
    Slot slot;
    dbh_api_error_new(&slot.error, 2, "first");
    dbh_api_error_new(&slot.error, 5, "second");
    EXPECT_EQ(dbh_api_error_code(slot.error), 2);
    EXPECT_STREQ(dbh_api_error_message(slot.error), "first");
}

TEST(ApiError, WithoutASlotIsNotMade)
{
    dbh_api_error_new(nullptr, 2, "lost");
    EXPECT_EQ(dbh_api_error_code(nullptr), DBH_ERROR_INTERNAL);
    EXPECT_STREQ(dbh_api_error_message(nullptr), "");
    dbh_api_error_free(nullptr);
}

TEST(ApiError, IsMadeValidUtf8)
{
    Slot slot;
    dbh_api_error_new(&slot.error, 0, "%s",
                      "a\xff"
                      "b");
    EXPECT_STREQ(dbh_api_error_message(slot.error), "a\xEF\xBF\xBD"
                                                    "b");
}

TEST(Error, HasAMessageEvenWhenThereIsNone)
{
    EXPECT_STREQ(dbh_error_message(nullptr), "Unknown error");
    dbh_error_free(nullptr);
}

TEST(JsonType, NamesEveryType)
{
    EXPECT_STREQ(dbh_json_type(parse("{}").get()), "object");
    EXPECT_STREQ(dbh_json_type(parse("[]").get()), "array");
    EXPECT_STREQ(dbh_json_type(parse("\"\"").get()), "string");
    EXPECT_STREQ(dbh_json_type(parse("1").get()), "integer");
    EXPECT_STREQ(dbh_json_type(parse("1.5").get()), "real");
    EXPECT_STREQ(dbh_json_type(parse("true").get()), "boolean");
    EXPECT_STREQ(dbh_json_type(parse("false").get()), "boolean");
    EXPECT_STREQ(dbh_json_type(parse("null").get()), "null");
    EXPECT_STREQ(dbh_json_type(nullptr), "nothing");
}

constexpr const char *ALLOWED[] = {"a", "b", nullptr};

TEST(UnexpectedField, IsNotReportedWhenThereIsNone)
{
    Slot slot;
    for (const char *json : {"{}", R"({"b":1})", R"({"b":1,"a":2})", "[1]", "\"c\"", "null"}) {
        EXPECT_FALSE(dbh_json_object_contains_unexpected_field(parse(json).get(), "Set x", ALLOWED,
                                                               &slot.error))
            << json;
    }
    EXPECT_FALSE(dbh_json_object_contains_unexpected_field(nullptr, "Set x", ALLOWED, &slot.error));
    EXPECT_EQ(slot.error, nullptr);
}

TEST(UnexpectedField, IsNamedAfterTheContext)
{
    Slot slot;
    const OwnedJson json = parse(R"({"a":1,"zebra":2,"cat":3})");
    EXPECT_TRUE(
        dbh_json_object_contains_unexpected_field(json.get(), "Set x", ALLOWED, &slot.error));
    EXPECT_EQ(dbh_api_error_code(slot.error), DBH_ERROR_MALFORMED_DATA);
    EXPECT_STREQ(dbh_api_error_message(slot.error), "Set x: Unexpected field zebra");
}

TEST(UnexpectedField, IsReportedWithoutASlotToo)
{
    EXPECT_TRUE(dbh_json_object_contains_unexpected_field(parse(R"({"c":1})").get(), "Set x",
                                                          ALLOWED, nullptr));
}

TEST(UnexpectedField, IsCutWhenItIsLong)
{
    const auto messageFor = [](const std::string &name) {
        Slot slot;
        const OwnedJson json(json_object());
        json_object_set_new_nocheck(json.get(), name.c_str(), json_null());
        dbh_json_object_contains_unexpected_field(json.get(), "x", ALLOWED, &slot.error);
        return std::string(dbh_api_error_message(slot.error));
    };
    std::string clefs;
    for (int count = 0; count < DBH_MAX_QUOTED_LENGTH; ++count) {
        clefs += "\U0001D11E";
    }
    EXPECT_EQ(messageFor(clefs), "x: Unexpected field " + clefs);
    EXPECT_EQ(messageFor(clefs + "e"), "x: Unexpected field " + clefs + "...");
    EXPECT_EQ(messageFor(std::string(1000, 'n')),
              "x: Unexpected field " + std::string(DBH_MAX_QUOTED_LENGTH, 'n') + "...");
    // a thousand bytes that all "continue" a character that never began
    EXPECT_LT(messageFor(std::string(1000, '\x80')).size(), 1000U);
}

} // namespace
