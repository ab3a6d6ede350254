#include "support/served_api.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr const char *COLOURS[] = {"red", "green", "blue", nullptr};

/** An initialised field with a slot for errors. */
struct StringField {
    explicit StringField(int minLength = -1, int maxLength = -1,
                         const char *const *allowed = nullptr)
    {
        dbh_string_init_full(&field, "colour", minLength, maxLength, allowed);
    }
    ~StringField()
    {
        dbh_string_deinit(&field);
        dbh_api_error_free(error);
    }
    StringField(const StringField &) = delete;
    StringField &operator=(const StringField &) = delete;

    bool set(const char *value) { return dbh_string_set(&field, value, &error); }

    bool deserialize(const char *json)
    {
        const OwnedJson parsed(json_loads(json, JSON_DECODE_ANY | JSON_ALLOW_NUL, nullptr));
        return dbh_string_deserialize(&field, parsed.get(), &error);
    }

    /** Code and message of the error, which is taken out of the slot. */
    std::string takeError()
    {
        const OwnedApiError taken(error);
        error = nullptr;
        return std::to_string(dbh_api_error_code(taken.get())) + " " +
               dbh_api_error_message(taken.get());
    }

    dbh_string_t field{};
    dbh_api_error_t *error = nullptr;
};

TEST(StringField, StartsUnset)
{
    dbh_string_t field;
    dbh_string_init(&field, "name");
    EXPECT_FALSE(dbh_string_is_set(&field));
    EXPECT_EQ(dbh_string_value(&field), nullptr);
    EXPECT_EQ(dbh_string_serialize(&field), nullptr);
    dbh_string_deinit(&field);
}

TEST(StringField, KeepsACopyOfItsValue)
{
    StringField text;
    std::string value = "first";
    ASSERT_TRUE(text.set(value.c_str()));
    value = "other";
    EXPECT_TRUE(dbh_string_is_set(&text.field));
    EXPECT_STREQ(dbh_string_value(&text.field), "first");
    ASSERT_TRUE(text.set(""));
    EXPECT_TRUE(dbh_string_is_set(&text.field));
    EXPECT_STREQ(dbh_string_value(&text.field), "");
}

TEST(StringField, CanBeSetToItsOwnValue)
{
    StringField text;
    ASSERT_TRUE(text.set("same"));
    ASSERT_TRUE(text.set(dbh_string_value(&text.field)));
    EXPECT_STREQ(dbh_string_value(&text.field), "same");
}

TEST(StringField, CanBeUsedAgainAfterItsEnd)
{
    dbh_string_t field;
    dbh_string_init(&field, "name");
    ASSERT_TRUE(dbh_string_set(&field, "value", nullptr));
    dbh_string_deinit(&field);
    dbh_string_init(&field, "name");
    EXPECT_FALSE(dbh_string_is_set(&field));
    dbh_string_deinit(&field);
}

TEST(StringField, RefusesWhatBreaksItsDeclarationAndStaysAsItWas)
{
    StringField colour(-1, -1, COLOURS);
    ASSERT_TRUE(colour.set("green"));
    EXPECT_FALSE(colour.set("grey"));
    EXPECT_EQ(colour.takeError(), "0 Property colour: Value grey is not one of red, green, blue");
    EXPECT_FALSE(colour.set(""));
    EXPECT_EQ(colour.takeError(), "0 Property colour: Value  is not one of red, green, blue");
    EXPECT_FALSE(colour.set(nullptr));
    EXPECT_EQ(colour.takeError(), "0 Property colour: Value is missing");
    EXPECT_FALSE(colour.set("\xc3"));
    EXPECT_EQ(colour.takeError(), "0 Property colour: Value is not valid UTF-8");
    EXPECT_FALSE(colour.set("\xEF\xBF\xBE"));
    EXPECT_EQ(colour.takeError(), "0 Property colour: Value is not valid UTF-8");
    EXPECT_FALSE(dbh_string_set(&colour.field, "grey", nullptr));
    EXPECT_STREQ(dbh_string_value(&colour.field), "green");
}

TEST(StringField, TakesFromARequestNoTextThatNoTopicCouldBe)
{
    StringField text;
    const std::string longest(DBH_MAX_TEXT_LENGTH, 'a');
    EXPECT_TRUE(text.deserialize(("\"" + longest + "\"").c_str()));
    EXPECT_FALSE(text.deserialize(("\"a" + longest + "\"").c_str()));
    EXPECT_EQ(text.takeError(), "5 Property colour: Value is longer than 65535 bytes");
    EXPECT_EQ(dbh_string_value(&text.field), longest);
    EXPECT_TRUE(text.set(("a" + longest).c_str()));
}

TEST(StringField, AcceptsAllCharactersButNoncharacters)
{
    const StringField text;
    for (const char *value :
         {"\xEF\xB7\x8F", "\xEF\xB7\xB0", "\xEF\xBF\xBD", "\xF0\x9F\xBF\xBD", "\xF4\x8F\xBF\xBD"}) {
        EXPECT_TRUE(dbh_string_validate_value(&text.field, value)) << value;
    }
    for (const char *value : {"\xEF\xB7\x90", "\xEF\xB7\xAF", "\xEF\xBF\xBE", "\xEF\xBF\xBF",
                              "\xF0\x9F\xBF\xBE", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_FALSE(dbh_string_validate_value(&text.field, value)) << value;
    }
}

TEST(StringField, CountsItsLengthInCharacters)
{
    StringField text(2, 3);
    EXPECT_FALSE(text.set("ä"));
    EXPECT_EQ(text.takeError(), "0 Property colour: Value is shorter than 2 characters");
    EXPECT_TRUE(text.set("ää"));
    EXPECT_TRUE(text.set("äää"));
    EXPECT_FALSE(text.set("ääää"));
    EXPECT_EQ(text.takeError(), "0 Property colour: Value is longer than 3 characters");
}

TEST(StringField, AcceptsTheEmptyTextAloneWhenNothingMayBeLonger)
{
    StringField text(0, 0);
    EXPECT_TRUE(text.set(""));
    EXPECT_FALSE(text.set("a"));
}

TEST(StringField, ValidatesWithoutChangingAnything)
{
    const StringField colour(-1, -1, COLOURS);
    EXPECT_TRUE(dbh_string_validate_value(&colour.field, "red"));
    for (const char *value : {"Red", "red ", "re", "", "\xff"}) {
        EXPECT_FALSE(dbh_string_validate_value(&colour.field, value)) << value;
    }
    EXPECT_FALSE(dbh_string_validate_value(&colour.field, nullptr));
    EXPECT_FALSE(dbh_string_is_set(&colour.field));
    const StringField any;
    EXPECT_TRUE(dbh_string_validate_value(&any.field, ""));
    EXPECT_TRUE(dbh_string_validate_value(&any.field, "\xF0\x9F\x8C\xB5"));
    EXPECT_FALSE(dbh_string_validate_value(&any.field, nullptr));
}

TEST(StringField, IsReadFromJsonAndWrittenToIt)
{
    StringField colour(-1, -1, COLOURS);
    ASSERT_TRUE(colour.deserialize("\"blue\""));
    const OwnedJson json(dbh_string_serialize(&colour.field));
    EXPECT_STREQ(json_string_value(json.get()), "blue");
    EXPECT_EQ(colour.error, nullptr);
}

TEST(StringField, RefusesJsonThatDoesNotFit)
{
    StringField colour(-1, -1, COLOURS);
    const std::pair<const char *, const char *> cases[] = {
        {"1", "5 Property colour: Expected JSON string but got integer"},
        {"null", "5 Property colour: Expected JSON string but got null"},
        {"[\"red\"]", "5 Property colour: Expected JSON string but got array"},
        {"true", "5 Property colour: Expected JSON string but got boolean"},
        {"\"grey\"", "5 Property colour: Value grey is not one of red, green, blue"},
        {"\"red\\u0000\"", "5 Property colour: Value contains a NUL character"},
    };
    for (const auto &one : cases) {
        EXPECT_FALSE(colour.deserialize(one.first)) << one.first;
        EXPECT_EQ(colour.takeError(), one.second);
        EXPECT_FALSE(dbh_string_is_set(&colour.field));
    }
    EXPECT_FALSE(dbh_string_deserialize(&colour.field, nullptr, &colour.error));
    EXPECT_EQ(colour.takeError(), "5 Property colour: Expected JSON string but got nothing");

    const OwnedJson noText(json_string_nocheck("\xff"));
    EXPECT_FALSE(dbh_string_deserialize(&colour.field, noText.get(), &colour.error));
    EXPECT_EQ(colour.takeError(), "5 Property colour: Value is not valid UTF-8");

    StringField length(2, 2);
    EXPECT_FALSE(length.deserialize("\"a\""));
    EXPECT_EQ(length.takeError(), "5 Property colour: Value is shorter than 2 characters");
    EXPECT_FALSE(length.deserialize("\"aaa\""));
    EXPECT_EQ(length.takeError(), "5 Property colour: Value is longer than 2 characters");
}

TEST(StringField, CutsALongValueInItsMessage)
{
    StringField colour(-1, -1, COLOURS);
    EXPECT_FALSE(colour.deserialize(("\"" + std::string(5000, 'x') + "\"").c_str()));
    EXPECT_EQ(colour.takeError(), "5 Property colour: Value " +
                                      std::string(DBH_MAX_QUOTED_LENGTH, 'x') +
                                      "... is not one of red, green, blue");
}

TEST(BooleanField, StartsUnset)
{
    dbh_boolean_t field;
    dbh_boolean_init(&field, "flag");
    EXPECT_FALSE(dbh_boolean_is_set(&field));
    EXPECT_FALSE(dbh_boolean_value(&field));
    EXPECT_EQ(dbh_boolean_serialize(&field), nullptr);
    dbh_boolean_deinit(&field);
}

TEST(BooleanField, KeepsEitherValue)
{
    dbh_boolean_t field;
    dbh_boolean_init(&field, "flag");
    for (const bool value : {true, false}) {
        EXPECT_TRUE(dbh_boolean_set(&field, value, nullptr));
        EXPECT_TRUE(dbh_boolean_is_set(&field));
        EXPECT_EQ(dbh_boolean_value(&field), value);
        const OwnedJson json(dbh_boolean_serialize(&field));
        EXPECT_EQ(json_is_true(json.get()), value);
        EXPECT_TRUE(json_is_boolean(json.get()));
    }
    dbh_boolean_deinit(&field);
    EXPECT_FALSE(dbh_boolean_is_set(&field));
}

TEST(BooleanField, IsReadFromJsonBooleansOnly)
{
    dbh_boolean_t field;
    dbh_boolean_init(&field, "flag");
    const OwnedJson one(json_integer(1));
    dbh_api_error_t *error = nullptr;
    EXPECT_FALSE(dbh_boolean_deserialize(&field, one.get(), &error));
    const OwnedApiError owned(error);
    EXPECT_EQ(dbh_api_error_code(error), DBH_ERROR_MALFORMED_DATA);
    EXPECT_STREQ(dbh_api_error_message(error),
                 "Property flag: Expected JSON boolean but got integer");
    EXPECT_FALSE(dbh_boolean_is_set(&field));
    EXPECT_TRUE(dbh_boolean_deserialize(&field, json_true(), nullptr));
    EXPECT_TRUE(dbh_boolean_value(&field));
    EXPECT_TRUE(dbh_boolean_deserialize(&field, json_false(), nullptr));
    EXPECT_FALSE(dbh_boolean_value(&field));
    EXPECT_FALSE(dbh_boolean_deserialize(&field, nullptr, nullptr));
}

/** Expects a critical message from each call with a NULL field. */
class MissingField : public testing::Test {
protected:
    void SetUp() override { previous = g_log_set_default_handler(count, &criticals); }
    void TearDown() override { g_log_set_default_handler(previous, nullptr); }

    static void count(const char * /*domain*/, GLogLevelFlags level, const char * /*message*/,
                      void *counter)
    {
        *static_cast<int *>(counter) += (level & G_LOG_LEVEL_CRITICAL) != 0 ? 1 : 0;
    }

    int criticals = 0;
    GLogFunc previous = nullptr;
};

TEST_F(MissingField, IsLoggedAndLeavesAnErrorWhereThereIsASlot)
{
    dbh_api_error_t *error = nullptr;
    EXPECT_FALSE(dbh_string_set(nullptr, "x", &error));
    EXPECT_STREQ(dbh_api_error_message(error), "There is no field to set");
    dbh_api_error_free(std::exchange(error, nullptr));
    EXPECT_FALSE(dbh_string_deserialize(nullptr, json_true(), &error));
    EXPECT_STREQ(dbh_api_error_message(error), "There is no field to set");
    dbh_api_error_free(std::exchange(error, nullptr));
    EXPECT_FALSE(dbh_boolean_set(nullptr, true, &error));
    EXPECT_STREQ(dbh_api_error_message(error), "There is no field to set");
    dbh_api_error_free(std::exchange(error, nullptr));
    EXPECT_FALSE(dbh_boolean_deserialize(nullptr, json_null(), &error));
    EXPECT_STREQ(dbh_api_error_message(error), "There is no field to set");
    dbh_api_error_free(error);
    EXPECT_EQ(criticals, 4);
}

TEST_F(MissingField, GivesWhatAnUnsetFieldGives)
{
    dbh_string_init(nullptr, "x");
    dbh_string_deinit(nullptr);
    EXPECT_FALSE(dbh_string_is_set(nullptr));
    EXPECT_EQ(dbh_string_value(nullptr), nullptr);
    EXPECT_FALSE(dbh_string_validate_value(nullptr, "x"));
    EXPECT_EQ(dbh_string_serialize(nullptr), nullptr);
    dbh_boolean_init(nullptr, "x");
    dbh_boolean_deinit(nullptr);
    EXPECT_FALSE(dbh_boolean_is_set(nullptr));
    EXPECT_FALSE(dbh_boolean_value(nullptr));
    EXPECT_EQ(dbh_boolean_serialize(nullptr), nullptr);
    EXPECT_EQ(criticals, 11);
}

} // namespace
