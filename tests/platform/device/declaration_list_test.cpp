#include "device/declaration_list.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct ListCase {
    const char *name;
    std::string list;
    bool holds;
};

std::ostream &operator<<(std::ostream &out, const ListCase &tested)
{
    return out << tested.name;
}

std::string key(const std::string &name, const std::string &value)
{
    return R"({"key":")" + name + R"(","type":"string","value":")" + value + R"("})";
}

std::string declaration(const std::string &held, const std::string &keys)
{
    return R"({"client":"c","id":0,"held":)" + held + R"(,"keys":[)" + keys + "]}";
}

const std::string OPEN_KEY = R"({"key":"active","type":"boolean"})";
const std::string STATUS_KEYS = key("topic0", "Device") + "," + key("topic1", "MQTT") + "," +
                                key("topic2", "ClientStatus") + "," + OPEN_KEY;
const std::string OTHER = declaration("true", key("topic0", "Device") + "," + OPEN_KEY);

class DeclarationList : public testing::TestWithParam<ListCase> {};

} // namespace

TEST_P(DeclarationList, TellsWhetherAStatusIsHeld)
{
    EXPECT_EQ(norq::device::holdsClientStatus(GetParam().list.c_str()), GetParam().holds);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, DeclarationList,
    testing::Values(
        ListCase{"Empty", "[]", false}, ListCase{"NoJson", "[", false},
        ListCase{"NoText", "", false}, ListCase{"NoList", "{}", false},
        ListCase{"NoObjects", "[1,null,\"x\"]", false},
        ListCase{"NoKeys", "[{\"held\":true}]", false},
        ListCase{"OthersOnly", "[" + OTHER + "]", false},
        ListCase{"Held", "[" + declaration("true", STATUS_KEYS) + "]", true},
        ListCase{"HeldAmongOthers",
                 "[" + OTHER + "," + declaration("true", STATUS_KEYS) + "," + OTHER + "]", true},
        ListCase{"NotHeld", "[" + declaration("false", STATUS_KEYS) + "]", false},
        ListCase{"HeldByTheSecond",
                 "[" + declaration("false", STATUS_KEYS) + "," + declaration("true", STATUS_KEYS) +
                     "]",
                 true},
        ListCase{"HeldIsNoBoolean", "[" + declaration("1", STATUS_KEYS) + "]", false}),
    [](const auto &tested) { return tested.param.name; });
