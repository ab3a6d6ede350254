/** What the service shows on the bus. */
#include "event_handles.h"
#include "event_service_fixture.h"
#include "raw_client.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace event_test {
namespace {

using norq::event::BUS_INTERFACE;
using norq::event::BUS_NAME;
using norq::event::BUS_PATH;

using BusSurface = EventServiceTest;

std::string callForText(RawClient &client, const char *interface, const char *method)
{
    norq::event::BusMessage answer;
    const char *text = nullptr;
    EXPECT_GE(sd_bus_call_method(client.bus.get(), BUS_NAME, BUS_PATH, interface, method, nullptr,
                                 norq::event::Out(answer), ""),
              0);
    EXPECT_GE(sd_bus_message_read(answer.get(), "s", &text), 0);
    return text;
}

/** Methods and arguments of the service's interface as "Method name:type:direction ...". */
std::set<std::string> methodsIn(const std::string &xml)
{
    const std::regex interfaceRegex("<interface name=\"com.norq.EventService1\">([\\s\\S]*?)"
                                    "</interface>");
    const std::regex methodRegex("<method name=\"(\\w+)\">([\\s\\S]*?)</method>");
    const std::regex argumentRegex(
        "<arg\\s+(?:name=\"(\\w+)\"\\s+type=\"([^\"]+)\"|type=\"([^\"]+)\"\\s+name=\"(\\w+)\")"
        "\\s+direction=\"(\\w+)\"");
    std::smatch found;
    std::set<std::string> methods;
    if (!std::regex_search(xml, found, interfaceRegex)) {
        return methods;
    }
    const std::string body = found[1];
    for (std::sregex_iterator method(body.begin(), body.end(), methodRegex), end; method != end;
         ++method) {
        std::string text = (*method)[1];
        const std::string arguments = (*method)[2];
        for (std::sregex_iterator argument(arguments.begin(), arguments.end(), argumentRegex);
             argument != end; ++argument) {
            text += " " + (*argument)[1].str() + (*argument)[4].str() + ":" + (*argument)[2].str() +
                    (*argument)[3].str() + ":" + (*argument)[5].str();
        }
        methods.insert(text);
    }
    return methods;
}

TEST_F(BusSurface, TheIntrospectionIsWhatTheInstalledDescriptionSays)
{
    RawClient client;
    std::ifstream file(INTERFACE_XML);
    std::stringstream described;
    described << file.rdbuf();
    const auto live =
        methodsIn(callForText(client, "org.freedesktop.DBus.Introspectable", "Introspect"));
    EXPECT_EQ(live.size(), 6U);
    EXPECT_EQ(live, methodsIn(described.str()));
}

TEST_F(BusSurface, DeclarationsAreListedAsJson)
{
    RawClient client;
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), "[]");
    const ProducerPtr producer = newProducer("list \"me\"");
    const DeclarationPtr declaration(event_declaration_new(EVENT_DECLARATION_INTERNAL, nullptr));
    event_declaration_t *raw = declaration.get();
    event_declaration_add_key_value(raw, "topic0", event_value_string("D\xc3\xa9vice"), nullptr);
    event_declaration_set_name_space(raw, "topic0", "tns1");
    event_declaration_set_nice_names(raw, "topic0", "Name", "Value");
    event_declaration_add_key_value(raw, "b", event_value_boolean(1), nullptr);
    event_declaration_add_key_value(raw, "i", event_value_int(-3), nullptr);
    event_declaration_add_key_value(raw, "d", event_value_double(0.5), nullptr);
    event_declaration_add_key(raw, "state", EVENT_VALUE_BOOLEAN, nullptr);
    event_declaration_add_key_tag(raw, "state", "onvif-data");
    event_declaration_set_property(raw, "state", 0, nullptr);
    const int id = event_producer_declare(producer.get(), raw);
    const auto expected = [](const std::string &held) {
        return R"([{"client":"list \"me\"","id":0,"internal":true,"property":true,"held":)" + held +
               R"(,"keys":[{"key":"topic0","type":"string","state":false,"value":"D)"
               "\xc3\xa9"
               R"(vice","namespace":"tns1","niceName":"Name","valueNiceName":"Value"},)"
               R"({"key":"b","type":"boolean","state":false,"value":true},)"
               R"({"key":"i","type":"int","state":false,"value":-3},)"
               R"({"key":"d","type":"double","state":false,"value":0.5},)"
               R"({"key":"state","type":"boolean","state":true,"tags":["onvif-data"]}]}])";
    };
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), expected("false"));
    const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
    event_set_value(event.get(), "state", event_value_boolean(1), nullptr);
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
    EXPECT_TRUE(test_support::waitUntil([&] {
        return callForText(client, BUS_INTERFACE, "ListDeclarations") == expected("true");
    }));
    event_producer_undeclare(producer.get(), id);
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), "[]");
}

} // namespace
} // namespace event_test
