#include "greenhouse.h"
#include "support/served_api.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class HostileRequest : public testing::Test {
protected:
    greenhouse::Model model;
    ServedApi api{greenhouse::descriptor(), &model};
};

std::string malformed(const std::string &message)
{
    return R"({"error":{"code":1,"message":")" + message + "\"}}";
}

/** An answer without the place in the request, which is the parser's affair. */
std::string withoutPosition(std::string answer)
{
    const auto start = answer.find(" at line ");
    const auto end = answer.find(": ", start);
    return start != std::string::npos ? answer.erase(start, end - start) : answer;
}

std::string repeated(int times, const std::string &text)
{
    std::string all;
    for (int count = 0; count < times; ++count) {
        all += text;
    }
    return all;
}

TEST_F(HostileRequest, ThatIsNoJsonIsRefused)
{
    const std::pair<std::string, const char *> cases[] = {
        {"", "ends too early"},
        {"  ", "ends too early"},
        {"{", "ends too early"},
        {"get", "syntax error"},
        {"{]", "syntax error"},
        {"17", "syntax error"},
        {"{}x", "goes on after its end"},
        {"{}\n{}", "goes on after its end"},
        {"\xEF\xBB\xBF{}", "syntax error"},
        {"[\"\xff\"]", "not valid UTF-8"},
        {"[\"\xed\xa0\x80\"]", "not valid UTF-8"},
        {"[\"\\ud800\"]", "syntax error"},
        {"[\"\\u0000\"]", "contains a NUL character"},
        {"{\"\\u0000\":1}", "contains a NUL character"},
        {R"({"api":"a","api":"b"})", "a field stands twice"},
        {"[1e999]", "a number is out of range"},
        {"[9223372036854775808]", "a number is out of range"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(withoutPosition(api.ask(one.first)),
                  malformed("Request is not valid JSON: " + std::string(one.second)))
            << one.first;
    }
}

TEST_F(HostileRequest, WithANoncharacterAnywhereIsRefused)
{
    for (const char *request :
         {R"("\ufffe")", R"(["\ufdd0"])", R"({"api":"\ud83f\udfff"})", R"({"\uffff":1})",
          R"({"api":"greenhouse","version":1,"operation":"get","path":["\ufdef"]})",
          R"({"data":[{"a":[{"b":"\ufdd0"}]}]})"}) {
        EXPECT_EQ(withoutPosition(api.ask(request)),
                  request[0] == '"' ? malformed("Request is not valid JSON: syntax error")
                                    : malformed("Request: A text contains a noncharacter"))
            << request;
    }
}

TEST_F(HostileRequest, ThatIsNoJsonIsToldWhereItEnded)
{
    EXPECT_EQ(api.ask("{}\n{}"),
              malformed("Request is not valid JSON at line 2, column 1: goes on after its end"));
}

TEST_F(HostileRequest, WithAFieldTwiceInItsDataIsRefused)
{
    const std::string answer =
        api.ask(R"({"api":"greenhouse","version":1,"operation":"set","path":["climate"],)"
                R"("data":{"mode":"auto","mode":"off"}})");
    EXPECT_EQ(withoutPosition(answer),
              malformed("Request is not valid JSON: a field stands twice"));
}

TEST_F(HostileRequest, ThatIsNotFormedAsARequestIsRefused)
{
    const std::pair<const char *, const char *> cases[] = {
        {"[]", "Expected JSON object but got array"},
        {"{}", "Missing field api"},
        {R"({"api":null})", "Field api: Expected JSON string but got null"},
        {R"({"api":1})", "Field api: Expected JSON string but got integer"},
        {R"({"api":"a"})", "Missing field version"},
        {R"({"api":"a","version":"1"})", "Field version: Expected JSON integer but got string"},
        {R"({"api":"a","version":1.0})", "Field version: Expected JSON integer but got real"},
        {R"({"api":"a","version":1})", "Missing field operation"},
        {R"({"api":"a","version":1,"operation":["get"]})",
         "Field operation: Expected JSON string but got array"},
        {R"({"api":"a","version":1,"operation":"get","path":"climate"})",
         "Field path: Expected JSON array but got string"},
        {R"({"api":"a","version":1,"operation":"get","path":["house",0]})",
         "Field path: Expected JSON array of strings but got integer"},
        {R"({"api":"a","version":1,"operation":"get","path":null})",
         "Field path: Expected JSON array but got null"},
        {R"({"api":"a","version":1,"operation":"get","property":null})",
         "Field property: Expected JSON string but got null"},
        {R"({"api":"a","version":1,"operation":"get","options":[]})",
         "Field options: Expected JSON object but got array"},
        {R"({"api":"a","version":1,"operation":"get","options":{"omitReadOnly":0}})",
         "Field options.omitReadOnly: Expected JSON boolean but got integer"},
        {R"({"api":"a","version":1,"operation":"get","options":{"importType":1}})",
         "Field options.importType: Expected JSON string but got integer"},
        {R"({"api":"a","version":1,"operation":"get","options":{"importType":"mix"}})",
         "Field options.importType: Value mix is not one of merge, replace"},
        {R"({"api":"a","version":1,"operation":"get","options":{"force":true}})",
         "Unexpected option force"},
        {R"({"api":"a","version":1,"operation":"get","keys":[]})", "Unexpected field keys"},
        {R"({"":1})", "Unexpected field "},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(api.ask(one.first), malformed("Request: " + std::string(one.second)));
    }
}

TEST_F(HostileRequest, OfAMillionBracketsIsRefused)
{
    const std::string nested = "nested too deeply";
    for (const char *bracket : {"[", "{\"a\":"}) {
        const std::string answer = api.ask(repeated(200'000, bracket));
        EXPECT_NE(answer.find(nested), std::string::npos) << answer;
    }
    EXPECT_NE(api.ask(std::string(1'000'000, '[')).find(nested), std::string::npos);
    EXPECT_NE(api.ask(std::string(500'000, '[') + std::string(500'000, ']')).find(nested),
              std::string::npos);
}

TEST_F(HostileRequest, MayNestItsDataAsDeepAsJsonMayBe)
{
    // The request and the array around the data are levels, too.
    const auto climate = [](int levels) {
        return R"({"api":"greenhouse","version":1,"operation":"set","path":["climate"],"data":)" +
               repeated(levels, "[") + repeated(levels, "]") + "}";
    };
    EXPECT_NE(api.ask(climate(2047)).find("Expected JSON object but got array"), std::string::npos);
    EXPECT_NE(api.ask(climate(2048)).find("nested too deeply"), std::string::npos);
}

TEST_F(HostileRequest, IsReadUpToTheLongestLengthAndRefusedBeyond)
{
    const std::string request = R"({"api":"greenhouse","version":1,"operation":"get",)"
                                R"("path":["climate"]})";
    std::string longest = request + std::string(DBH_MAX_REQUEST_LENGTH - request.size(), ' ');
    EXPECT_EQ(api.ask(longest), R"({"data":{"mode":"off","frostGuard":true}})");
    longest += ' ';
    EXPECT_EQ(api.ask(longest),
              R"({"error":{"code":10,"message":"Request is longer than 1048576 bytes"}})");
}

TEST_F(HostileRequest, OfAHundredMegabytesIsRefusedUnread)
{
    const std::string request = "{" + std::string(100'000'000, '"');
    EXPECT_EQ(api.ask(request),
              R"({"error":{"code":10,"message":"Request is longer than 1048576 bytes"}})");
}

TEST_F(HostileRequest, WithEndlessTextsGetsAShortAnswer)
{
    const std::string endless(500'000, 'n');
    const std::string start = R"({"api":"greenhouse","version":1,"operation":)";
    const std::string requests[] = {
        R"({"api":")" + endless + R"(","version":1,"operation":"get"})",
        R"({")" + endless + R"(":1})",
        start + "\"" + endless + "\"}",
        start + R"("get","path":[")" + endless + R"("]})",
        start + R"("get","path":["house",")" + endless + R"("]})",
        start + R"("get","property":")" + endless + R"("})",
        start + R"("get","options":{"importType":")" + endless + R"("}})",
        start + R"("get","options":{")" + endless + R"(":1}})",
        start + R"("set","path":["climate"],"data":{")" + endless + R"(":1}})",
        start + R"("set","path":["climate"],"data":{"mode":")" + endless + R"("}})",
    };
    for (const std::string &request : requests) {
        const std::string answer = api.ask(request);
        EXPECT_EQ(answer.substr(0, 9), R"({"error":)");
        EXPECT_LT(answer.size(), 200U);
    }
}

TEST_F(HostileRequest, MayHaveATextAsLongAsATopicInItsDataAndNoLonger)
{
    const auto add = [this](const std::string &species) {
        return api.ask(R"({"api":"greenhouse","version":1,"operation":"add",)"
                       R"("path":["house","0","plant"],"data":{"species":")" +
                       species + R"("}})");
    };
    const std::string longest(DBH_MAX_TEXT_LENGTH, 'n');
    EXPECT_EQ(add(longest), R"({"data":{"id":"1","species":")" + longest + R"("}})");
    EXPECT_EQ(add(longest + "n"), R"({"error":{"code":5,"message":)"
                                  R"("Property species: Value is longer than 65535 bytes"}})");
}

TEST_F(HostileRequest, WithAnEndlessPathIsRefused)
{
    const std::string path = R"(["house")" + repeated(100'000, R"(,"0")") + "]";
    EXPECT_EQ(api.ask(R"({"api":"greenhouse","version":1,"operation":"get","path":)" + path + "}"),
              R"({"error":{"code":8,"message":"Unknown path root.house[].0"}})");
}

} // namespace
