#include "greenhouse.h"
#include "support/served_api.h"

#include <gtest/gtest.h>

#include <future>
#include <string>

namespace {

class Request : public testing::Test {
protected:
    /** The answer to a request of the API, of which what follows the version is given. */
    std::string ask(const std::string &rest)
    {
        return api.ask(R"({"api":"greenhouse","version":1,)" + rest + "}");
    }

    greenhouse::Model model;
    ServedApi api{greenhouse::descriptor(), &model};
};

std::string errorAnswer(int code, const std::string &message)
{
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + "\"}}";
}

TEST_F(Request, WithoutAPathGetsTheWholeDocument)
{
    EXPECT_EQ(ask(R"("operation":"get")"),
              R"({"data":{"owner":"Gärtnerei Nord","climate":{"mode":"off","frostGuard":true},)"
              R"("house":[{"id":"0","label":"Palms","heated":true,)"
              R"("plant":[{"id":"0","species":"Phoenix"}]}]}})");
    EXPECT_EQ(ask(R"("operation":"get","path":[])"), ask(R"("operation":"get")"));
}

TEST_F(Request, MayLeaveReadOnlyPropertiesOut)
{
    EXPECT_EQ(ask(R"("operation":"get","options":{"omitReadOnly":true})").substr(0, 19),
              R"({"data":{"climate":)");
    EXPECT_EQ(ask(R"("operation":"get","property":"owner","options":{"omitReadOnly":true})"),
              R"({"data":{}})");
}

TEST_F(Request, GetsAnObjectAnItemOrANestedItem)
{
    EXPECT_EQ(ask(R"("operation":"get","path":["climate"])"),
              R"({"data":{"mode":"off","frostGuard":true}})");
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0"])"),
              R"({"data":{"id":"0","label":"Palms","heated":true,)"
              R"("plant":[{"id":"0","species":"Phoenix"}]}})");
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0","plant","0"])"),
              R"({"data":{"id":"0","species":"Phoenix"}})");
}

TEST_F(Request, GetsOneProperty)
{
    EXPECT_EQ(ask(R"("operation":"get","property":"owner")"),
              R"({"data":{"owner":"Gärtnerei Nord"}})");
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0"],"property":"label")"),
              R"({"data":{"label":"Palms"}})");
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0","plant","0"],"property":"id")"),
              R"({"data":{"id":"0"}})");
}

TEST_F(Request, ListsTheItemsOfACollection)
{
    model.houses["1"] = {};
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["house"])"),
              R"({"data":[{"id":"0","label":"Palms","heated":true,)"
              R"("plant":[{"id":"0","species":"Phoenix"}]},)"
              R"({"id":"1","label":"","heated":false,"plant":[]}]})");
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["house","1","plant"])"), R"({"data":[]})");
}

TEST_F(Request, SetsAnObjectOrAnItem)
{
    EXPECT_EQ(ask(R"("operation":"set","path":["climate"],"data":{"mode":"auto"})"),
              R"({"data":null})");
    EXPECT_EQ(model.mode, "auto");
    EXPECT_TRUE(model.frostGuard);
    EXPECT_EQ(ask(R"("operation":"set","path":["house","0"],"property":"heated",)"
                  R"("data":{"heated":false})"),
              R"({"data":null})");
    EXPECT_FALSE(model.houses["0"].heated);
    EXPECT_EQ(ask(R"("operation":"set","path":["house","0","plant","0"],"data":{"species":"X"})"),
              R"({"data":null})");
    EXPECT_EQ(model.houses["0"].plants["0"], "X");
}

TEST_F(Request, AddsAnItemAndGetsItBack)
{
    EXPECT_EQ(ask(R"("operation":"add","path":["house"],"data":{"label":"Ferns"})"),
              R"({"data":{"id":"1","label":"Ferns","heated":false,"plant":[]}})");
    EXPECT_EQ(
        ask(R"("operation":"add","path":["house","1","plant"],"data":{"species":"Adiantum"})"),
        R"({"data":{"id":"0","species":"Adiantum"}})");
    EXPECT_EQ(model.houses["1"].plants["0"], "Adiantum");
}

TEST_F(Request, RemovesAnItem)
{
    EXPECT_EQ(ask(R"("operation":"remove","path":["house","0","plant","0"])"), R"({"data":null})");
    EXPECT_TRUE(model.houses["0"].plants.empty());
    EXPECT_EQ(ask(R"("operation":"remove","path":["house","0"])"), R"({"data":null})");
    EXPECT_TRUE(model.houses.empty());
}

TEST_F(Request, ImportsByMergingUnlessItSaysOtherwise)
{
    EXPECT_EQ(ask(R"("operation":"import","data":{"climate":{"mode":"auto"}})"),
              R"({"data":null})");
    EXPECT_EQ(model.houses.size(), 1U);
    ask(R"("operation":"import","data":{},"options":{"importType":"merge"})");
    EXPECT_EQ(model.mode, "auto");
    ask(R"("operation":"import","data":{},"options":{"importType":"replace"})");
    EXPECT_EQ(model.mode, "off");
    EXPECT_TRUE(model.houses.empty());
}

TEST_F(Request, OfAnUnknownNameVersionOrOperationIsRefused)
{
    EXPECT_EQ(api.ask(R"({"api":"glasshouse","version":1,"operation":"get"})"),
              errorAnswer(DBH_ERROR_UNKNOWN_API, "Unknown API glasshouse"));
    EXPECT_EQ(api.ask(R"({"api":"","version":1,"operation":"get"})"),
              errorAnswer(DBH_ERROR_UNKNOWN_API, "Unknown API "));
    EXPECT_EQ(api.ask(R"({"api":"greenhouse","version":-2,"operation":"get"})"),
              errorAnswer(DBH_ERROR_UNKNOWN_VERSION, "API greenhouse has no major version -2"));
    EXPECT_EQ(
        api.ask(R"({"api":"greenhouse","version":4294967297,"operation":"get"})"),
        errorAnswer(DBH_ERROR_UNKNOWN_VERSION, "API greenhouse has no major version 4294967297"));
    EXPECT_EQ(ask(R"("operation":"list keys")"),
              errorAnswer(DBH_ERROR_NOT_DEFINED, "Unknown operation list keys"));
}

TEST_F(Request, ToAnUnknownPlaceIsRefused)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"(["cellar"])", "Unknown path root.cellar"},
        {R"(["root"])", "Unknown path root.root"},
        {R"([""])", "Unknown path root."},
        {R"(["owner"])", "Unknown path root.owner"},
        {R"(["climate","mode"])", "Unknown path root.climate.mode"},
        {R"(["house","0","palm"])", "Unknown path root.house[].palm"},
        {R"(["house","0","plant","0","leaf"])", "Unknown path root.house[].plant[].leaf"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(ask(R"("operation":"get","path":)" + std::string(one.first)),
                  errorAnswer(DBH_ERROR_UNKNOWN_PATH, one.second));
    }
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0"],"property":"plant")"),
              errorAnswer(DBH_ERROR_UNKNOWN_PATH, "Unknown property root.house[].plant"));
    EXPECT_EQ(ask(R"("operation":"get","property":"")"),
              errorAnswer(DBH_ERROR_UNKNOWN_PATH, "Unknown property root."));
}

TEST_F(Request, ForAKeyIsLeftToTheApi)
{
    const std::string noItem = errorAnswer(DBH_ERROR_NO_SUCH_ITEM, "There is no such item");
    EXPECT_EQ(ask(R"("operation":"get","path":["house","7"])"), noItem);
    EXPECT_EQ(ask(R"("operation":"get","path":["house"])"), noItem);
    EXPECT_EQ(ask(R"("operation":"remove","path":["house"])"), noItem);
    EXPECT_EQ(ask(R"("operation":"set","path":["house"],"data":{})"), noItem);
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["house","7","plant"])"), noItem);
    EXPECT_EQ(ask(R"("operation":"get","path":["house","0","plant"])"), noItem);
}

TEST_F(Request, ForAnOperationThatIsNotDefinedThereIsRefused)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"("operation":"set","data":{})", "Set operation not defined for root"},
        {R"("operation":"set","property":"owner","data":{})",
         "Set operation not defined for root.owner"},
        {R"("operation":"add","path":["climate"],"data":{})",
         "Add operation not defined for root.climate"},
        {R"("operation":"remove","path":["climate"])",
         "Remove operation not defined for root.climate"},
        {R"("operation":"listKeys")", "List keys operation not defined for root"},
        {R"("operation":"import","path":["house"],"data":{})",
         "Import operation not defined for root.house[]"},
        {R"("operation":"import","property":"owner","data":{})",
         "Import operation not defined for root.owner"},
        {R"("operation":"remove","path":["house","0"],"property":"label")",
         "Remove operation not defined for root.house[].label"},
        {R"("operation":"add","path":["house"],"property":"label","data":{})",
         "Add operation not defined for root.house[].label"},
        {R"("operation":"add","path":["house","0"],"data":{})",
         "Add operation not defined for an item of root.house[]"},
        {R"("operation":"listKeys","path":["house","0"])",
         "List keys operation not defined for an item of root.house[]"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(ask(one.first), errorAnswer(DBH_ERROR_NOT_DEFINED, one.second));
    }
}

TEST_F(Request, HasDataExactlyWhenTheOperationNeedsIt)
{
    EXPECT_EQ(ask(R"("operation":"set","path":["climate"])"),
              errorAnswer(DBH_ERROR_MALFORMED_DATA, "Set operation needs data"));
    EXPECT_EQ(ask(R"("operation":"add","path":["house"])"),
              errorAnswer(DBH_ERROR_MALFORMED_DATA, "Add operation needs data"));
    EXPECT_EQ(ask(R"("operation":"import")"),
              errorAnswer(DBH_ERROR_MALFORMED_DATA, "Import operation needs data"));
    EXPECT_EQ(ask(R"("operation":"set","path":["climate"],"data":null)"),
              errorAnswer(DBH_ERROR_MALFORMED_DATA,
                          "Set root.climate: Expected JSON object but got null"));
    EXPECT_EQ(ask(R"("operation":"get","data":null)"),
              errorAnswer(DBH_ERROR_MALFORMED_REQUEST, "Get operation takes no data"));
    EXPECT_EQ(ask(R"("operation":"remove","path":["house","0"],"data":{})"),
              errorAnswer(DBH_ERROR_MALFORMED_REQUEST, "Remove operation takes no data"));
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["house"],"data":1)"),
              errorAnswer(DBH_ERROR_MALFORMED_REQUEST, "List keys operation takes no data"));
    EXPECT_EQ(model.houses.size(), 1U);
}

TEST_F(Request, WithDataThatDoesNotFitChangesNothing)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"({"mode":"auto","frostGuard":1})",
         "Property frostGuard: Expected JSON boolean but got integer"},
        {R"({"mode":7})", "Property mode: Expected JSON string but got integer"},
        {R"({"mode":"Auto"})", "Property mode: Value Auto is not one of off, auto, manual"},
        {R"({"mode":"auto","limit":1})", "Set root.climate: Unexpected field limit"},
        {R"(["auto"])", "Set root.climate: Expected JSON object but got array"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(ask(R"("operation":"set","path":["climate"],"data":)" + std::string(one.first)),
                  errorAnswer(DBH_ERROR_MALFORMED_DATA, one.second));
    }
    EXPECT_EQ(model.mode, "off");
}

TEST_F(Request, BeyondABoundOfTheApiIsRefused)
{
    for (std::size_t count = model.houses.size(); count < greenhouse::MOST_ITEMS; ++count) {
        ask(R"("operation":"add","path":["house"],"data":{})");
    }
    EXPECT_EQ(model.houses.size(), greenhouse::MOST_ITEMS);
    EXPECT_EQ(ask(R"("operation":"add","path":["house"],"data":{})"),
              errorAnswer(DBH_ERROR_TOO_MANY_ITEMS, "Too many items"));
    EXPECT_EQ(model.houses.size(), greenhouse::MOST_ITEMS);
}

TEST_F(Request, IsCheckedFromTheOutsideIn)
{
    // each is wrong in its own way and in those of all that follow
    EXPECT_EQ(api.ask(R"({"api":"x","version":9,"operation":"x","path":["x"],"extra":1})"),
              errorAnswer(DBH_ERROR_MALFORMED_REQUEST, "Request: Unexpected field extra"));
    EXPECT_EQ(api.ask(R"({"api":"x","version":9,"operation":"x","path":["x"],"options":{"x":1}})"),
              errorAnswer(DBH_ERROR_MALFORMED_REQUEST, "Request: Unexpected option x"));
    EXPECT_EQ(api.ask(R"({"api":"x","version":9,"operation":"x","path":["x"]})"),
              errorAnswer(DBH_ERROR_UNKNOWN_API, "Unknown API x"));
    EXPECT_EQ(api.ask(R"({"api":"greenhouse","version":9,"operation":"x","path":["x"]})"),
              errorAnswer(DBH_ERROR_UNKNOWN_VERSION, "API greenhouse has no major version 9"));
    EXPECT_EQ(ask(R"("operation":"x","path":["x"])"),
              errorAnswer(DBH_ERROR_NOT_DEFINED, "Unknown operation x"));
    EXPECT_EQ(ask(R"("operation":"add","path":["x"],"property":"x")"),
              errorAnswer(DBH_ERROR_UNKNOWN_PATH, "Unknown path root.x"));
    EXPECT_EQ(ask(R"("operation":"add","path":["climate"],"property":"x")"),
              errorAnswer(DBH_ERROR_UNKNOWN_PATH, "Unknown property root.climate.x"));
    EXPECT_EQ(ask(R"("operation":"add","path":["climate"])"),
              errorAnswer(DBH_ERROR_NOT_DEFINED, "Add operation not defined for root.climate"));
}

TEST(RequestHandlers, OfDifferentThreadsAreIndependent)
{
    const auto serve = [] {
        greenhouse::Model model;
        ServedApi api(greenhouse::descriptor(), &model);
        for (int count = 0; count < 200; ++count) {
            api.ask(R"({"api":"greenhouse","version":1,"operation":"add","path":["house"],)"
                    R"("data":{"label":"Ferns"}})");
            api.ask(R"({"api":"greenhouse","version":1,"operation":"get"})");
            api.ask(
                R"({"api":"greenhouse","version":1,"operation":"remove","path":["house","1"]})");
        }
        return model.houses.size();
    };
    auto other = std::async(std::launch::async, serve);
    EXPECT_EQ(serve(), 1U);
    EXPECT_EQ(other.get(), 1U);
}

} // namespace
